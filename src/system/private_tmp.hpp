// Temporary files outside /usr/local/: one root-only directory per run that nobody else can
// enter, so no name a local user plants in /tmp can redirect or block them (D19).
#pragma once

#include <string>
#include <string_view>

// Made with mkdtemp (mode 0700, root's); removed with everything in it when the object dies.
class PrivateTmp {
public:
    PrivateTmp();
    ~PrivateTmp();
    PrivateTmp(const PrivateTmp&) = delete;
    PrivateTmp& operator=(const PrivateTmp&) = delete;

    [[nodiscard]] bool valid() const { return !dir_.empty(); }
    [[nodiscard]] const std::string& dir() const { return dir_; }
    // The path of name inside the directory; empty when there is no directory.
    [[nodiscard]] std::string path(std::string_view name) const;

private:
    std::string dir_;
};

// The path of name in the run's own private directory, made on first use and removed, with its
// contents, when the run ends. Empty when the directory cannot be made.
[[nodiscard]] std::string private_tmp_path(std::string_view name);
