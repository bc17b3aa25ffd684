// Messages to the process manager, and what it asks for: every form of its settings.
#include "process/service_notice.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "log/unix_datagram.h"
#include "unit/builtin/platform_fixture.h"

namespace
{

using platform::connect_datagram;
using platform::notify_manager;
using platform::open_datagram_socket;
using platform::send_datagram;
using platform::watchdog_interval;
using std::chrono::microseconds;
using testing_platform::Mailbox;
using testing_platform::ScopedSetting;

class UnixDatagram : public testing::Test
{
protected:
    testing_platform::TempFolder folder;
    const std::string path = folder.file("socket");
    const platform::Descriptor socket = open_datagram_socket();
};

TEST_F(UnixDatagram, ReachesAPath)
{
    const Mailbox box(path);
    EXPECT_EQ(send_datagram(socket, path, "one"), 0);
    EXPECT_EQ(send_datagram(socket, path, "two\nlines"), 0);
    EXPECT_EQ(box.next(), "one");
    EXPECT_EQ(box.next(), "two\nlines");
}

TEST_F(UnixDatagram, ReachesAnAbstractNameThatIsExactlyThis)
{
    const std::string name = "@" + path.substr(1); // unique as the folder is
    const Mailbox box(name);
    EXPECT_EQ(send_datagram(socket, name, "one"), 0);
    EXPECT_EQ(box.next(), "one");
    EXPECT_EQ(send_datagram(socket, name + "r", "two"), -ECONNREFUSED);
    EXPECT_EQ(send_datagram(socket, name.substr(0, name.size() - 1), "three"), -ECONNREFUSED);
}

TEST_F(UnixDatagram, FindsAServiceThatStartedAnew)
{
    {
        const Mailbox first(path);
        EXPECT_EQ(send_datagram(socket, path, "one"), 0);
    }
    EXPECT_EQ(send_datagram(socket, path, "two"), -ECONNREFUSED) << "it is away";
    EXPECT_EQ(unlink(path.c_str()), 0);
    EXPECT_EQ(send_datagram(socket, path, "three"), -ENOENT);
    const Mailbox again(path);
    EXPECT_EQ(send_datagram(socket, path, "four"), 0);
    EXPECT_EQ(again.next(), "four");
}

TEST_F(UnixDatagram, ReceiverThatDoesNotReadIsNotWaitedFor)
{
    const Mailbox box(path);
    platform::Descriptor connected;
    EXPECT_EQ(connect_datagram(connected, path), 0);
    int result = 0;
    int sent = 0;
    for (; result == 0; sent++) {
        result = send_datagram(connected, std::to_string(sent));
    }
    EXPECT_EQ(result, -EAGAIN);
    EXPECT_EQ(send_datagram(socket, path, "one more"), -EAGAIN);
    EXPECT_EQ(box.next(), "0");
    EXPECT_EQ(send_datagram(connected, "room again"), 0);
    EXPECT_EQ(send_datagram(connected, std::string(1'000'000, 'x')), -EMSGSIZE);
}

TEST_F(UnixDatagram, ConnectionFailsWhereNobodyListens)
{
    platform::Descriptor connected;
    EXPECT_EQ(connect_datagram(connected, path), -ENOENT);
    EXPECT_EQ(connect_datagram(connected, "relative"), -EINVAL);
    EXPECT_FALSE(connected);
    const Mailbox box(path);
    EXPECT_EQ(connect_datagram(connected, path), 0);
    EXPECT_GT(connected.get(), STDERR_FILENO);
}

TEST_F(UnixDatagram, AddressesOfAnotherFormAreRefused)
{
    for (const char *address : {"", "/", "@", "relative/path", "vsock:2:1"}) {
        EXPECT_EQ(send_datagram(socket, address, "text"), -EINVAL) << address;
    }
    EXPECT_EQ(send_datagram(socket, "/" + std::string(106, 'x'), "text"), -ENOENT);
    EXPECT_EQ(send_datagram(socket, "/" + std::string(107, 'x'), "text"), -ENAMETOOLONG);
}

TEST_F(UnixDatagram, SocketIsOursAloneAndNoStandardDescriptor)
{
    testing_platform::Child child{[] {
        close(STDIN_FILENO);
        const platform::Descriptor own = open_datagram_socket();
        return own.get() > STDERR_FILENO && fcntl(own.get(), F_GETFD) == FD_CLOEXEC ? 0 : 2;
    }};
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(UnixDatagram, WithoutDescriptorsTheManagerIsNotTold)
{
    testing_platform::Child child{[&] {
        const ScopedSetting manager("NOTIFY_SOCKET", path);
        rlimit limit{};
        (void)getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit none{0, limit.rlim_max};
        (void)setrlimit(RLIMIT_NOFILE, &none);
        const int result = notify_manager("READY=1");
        (void)setrlimit(RLIMIT_NOFILE, &limit);
        return result == -EMFILE ? 0 : 2;
    }};
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(UnixDatagram, ManagerMayListenUnderAnAbstractName)
{
    const std::string name = "@" + path.substr(1);
    const Mailbox manager(name);
    const ScopedSetting setting("NOTIFY_SOCKET", name);
    EXPECT_EQ(notify_manager("READY=1\nSTATUS=Serving"), 0);
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Serving");
}

class Watchdog : public testing::Test
{
protected:
    static std::optional<microseconds> asked(const char *interval, const char *pid)
    {
        const ScopedSetting interval_setting("WATCHDOG_USEC", interval);
        const ScopedSetting pid_setting("WATCHDOG_PID", pid);
        return watchdog_interval();
    }
};

TEST_F(Watchdog, WantsSignsOfLifeOfThisProcess)
{
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(asked("20000000", nullptr), microseconds(20000000));
    EXPECT_EQ(asked("20000000", pid.c_str()), microseconds(20000000));
    EXPECT_EQ(asked("1", ""), microseconds(1));
}

TEST_F(Watchdog, WantsNothingOfThisProcess)
{
    EXPECT_EQ(asked(nullptr, nullptr), std::nullopt);
    EXPECT_EQ(asked("20000000", "1"), std::nullopt) << "another process is meant";
    EXPECT_EQ(asked("20000000", "x"), std::nullopt);
    // What is no time, and the word for "never"
    for (const char *interval : {"", "0", "-5", "soon", "5s", " 5", "18446744073709551615"}) {
        EXPECT_EQ(asked(interval, nullptr), std::nullopt) << interval;
    }
}

} // namespace
