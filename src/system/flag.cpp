// Setting a kernel flag file: the platform acts on it at the next start.
#include "system/flag.hpp"

#include <fcntl.h>

#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/run_lock.hpp"

FlagResult set_kernel_flag(const char* path) {
    shared_work();
    UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!fd) {
        return FlagResult::open_failed;
    }
    return write_full(fd.get(), "1", 1) == 1 ? FlagResult::set : FlagResult::write_failed;
}
