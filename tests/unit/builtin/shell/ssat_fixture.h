// What the tests of the debug shell share: a daemon that offers commands of every kind, and ways to reach it.
//
// The daemon is a child, not a thread of the test: a command may move or close descriptor 1 for good, which
// would take the test program's own output along, and a process has one shell. The child's standard output is
// a file, because what does not arrive in it is half of what is tested.
#ifndef SSAT_FIXTURE_H
#define SSAT_FIXTURE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "loop/descriptor.h"
#include "shell/client.h"
#include "ssat.h"
#include "unit/builtin/platform_fixture.h"
#include "vx_thread.h"

namespace ssat_test
{

using Texts = std::vector<std::string>;

constexpr size_t large_output = size_t{4} * 1024 * 1024; // bytes; more than a socket takes unread
constexpr const char *module = "test";

// A command's handler that prints nothing and returns 7.
int32_t nothing();

// A command's handler that prints that many bytes, rounded up to whole KiB, and returns 0.
int32_t print_much(int32_t bytes);

// Casts a function of any number of int32_t to what is registered.
template <typename Function>
ssat_handler_f handler(Function *function)
{
    return reinterpret_cast<ssat_handler_f>(reinterpret_cast<void (*)()>(function));
}

// A timer's callback that reaches the Signpost it is given; to be armed with a delay of 0.
int32_t tell_that_the_loop_runs(vx_thread_t *t);

class Ssat : public testing::Test
{
protected:
    // Starts the daemon with all its commands, and waits until its loop runs.
    void start();
    // Ends the daemon as its manager does; a sanitizer's finding shows in the status.
    int stop();
    // Has the daemon run a command. Throws ssat::Error when it was not called.
    ssat::Reply run(const std::string &command, const Texts &arguments = {}) const;
    // Runs a command that must not be called, and returns why.
    ssat::Error refusal_of(const std::string &command, const Texts &arguments = {}) const;
    // Returns a connection of a client that has said nothing yet.
    platform::Descriptor connect() const;
    // Sends bytes and returns all that comes back until the shell hangs up.
    std::string answer_to(const std::string &bytes) const;

    testing_platform::TempFolder folder;
    const std::string path = folder.file("shell");
    const std::string printed = folder.file("stdout");
    const std::string moved_to = folder.file("moved");
    testing_platform::ScopedSetting socket_setting{"SSAT_SOCKET", path};
    testing_platform::ScopedSetting moved_setting{"MOVED_TO", moved_to};
    std::optional<testing_platform::Child> daemon;

private:
    // The daemon's life, in the child. Returns its exit status.
    static int live(testing_platform::Signpost &ready);
};

} // namespace ssat_test

#endif
