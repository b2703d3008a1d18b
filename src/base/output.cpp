// The program's own output, held in memory and written out only where no change is under way.
#include "output.hpp"

#include <cstdio>
#include <cstdlib>

#include "io.hpp"

namespace {

char* held = nullptr;
std::size_t held_size = 0;
std::size_t written = 0;

}  // namespace

void output_hold() {
    FILE* memory = open_memstream(&held, &held_size);
    if (memory == nullptr) {
        return;
    }
    stdout = memory;
    (void)std::atexit(output_release);
}

void output_release() {
    std::fflush(stdout);
    if (held == nullptr || held_size <= written) {
        return;
    }
    (void)write_full(1, held + written, held_size - written);
    written = held_size;
}
