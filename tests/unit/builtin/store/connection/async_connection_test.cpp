// The connection on the loop, with a peer that says what a real server says only in passing.
#include "store/connection/async_connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "loop/libevent_handles.h"
#include "unit/builtin/store/scripted_server.h"

namespace
{

using std::chrono::milliseconds;
using store_test::array;
using store_test::bulk;
using store_test::ordinary_answer;
using store_test::ScriptedServer;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

void tick(evutil_socket_t /*fd*/, short /*what*/, void * /*arg*/) {}

class AsyncConnectionTest : public testing::Test, public store::AsyncObserver
{
protected:
    void start(ScriptedServer::Script script, milliseconds limit = milliseconds(20000))
    {
        server.emplace(std::move(script));
        identity.endpoint = server->endpoint();
        connection.emplace(base.get(), identity, 33, limit, messages);
        connection->begin(*this);
    }
    void start_and_wait(ScriptedServer::Script script)
    {
        start(std::move(script));
        ASSERT_TRUE(run_until([&] { return !events.empty(); }));
        ASSERT_THAT(events, ElementsAre("up"));
        events.clear();
    }
    bool run_until(const std::function<bool()> &condition)
    {
        const auto deadline = store::Clock::now() + std::chrono::seconds(20);
        const platform::Event ticks(event_new(base.get(), -1, EV_PERSIST, tick, nullptr));
        const timeval span{0, 2000};
        (void)event_add(ticks.get(), &span);
        while (!condition()) {
            if (store::Clock::now() > deadline) {
                return false;
            }
            (void)event_base_loop(base.get(), EVLOOP_ONCE);
        }
        return true;
    }
    static ScriptedServer::Script answering(const std::string &name, std::optional<std::string> bytes)
    {
        return [name, bytes](const Texts &command) {
            return command[0] == name ? bytes : std::optional(ordinary_answer(command));
        };
    }
    // What is reported first with a server that answers a command so.
    std::string first_event(const std::string &name, std::optional<std::string> bytes)
    {
        events.clear();
        start(answering(name, std::move(bytes)));
        EXPECT_TRUE(run_until([&] { return !events.empty(); }));
        data_set_id = connection->data_set_id();
        connection.reset();
        return events.empty() ? "" : events.front();
    }

    void on_up() override { events.emplace_back("up"); }
    void on_lost(const std::string &problem) override { events.push_back("lost: " + problem); }
    void on_failed(const std::string &problem, bool lasting) override
    {
        events.push_back((lasting ? "failed for good: " : "failed: ") + problem);
    }
    void on_subscribed(std::string_view watched) override
    {
        events.push_back("watches " + std::string(watched));
    }
    void on_refused(std::string_view watched, const std::string &problem) override
    {
        events.push_back("refused " + std::string(watched) + ": " + problem);
    }
    void on_message(std::string_view watched, std::string_view channel, std::string_view payload) override
    {
        events.push_back(std::string(watched).append(" ").append(channel).append(" ").append(payload));
    }
    void on_pong() override { events.emplace_back("pong"); }
    void on_checked() override { events.emplace_back("checked"); }

