// Rules for paths a caller names as destinations: composition, plain components, and staying
// inside the area the text names (D7).
#include "base/path_rules.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string_view>

#include "base/caller.hpp"
#include "base/owners.hpp"
#include "base/shared.hpp"

namespace {

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

bool path_stays_inside(const std::string& full, const std::string& area) {
    std::string existing = dir_part(full);
    std::string rest = full.substr(existing.size());
    struct stat st {};
    while (existing.size() > 1) {
        std::string probe = existing.substr(0, existing.size() - 1);
        if (lstat(probe.c_str(), &st) == 0) {
            break;
        }
        std::string up = dir_part(probe);
        rest = probe.substr(up.size()).append("/").append(rest);
        existing = up;
    }
    // A dangling link cannot be shown to stay inside, so it does not.
    std::optional<std::string> real = resolve_path(existing);
    if (!real) {
        return false;
    }
    std::string result = *real;
    if (result.back() != '/') {
        result += '/';
    }
    result += rest;
    return starts_with(result, area.c_str());
}

bool path_exists(const char* path) {
    struct stat st {};
    return caller_access(path, F_OK) || lstat(path, &st) == 0;
}

