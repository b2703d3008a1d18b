// Rules for paths a caller names as destinations: composition, plain components, and staying
// inside the area the text names (D7).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.hpp"

// The installed path: a destination ending in "/" names a directory and gets the source's base
// name; any other destination is the path itself.
[[nodiscard]] std::string install_full_path(const std::string& source, const std::string& dest);

// A destination must name its directory: ST_BAD_PATH, silently, when dest has no "/".
[[nodiscard]] ExitStatus dest_names_directory(const std::string& dest);

// Where a path meets the existing tree: the deepest entry on its way that exists (the path itself
// never counts; without its final "/", so empty for the root) and the components below it.
struct PathSplit {
    std::string existing;
    std::string rest;
};
[[nodiscard]] std::optional<PathSplit> split_at_existing(const std::string& full);

// The non-empty components of path, in order: "/a//b/" gives "a" and "b".
[[nodiscard]] std::vector<std::string> path_components(const std::string& path);

// True when dest has an empty, "." or ".." component (a final "/" is allowed) (D7).
[[nodiscard]] bool path_has_bad_component(const std::string& dest);

// D7: ST_BAD_PATH after "Invalid destination path: %s\n" with shown when full, the path a command
// would place, holds a control character (bytes 1 to 31 and 127), else ST_OK.
[[nodiscard]] ExitStatus dest_text_verify(const char* shown, const std::string& full);

// True when the deepest existing entry on the way to full resolves, with the rest appended,
// inside area (D7).
[[nodiscard]] bool path_stays_inside(const std::string& full, const std::string& area);

// True when anything exists at path, a dangling link included.
[[nodiscard]] bool path_exists(const char* path);

// realpath with a heap result, so no length limit applies; nothing when it cannot resolve.
[[nodiscard]] std::optional<std::string> resolve_path(const std::string& path);
