// What every fuzz target shares: a check that stops the run as a crash, so the input is kept, and
// the ways an input is read as text.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#define FUZZ_CHECK(cond)                                                                  \
    do {                                                                                  \
        if (!(cond)) {                                                                    \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                 \
        }                                                                                 \
    } while (0)

inline std::string_view fuzz_text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// The text before the first sep and the text after it (empty when there is no sep).
inline std::pair<std::string_view, std::string_view> fuzz_cut(std::string_view text, char sep) {
    const std::size_t at = std::min(text.find(sep), text.size());
    return {text.substr(0, at), text.substr(std::min(at + 1, text.size()))};
}
