// The daemon that the tests of the debug shell talk to; see the header.
#include "ssat_fixture.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "shell/socket.h"

namespace ssat_test
{

using testing_platform::patience;
using testing_platform::Signpost;

int32_t nothing()
{
    return 7;
}

int32_t print_much(int32_t bytes)
{
    const std::string piece(1024, 'm');
    for (int32_t done = 0; done < bytes; done += 1024) {
        fwrite(piece.data(), 1, piece.size(), stdout);
    }
    return 0;
}

namespace
{

int32_t print_two(int32_t a, int32_t b)
{
    printf("a=%d b=%d\r\n", a, b);
    return a - b;
}

int32_t one(int32_t a)
{
    return a;
}
int32_t three(int32_t a, int32_t b, int32_t c)
{
    return a + 2 * b + 3 * c;
}
int32_t four(int32_t a, int32_t b, int32_t c, int32_t d)
{
    return three(a, b, c) + 4 * d;
}
int32_t five(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e)
{
    return four(a, b, c, d) + 5 * e;
}
int32_t six(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e, int32_t f)
{
    return five(a, b, c, d, e) + 6 * f;
}
int32_t seven(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e, int32_t f, int32_t g)
{
    return six(a, b, c, d, e, f) + 7 * g;
}
int32_t eight(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e, int32_t f, int32_t g, int32_t h)
{
    return seven(a, b, c, d, e, f, g) + 8 * h;
}

int32_t print_binary()
{
    fwrite("a\0\xff\n\x1b", 1, 5, stdout);
    return 0;
}

// Points descriptors 0 to 2 at a file for good, keeps a duplicate of the old standard output for ever, and
// tries in vain to undo it.
int32_t move_output()
{
    puts("before");
    fflush(stdout);
    static_cast<void>(dup(STDOUT_FILENO));
    const char *path = getenv("MOVED_TO");
    const int fd = open(path == nullptr ? "" : path, O_RDWR | O_CREAT, 0644);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(fd, standard);
    }
    puts("after");
    close(fd);
    fflush(stdout);
    dup2(fd, STDOUT_FILENO);
    return 0;
}

int32_t keep_duplicate()
{
    static_cast<void>(dup(STDOUT_FILENO));
    puts("kept");
    return 0;
}

int32_t close_output()
{
    puts("last");
    fflush(stdout);
    close(STDOUT_FILENO);
    return 0;
}

int32_t end_process()
{
    exit(77);
}

void register_all()
{
    ssat_reg_mod_cmd(module, "nothing", 0, "void", nothing);
    ssat_reg_mod_cmd(module, "one", 0, "a=%d", handler(one));
    ssat_reg_mod_cmd(module, "two", 0, "a=%d b=%d", handler(print_two));
    ssat_reg_mod_cmd(module, "three", 0, "a=%d b=%d c=%d", handler(three));
    ssat_reg_mod_cmd(module, "four", 0, "a=%d b=%d c=%d d=%d", handler(four));
    ssat_reg_mod_cmd(module, "five", 0, "a=%d b=%d c=%d d=%d e=%d", handler(five));
    ssat_reg_mod_cmd(module, "six", 0, "a=%d b=%d c=%d d=%d e=%d f=%d", handler(six));
    ssat_reg_mod_cmd(module, "seven", 0, "a=%d b=%d c=%d d=%d e=%d f=%d g=%d", handler(seven));
    ssat_reg_mod_cmd(module, "eight", 0, "a=%d b=%d c=%d d=%d e=%d f=%d g=%d h=%d", handler(eight));
    ssat_reg_mod_cmd(module, "much", 0, "bytes=%d", handler(print_much));
    ssat_reg_mod_cmd(module, "binary", 0, "void", print_binary);
    ssat_reg_mod_cmd(module, "move", 0, "void", move_output);
    ssat_reg_mod_cmd(module, "keep", 0, "void", keep_duplicate);
    ssat_reg_mod_cmd(module, "close", 0, "void", close_output);
    ssat_reg_mod_cmd(module, "end", 0, "void", end_process);
}

} // namespace

int32_t tell_that_the_loop_runs(vx_thread_t *t)
{
    static_cast<Signpost *>(t->arg)->reach();
    return 0;
}

void Ssat::start()
{
    Signpost ready;
    daemon.emplace([&] {
        dup2(open(printed.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDOUT_FILENO);
        return live(ready);
    });
    ASSERT_TRUE(ready.wait());
}

int Ssat::live(Signpost &ready)
{
    vx_global_t *global = vx_global_init(module, nullptr);
    if (ssat_lib_init(global, module) != 0) {
        return 2;
    }
    register_all();
    vx_thread_add_timer_timeval(global, tell_that_the_loop_runs, &ready, {0, 0});
    const int32_t result = vx_global_run(global);
    vx_global_finish(global);
    return result;
}

int Ssat::stop()
{
    daemon->send(SIGTERM);
    return daemon->wait();
}

ssat::Reply Ssat::run(const std::string &command, const Texts &arguments) const
{
    return ssat::run(path, module, command, arguments, patience);
}

ssat::Error Ssat::refusal_of(const std::string &command, const Texts &arguments) const
{
    try {
        run(command, arguments);
    } catch (const ssat::Error &error) {
        return error;
    }
    ADD_FAILURE() << command << " was run";
    return {ssat::Failure::broken, ""};
}

platform::Descriptor Ssat::connect() const
{
    platform::Descriptor fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    const auto address = ssat::address_of(path);
    EXPECT_EQ(::connect(fd.get(), reinterpret_cast<const sockaddr *>(&*address), sizeof(*address)), 0);
    return fd;
}

std::string Ssat::answer_to(const std::string &bytes) const
{
    const platform::Descriptor fd = connect();
    EXPECT_EQ(send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    std::string answer;
    char byte = 0;
    pollfd wanted{fd.get(), POLLIN, 0};
    while (poll(&wanted, 1, 20'000) > 0 && read(fd.get(), &byte, 1) == 1) {
        answer += byte;
    }
    return answer;
}

} // namespace ssat_test