    Texts events;
    Texts said;
    std::string data_set_id; // of the connection of first_event()
    platform::Messages messages{[this](int32_t, const std::string &text) { said.push_back(text); }};
    platform::EventBase base{event_base_new()};
    store::ClientIdentity identity{{}, {}, "tester"};
    std::optional<ScriptedServer> server;
    std::optional<store::AsyncConnection> connection; // gone before the base
};

TEST_F(AsyncConnectionTest, ComesUpWithWhatTheServerSaysOfItself)
{
    start(answering("GET", bulk("the data")));
    EXPECT_TRUE(connection->is_begun());
    EXPECT_FALSE(connection->is_up());
    EXPECT_THAT(events, IsEmpty()) << "only the loop reports";
    connection->begin(*this); // again: nothing
    ASSERT_TRUE(run_until([&] { return !events.empty(); }));
    EXPECT_THAT(events, ElementsAre("up"));
    EXPECT_TRUE(connection->is_up());
    EXPECT_EQ(connection->run(), "p1:d");
    EXPECT_EQ(connection->data_set_id(), "the data");
    EXPECT_THAT(server->commands(), ElementsAre("SELECT 33", "CLIENT SETNAME tester", "INFO server",
                                                "INFO replication", "GET @set"));
}

TEST_F(AsyncConnectionTest, WhatIsRefusedForGoodIsNotWhatMayPass)
{
    EXPECT_EQ(first_event("SELECT", "-NOAUTH who\r\n"),
              "failed for good: the store server refuses: NOAUTH who");
    EXPECT_EQ(first_event("SELECT", "-LOADING wait\r\n"), "failed: the store server refuses: LOADING wait");
    EXPECT_EQ(first_event("GET", "-BUSY wait\r\n"), "failed: the store server refuses: BUSY wait");
    EXPECT_EQ(first_event("GET", "-NOPERM no\r\n"), "up") << "the identity is not needed";
    EXPECT_EQ(data_set_id, "") << "and a refusal is none";
    EXPECT_EQ(first_event("CLIENT", "-NOPERM no\r\n"), "up") << "nor is the name";
    EXPECT_EQ(first_event("INFO", bulk("redis_version:6.2.0\r\nrun_id:p\r\n")),
              "failed for good: the store server's version is 6.2.0: 7.0 or newer is needed");
    EXPECT_EQ(first_event("SELECT", std::nullopt), "failed: Server closed the connection");
    EXPECT_EQ(first_event("SELECT", "?\r\n").substr(0, 24), "failed: Protocol error, ");
}

TEST_F(AsyncConnectionTest, OfNobodyIsTriedAgainWithGrowingPauses)
{
    const auto begin = store::Clock::now();
    identity.endpoint.path = "/nonexistent/socket";
    connection.emplace(base.get(), identity, 1, milliseconds(5000), messages);
    connection->begin(*this);
    ASSERT_TRUE(run_until([&] { return events.size() == 4; }));
    EXPECT_THAT(events, testing::Each("failed: No such file or directory"));
    EXPECT_GE(store::Clock::now() - begin, milliseconds(20 + 40 + 80 - 15)) << "less the clock's steps";
}

TEST_F(AsyncConnectionTest, AServerThatStandsStillIsGivenUp)
{
    start([](const Texts &) { return ""; }, milliseconds(50));
    ASSERT_TRUE(run_until([&] { return !events.empty(); }));
    EXPECT_THAT(events, ElementsAre("failed: no connection in time"));
}

TEST_F(AsyncConnectionTest, WhatComesIsReportedByItsKind)
{
    start_and_wait([](const Texts &command) -> std::string {
        if (command[0] == "SUBSCRIBE") {
            return array({bulk("subscribe"), bulk(command[1]), ":1\r\n"}) +
                   array({bulk("message"), bulk("c"), bulk("payload")});
        }
        if (command[0] == "PSUBSCRIBE") {
            return array({bulk("psubscribe"), bulk(command[1]), ":2\r\n"}) +
                   array({bulk("pmessage"), bulk("p*"), bulk("pc"), bulk("bytes")}) +
                   array({bulk("pong"), bulk("")}) + array({bulk("pong"), bulk("health")}) +
                   array({bulk("message"), bulk("cut")}) + array({bulk("other"), bulk("a"), bulk("b")}) +
                   bulk("health");
        }
        return ordinary_answer(command);
    });
    connection->subscribe("c");
    ASSERT_TRUE(run_until([&] { return events.size() == 2; }));
    EXPECT_THAT(events, ElementsAre("watches c", "c c payload"));
    events.clear();
    connection->subscribe_all("p*");
    ASSERT_TRUE(run_until([&] { return events.size() == 5; }));
    EXPECT_THAT(events, ElementsAre("watches p*", "p* pc bytes", "pong", "checked", "checked"));
}

TEST_F(AsyncConnectionTest, AnErrorRefusesWhatWasAskedForFirst)
{
    start_and_wait([](const Texts &command) -> std::optional<std::string> {
        if (command[0] == "PSUBSCRIBE") { // the last one
            return "-NOPERM a\r\n" + array({bulk("subscribe"), bulk("b"), ":1\r\n"}) + "-ERR c\r\n-ERR d\r\n";
        }
        return command[0] == "PING"
                   ? std::nullopt
                   : std::optional(command[0] == "SUBSCRIBE" ? "" : ordinary_answer(command));
    });
    connection->subscribe("a");
    connection->subscribe("b");
    connection->subscribe_all("c*");
    ASSERT_TRUE(run_until([&] { return events.size() == 3; }));
    EXPECT_THAT(events, ElementsAre("refused a: NOPERM a", "watches b", "refused c*: ERR c"));
    events.clear();
    connection->subscribe("a");
    (void)connection->ping(); // cuts the connection
    ASSERT_TRUE(run_until([&] { return events.size() == 2; }));
    EXPECT_EQ(events.back(), "up");
    connection->subscribe_all("c*");
    ASSERT_TRUE(run_until([&] { return events.size() == 4; }));
    EXPECT_EQ(events[2], "refused c*: NOPERM a") << "what was asked on a connection before is forgotten";
}

TEST_F(AsyncConnectionTest, PingsAreNumberedOnEachConnectionAnew)
{
    start_and_wait([](const Texts &command) {
        return command[0] == "PING" ? array({bulk("pong"), bulk("")}) : ordinary_answer(command);
    });
    EXPECT_EQ(connection->ping(), 1U);
    EXPECT_EQ(connection->ping(), 2U);
    ASSERT_TRUE(run_until([&] { return events.size() == 2; }));
    EXPECT_THAT(events, ElementsAre("pong", "pong"));
    connection->drop("a test wants it");
    EXPECT_EQ(events.back(), "lost: a test wants it");
    EXPECT_FALSE(connection->is_up());
    EXPECT_EQ(events.size(), 3U);
    connection->drop("once more");
    EXPECT_EQ(events.size(), 3U) << "it is gone already";
    connection->subscribe("c"); // to nobody
    connection->subscribe_all("c*");
    ASSERT_TRUE(run_until([&] { return events.size() == 4; }));
    EXPECT_EQ(events.back(), "up");
    EXPECT_EQ(connection->ping(), 1U);
    EXPECT_THAT(server->commands(), testing::Not(Contains(testing::HasSubstr("SUBSCRIBE"))));
}

TEST_F(AsyncConnectionTest, OneThatNobodyBeganCannotBeDropped)
{
    connection.emplace(base.get(), identity, 1, milliseconds(5000), messages);
    connection->drop("why");
    EXPECT_FALSE(connection->is_begun());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(AsyncConnectionTest, ALostOneComesBack)
{
    start_and_wait(answering("PING", std::nullopt));
    (void)connection->ping();
    ASSERT_TRUE(run_until([&] { return events.size() == 2; }));
    EXPECT_THAT(events, ElementsAre("lost: Server closed the connection", "up"));
}

TEST_F(AsyncConnectionTest, ItsHealthIsAskedForEachSecondAndGivenUpAfterTheLimit)
{
    int answered = 0;
    start(
        [&](const Texts &command) {
            return command[0] == "PING" && ++answered > 1 ? "" : ordinary_answer(command);
        },
        milliseconds(50));
    ASSERT_TRUE(run_until([&] { return events.size() == 3; }));
    EXPECT_THAT(events, ElementsAre("up", "checked", "lost: no answer in time"));
    EXPECT_THAT(server->commands(), Contains("PING health"));
}

} // namespace
