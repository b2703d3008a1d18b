// Where a destination meets the existing tree, and the first refusal every destination shares.
#include "base/path_split.hpp"

#include <sys/stat.h>

bool path_has_directory(const std::string& dest) {
    return dest.find('/') != std::string::npos;
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

std::optional<PathSplit> path_split_existing(const std::string& path) {
    std::string existing = path;
    std::string rest;
    struct stat st {};
    do {
        const std::size_t cut = existing.rfind('/');
        if (cut == std::string::npos) {
            return std::nullopt;
        }
        rest = existing.substr(cut + 1) + (rest.empty() ? "" : "/" + rest);
        existing.resize(cut);
    } while (::lstat(existing.c_str(), &st) != 0);
    return PathSplit{existing, path_components(rest)};
}
