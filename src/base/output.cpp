// The program's own output, and what its tools print, held in memory and written out only when
// the run holds nothing other runs wait for.
#include "output.hpp"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "io.hpp"
#include "run_lock.hpp"

namespace {

// What tools print is held too; a tool that prints without end must not take the memory of the
// terminal with it. Far above anything a platform tool says about an image or a mount.
constexpr std::size_t tool_output_limit = std::size_t{4} * 1024 * 1024;

// What was written to descriptor 2, and where among the lines held for descriptor 1 it belongs.
struct ErrorPiece {
    std::size_t after;
    std::string bytes;
};

// Plain values, and pieces on the heap that are never destroyed: the exit handler that writes
// them runs after static objects may be gone.
char* held = nullptr;
std::size_t held_size = 0;
std::size_t written = 0;
std::size_t tool_bytes = 0;
std::vector<ErrorPiece>* error_pieces = nullptr;

void write_held_up_to(std::size_t end) {
    if (held != nullptr && end > written) {
        (void)write_full(1, held + written, end - written);
        written = end;
    }
}

}  // namespace

void output_hold() {
    FILE* memory = open_memstream(&held, &held_size);
    if (memory == nullptr) {
        return;
    }
    stdout = memory;
    (void)std::atexit(output_release);
}

void output_append(int fd, const char* data, std::size_t length) {
    if (length > tool_output_limit - tool_bytes) {
        length = tool_output_limit - tool_bytes;
    }
    tool_bytes += length;
    if (length == 0) {
        return;
    }
    std::fflush(stdout);
    if (fd == 1) {
        (void)std::fwrite(data, 1, length, stdout);
        return;
    }
    try {
        if (error_pieces == nullptr) {
            error_pieces = new std::vector<ErrorPiece>;
        }
        error_pieces->push_back(ErrorPiece{held_size, std::string(data, length)});
    } catch (const std::bad_alloc&) {
        // A tool's complaint is not worth the run.
    }
}

void output_release() {
    run_lock_give_back();
    std::fflush(stdout);
    if (error_pieces != nullptr) {
        for (const ErrorPiece& piece : *error_pieces) {
            write_held_up_to(piece.after);
            (void)write_full(2, piece.bytes.data(), piece.bytes.size());
        }
        error_pieces->clear();
    }
    write_held_up_to(held_size);
}
