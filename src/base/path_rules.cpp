// Rules for paths a caller names as destinations: composition, plain components, and staying
// inside the area the text names (D7).
#include "base/path_rules.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "base/caller.hpp"
#include "base/owners.hpp"
#include "base/shared.hpp"

namespace {

constexpr char delete_char = 0x7f;

bool has_control_char(std::string_view text) {
    for (const char c : text) {
        if ((c > 0 && c < ' ') || c == delete_char) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::optional<std::string> resolve_path(const std::string& path) {
    MallocPtr r(realpath(path.c_str(), nullptr));
    if (!r) {
        return std::nullopt;
    }
    return std::string(r.get());
}

std::string install_full_path(const std::string& source, const std::string& dest) {
    if (!dest.empty() && dest.back() == '/') {
        return dest + base_name(source);
    }
    return dest;
}

bool path_has_bad_component(const std::string& dest) {
    std::size_t start = 0;
    if (!dest.empty() && dest.front() == '/') {
        start = 1;
    }
    while (start < dest.size()) {
        std::size_t end = dest.find('/', start);
        if (end == std::string::npos) {
            end = dest.size();
        }
        std::string_view comp(dest.data() + start, end - start);
        if (comp.empty() || comp == "." || comp == "..") {
            return true;
        }
        start = end + 1;
    }
    return false;
}

// The program prints the paths it places as they are, in its own lines and in root's sweep: a
// line end inside a name would let it forge a line there.
ExitStatus dest_text_verify(const char* shown, const std::string& full) {
    if (!has_control_char(full)) {
        return ST_OK;
    }
    std::printf("Invalid destination path: %s\n", shown);
    return ST_BAD_PATH;
}

ExitStatus dest_names_directory(const std::string& dest) {
    return dest.find('/') == std::string::npos ? ST_BAD_PATH : ST_OK;
}

std::optional<PathSplit> split_at_existing(const std::string& full) {
    std::string existing = full;
    struct stat st {};
    for (;;) {
        const std::size_t pos = existing.rfind('/');
        if (pos == std::string::npos) {
            return std::nullopt;
        }
        existing.resize(pos);
        if (lstat(existing.empty() ? "/" : existing.c_str(), &st) == 0) {
            return PathSplit{existing, full.substr(pos + 1)};
        }
    }
}

std::vector<std::string> path_components(const std::string& path) {
    std::vector<std::string> out;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string::npos) {
            end = path.size();
        }
        if (end > start) {
            out.push_back(path.substr(start, end - start));
        }
        start = end + 1;
    }
    return out;
}

bool path_stays_inside(const std::string& full, const std::string& area) {
    const std::optional<PathSplit> split = split_at_existing(full);
    if (!split) {
        return false;
    }
    // With its final "/", an entry that is no directory does not resolve. A dangling link cannot
    // be shown to stay inside either, so neither does.
    std::optional<std::string> real = resolve_path(split->existing + "/");
    if (!real) {
        return false;
    }
    std::string result = *real;
    if (result.back() != '/') {
        result += '/';
    }
    result += split->rest;
    return starts_with(result, area.c_str());
}

bool path_exists(const char* path) {
    struct stat st {};
    return caller_access(path, F_OK) || lstat(path, &st) == 0;
}

