// Where a destination meets the existing tree, and the first refusal every destination shares.
#pragma once

#include <optional>
#include <string>
#include <vector>

// A destination must name a directory somewhere in its text; one without a "/" is refused before
// anything else is judged.
[[nodiscard]] bool path_has_directory(const std::string& dest);

// The non-empty components of path, in order: "/a//b/" gives "a" and "b".
[[nodiscard]] std::vector<std::string> path_components(const std::string& path);

// The deepest entry above path that exists (judged by lstat, so a link counts as itself) and the
// components from it down to path's own name, top first. path's own name is always in rest, even
// when something already stands there. Nothing when no entry above path exists.
struct PathSplit {
    std::string existing;
    std::vector<std::string> rest;
};
[[nodiscard]] std::optional<PathSplit> path_split_existing(const std::string& path);
