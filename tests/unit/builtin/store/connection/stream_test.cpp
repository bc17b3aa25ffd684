// One stream to a peer that a test plays.
#include "store/connection/stream.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include "unit/builtin/store/scripted_server.h"

namespace
{

using store::Stream;
using store_test::ScriptedServer;

// Waits until something can be read.
void wait_for(const Stream &stream)
{
    pollfd watched{stream.fd(), POLLIN, 0};
    ASSERT_EQ(poll(&watched, 1, 20000), 1);
}

TEST(Stream, ToNobodyHasFailed)
{
    store::Endpoint nowhere;
    nowhere.path = "/nonexistent/socket";
    const Stream stream(nowhere);
    EXPECT_TRUE(stream.failed());
    EXPECT_EQ(stream.problem(), "No such file or directory");
    nowhere.path.clear();
    nowhere.host = "127.0.0.1";
    nowhere.port = 1;
    Stream refused(nowhere);
    if (!refused.failed()) {
        pollfd watched{refused.fd(), POLLOUT, 0};
        ASSERT_EQ(poll(&watched, 1, 20000), 1);
        EXPECT_FALSE(refused.finish_connecting());
    }
    EXPECT_TRUE(refused.failed());
    EXPECT_EQ(refused.problem(), "Connection refused");
}

TEST(Stream, CarriesCommandsAndReplies)
{
    ScriptedServer server([](const auto &command) { return store_test::bulk(command[1]) + "-ERR no\r\n"; });
    Stream stream(server.endpoint());
    ASSERT_FALSE(stream.failed());
    ASSERT_TRUE(stream.finish_connecting());
    EXPECT_EQ(stream.problem(), "");
    EXPECT_NE(fcntl(stream.fd(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(fcntl(stream.fd(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_FALSE(stream.has_output());
    EXPECT_EQ(stream.next_reply(), nullptr);
    EXPECT_FALSE(stream.failed()) << "nothing has come";
    const std::string any("a\0b\r\n", 5);
    stream.append({"ECHO", any, ""});
    EXPECT_TRUE(stream.has_output());
    ASSERT_TRUE(stream.send_some());
    EXPECT_FALSE(stream.has_output());
    wait_for(stream);
    ASSERT_TRUE(stream.read_some());
    EXPECT_EQ(store::text_of(stream.next_reply().get()), any);
    EXPECT_EQ(store::text_of(stream.next_reply().get()), "ERR no");
    EXPECT_EQ(server.commands(), std::vector<std::string>{"ECHO " + any + " "});
}

TEST(Stream, SendsWhatIsLargePieceByPiece)
{
    ScriptedServer server;
    Stream stream(server.endpoint());
    ASSERT_TRUE(stream.finish_connecting());
    stream.append({"SET", "key", std::string(4000000, 'x')});
    ASSERT_TRUE(stream.send_some());
    EXPECT_TRUE(stream.has_output()) << "more than the system takes at once";
    for (int i = 0; i < 100000 && stream.has_output(); i++) {
        pollfd watched{stream.fd(), POLLOUT, 0};
        (void)poll(&watched, 1, 20000);
        ASSERT_TRUE(stream.send_some());
    }
    wait_for(stream);
    ASSERT_TRUE(stream.read_some());
    EXPECT_EQ(store::text_of(stream.next_reply().get()), "OK");
}

TEST(Stream, EndsWithThePeerOrWithWhatIsNoReply)
{
    ScriptedServer server([](const auto &command) {
        return command[0] == "BYE" ? std::nullopt : std::optional<std::string>("?\r\n");
    });
    Stream left(server.endpoint());
    left.append({"BYE"});
    ASSERT_TRUE(left.send_some());
    wait_for(left);
    EXPECT_FALSE(left.read_some());
    EXPECT_TRUE(left.failed());
    EXPECT_EQ(left.problem(), "Server closed the connection");
    Stream garbled(server.endpoint());
    garbled.append({"HELLO"});
    ASSERT_TRUE(garbled.send_some());
    wait_for(garbled);
    ASSERT_TRUE(garbled.read_some());
    EXPECT_EQ(garbled.next_reply(), nullptr);
    EXPECT_TRUE(garbled.failed());
}

TEST(Stream, MayWaitInsideForSoLongAtATime)
{
    ScriptedServer server([](const auto &) { return ""; });
    Stream stream(server.endpoint());
    ASSERT_TRUE(stream.wait_inside(std::chrono::milliseconds(1250)));
    EXPECT_EQ(fcntl(stream.fd(), F_GETFL) & O_NONBLOCK, 0);
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        timeval span{};
        socklen_t size = sizeof span;
        ASSERT_EQ(getsockopt(stream.fd(), SOL_SOCKET, option, &span, &size), 0);
        EXPECT_EQ(span.tv_sec, 1);
        EXPECT_NEAR(static_cast<double>(span.tv_usec), 250000, 10000);
    }
    ASSERT_TRUE(stream.wait_inside(std::chrono::milliseconds(20)));
    EXPECT_TRUE(stream.read_some()) << "the end of the wait is no failure";
    EXPECT_EQ(stream.next_reply(), nullptr);
}

} // namespace
