// Descriptor 1, lent to a client for the duration of one command.
#include "shell/output.h"

#include <array>
#include <cassert>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "log/platform_log.h"
#include "loop/standard_descriptors.h"
#include "shell/protocol.h"

namespace ssat
{
namespace
{

// Never one of the standard descriptors, even if those are closed.
platform::Descriptor make_memory()
{
    const platform::Descriptor raw{memfd_create("ssat-output", MFD_CLOEXEC)};
    return platform::Descriptor{raw ? fcntl(raw.get(), F_DUPFD_CLOEXEC, platform::first_own_descriptor) : -1};
}

// Sends on what was printed before. What cannot be written where it belongs is dropped, or it would come out
// in the next place.
void flush_standard_output()
{
    if (fflush(stdout) != 0) {
        __fpurge(stdout);
        clearerr(stdout);
    }
}

// A file that was cut meanwhile, as rotation does, goes on at its end: behind a hole it would count as large
// as before.
void leave_no_hole()
{
    struct stat info {
    };
    if (fstat(STDOUT_FILENO, &info) == 0 && S_ISREG(info.st_mode) &&
        lseek(STDOUT_FILENO, 0, SEEK_CUR) > info.st_size) {
        (void)lseek(STDOUT_FILENO, 0, SEEK_END);
    }
}

std::string whereabouts_of_standard_output()
{
    std::array<char, PATH_MAX> path{};
    const ssize_t length = readlink("/proc/self/fd/1", path.data(), path.size());
    if (length < 0) {
        return "closed";
    }
    return {path.data(), static_cast<size_t>(length)};
}

Printed read_memory(int fd)
{
    struct stat info {
    };
    if (fstat(fd, &info) != 0) {
        return {};
    }
    const auto size = static_cast<size_t>(info.st_size);
    Printed printed;
    printed.whole = size <= max_output_size;
    printed.text.resize(printed.whole ? size : max_output_size);
    size_t done = 0;
    while (done < printed.text.size()) {
        const ssize_t got =
            pread(fd, printed.text.data() + done, printed.text.size() - done, static_cast<off_t>(done));
        if (got <= 0) {
            break;
        }
        done += static_cast<size_t>(got);
    }
    printed.text.resize(done);
    return printed;
}

} // namespace

Identity identity_of(int fd)
{
    struct stat info {
    };
    if (fstat(fd, &info) != 0) {
        return {};
    }
    return {true, info.st_dev, info.st_ino};
}

OutputLoan::OutputLoan(const Identity &original)
{
    flush_standard_output();
    if (identity_of(STDOUT_FILENO) == original) {
        lend();
    } else {
        leave_no_hole();
    }
}

void OutputLoan::lend()
{
    platform::Descriptor saved{fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, platform::first_own_descriptor)};
    if (!saved && identity_of(STDOUT_FILENO).open) {
        return; // no descriptor left to remember it in
    }
    platform::Descriptor memory = make_memory();
    if (memory && dup2(memory.get(), STDOUT_FILENO) == STDOUT_FILENO) {
        memory_ = std::move(memory);
        saved_ = std::move(saved);
    }
}

Printed OutputLoan::take_back()
{
    if (ended_) {
        return {};
    }
    ended_ = true;
    flush_standard_output();
    Printed printed = end_loan();
    // What the command closed must not become the next client's connection.
    platform::occupy_standard_descriptors();
    return printed;
}

Printed OutputLoan::end_loan()
{
    assert(!memory_ || memory_.get() > STDERR_FILENO); // the program would print over what was lent
    if (!memory_) {
        return {"", whereabouts_of_standard_output(), true};
    }
    Printed printed = read_memory(memory_.get());
    if (identity_of(STDOUT_FILENO) != identity_of(memory_.get())) {
        printed.at = whereabouts_of_standard_output();
    } else if (saved_) {
        dup2(saved_.get(), STDOUT_FILENO);
    } else {
        close(STDOUT_FILENO);
    }
    // The command may hold a duplicate for ever: let it hold nothing.
    if (ftruncate(memory_.get(), 0) != 0) {
        PLATFORM_LOG(platform::log_warn, "debug shell: output of a command stays in memory: %s",
                     strerror(errno));
    }
    return printed;
}

} // namespace ssat
