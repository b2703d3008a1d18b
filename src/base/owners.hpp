// Owners for C resources (directory streams, stdio files, malloc'd memory), so each is released
// on every path. OpenSSL's owners build on the same deleter (ossl.hpp).
#pragma once

#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

template <auto F>
struct Deleter {
    void operator()(auto* p) const noexcept { F(p); }
};

inline void c_free(void* p) noexcept { std::free(p); }
inline void file_close(FILE* f) noexcept { std::fclose(f); }
inline void dir_close(DIR* d) noexcept { closedir(d); }

using DirPtr = std::unique_ptr<DIR, Deleter<dir_close>>;
using FilePtr = std::unique_ptr<FILE, Deleter<file_close>>;
using MallocPtr = std::unique_ptr<char, Deleter<c_free>>;
