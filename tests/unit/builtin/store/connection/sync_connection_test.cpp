// The connection that calls go through: signing in, databases, and what a server refuses.
#include "store/connection/sync_connection.h"

#include <sys/stat.h>

#include <fstream>

#include "unit/builtin/store/scripted_server.h"
#include "unit/builtin/store/store_client_fixture.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using store::ClientIdentity;
using store::Clock;
using store::Outcome;
using store::SyncConnection;
using store_test::Card;
using store_test::ScopedSetting;
using store_test::ScriptedServer;
using testing::ElementsAre;
using testing::HasSubstr;

class SyncConnectionTest : public store_test::StoreClientTest
{
protected:
    void write_file(const std::string &text)
    {
        std::ofstream(path) << text;
        ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    }

    std::string path = server.folder().path("auth");
};

TEST_F(SyncConnectionTest, TheClientSignsInOnBothConnections)
{
    write_file("user gate\npassword secret\n");
    ASSERT_EQ(server.run(0, {"ACL", "SETUSER", "gate", "on", ">secret", "allkeys", "allchannels", "+@all"}),
              "OK");
    const ScopedSetting file("VX_MOM_AUTH_FILE", path);
    restart_client();
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    connect(1);
    EXPECT_THAT(server.run(0, {"CLIENT", "LIST"}), testing::ContainsRegex("user=gate.*user=gate"));
}

TEST_F(SyncConnectionTest, AWrongPasswordFailsAtOnce)
{
    write_file("user gate\npassword wrong\n");
    const ScopedSetting file("VX_MOM_AUTH_FILE", path);
    restart_client();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 1), store::denied);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_THAT(log_text(), HasSubstr("WRONGPASS"));
    EXPECT_THAT(log_text(), testing::Not(HasSubstr("wrong\n")));
}

TEST_F(SyncConnectionTest, AServerWithTooFewDatabasesIsNamed)
{
    cg::StoreServer small(16);
    const ScopedSetting other("VX_MOM_ENDPOINT", small.endpoint());
    restart_client();
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 33), store::invalid);
    EXPECT_THAT(log_text(), HasSubstr("database 33"));
    EXPECT_THAT(log_text(), HasSubstr("databases 64"));
}

TEST_F(SyncConnectionTest, ADatabaseBeyondTheUsualOnesNeedsMore)
{
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 99), store::invalid);
    EXPECT_THAT(log_text(), HasSubstr("'databases 100'"));
}

TEST_F(SyncConnectionTest, TheStoreIsReachedOverTcp)
{
    // A port of our own choice could be taken: tries until the server gets one.
    std::string port;
    for (int candidate = 20000; candidate < 60000; candidate += 37) {
        port = std::to_string(candidate);
        if (server.run(0, {"CONFIG", "SET", "port", port}) == "OK") {
            break;
        }
    }
    EXPECT_EQ(server.run(0, {"CONFIG", "GET", "bind"}), "bind\n127.0.0.1\n") << "open to other machines";
    const ScopedSetting tcp("VX_MOM_ENDPOINT", "tcp:127.0.0.1:" + port);
    restart_client();
    EXPECT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 7).message()), 0);
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    EXPECT_TRUE(run_until_event("29"));
    EXPECT_EQ(events.front(), "4 0/1/0 type 7");
}

// Against a peer that says what a real server says only in passing.
class PeerTest : public testing::Test
{
protected:
    using Texts = std::vector<std::string>;

    // Connects to a server with this script.
    store::Outcome open(ScriptedServer::Script script, milliseconds limit = milliseconds(20000))
    {
        server.emplace(std::move(script));
        identity.endpoint = server->endpoint();
        connection.emplace(identity, 33);
        return connection->open(Clock::now() + limit);
    }
    // The script of an ordinary server but for one command.
    static ScriptedServer::Script answering(const std::string &name, std::optional<std::string> bytes)
    {
        return [name, bytes](const Texts &command) {
            return command[0] == name ? bytes : std::optional(store_test::ordinary_answer(command));
        };
    }

    ClientIdentity identity{{}, {}, "tester"};
    std::optional<ScriptedServer> server;
    std::optional<SyncConnection> connection;
    std::vector<store::Reply> replies;
};

TEST_F(PeerTest, AHandshakeSignsInSelectsAndGivesAName)
{
    EXPECT_EQ(open(store_test::ordinary_answer), Outcome::answered);
    EXPECT_TRUE(connection->is_open());
    EXPECT_THAT(server->commands(), ElementsAre("SELECT 33", "CLIENT SETNAME tester"));
    identity.credentials.password = "secret";
    EXPECT_EQ(open(store_test::ordinary_answer), Outcome::answered);
    EXPECT_EQ(server->commands().front(), "AUTH secret");
    identity.credentials.user = "gate";
    EXPECT_EQ(open(store_test::ordinary_answer), Outcome::answered);
    EXPECT_THAT(server->commands(), ElementsAre("AUTH gate secret", "SELECT 33", "CLIENT SETNAME tester"));
}

TEST_F(PeerTest, WhatIsRefusedForGoodIsRejectedAndWhatMayPassIsLost)
{
    EXPECT_EQ(open(answering("SELECT", "-ERR DB index is out of range\r\n")), Outcome::rejected);
    EXPECT_EQ(connection->rejection(), store::invalid);
    EXPECT_EQ(connection->problem(),
              "the store server has no database 33: it must be configured with 'databases 64'");
    EXPECT_FALSE(connection->is_open());
    EXPECT_EQ(open(answering("SELECT", "-NOAUTH Authentication required.\r\n")), Outcome::rejected);
    EXPECT_EQ(connection->rejection(), store::denied);
    EXPECT_EQ(connection->problem(), "the store server refuses: NOAUTH Authentication required.");
    for (const char *passing : {"LOADING", "BUSY", "MASTERDOWN", "READONLY", "TRYAGAIN", "NOREPLICAS"}) {
        EXPECT_EQ(open(answering("CLIENT", std::string("-") + passing + " wait\r\n")), Outcome::lost)
            << passing;
    }
    EXPECT_EQ(open(answering("CLIENT", "-NOPERM no\r\n")), Outcome::answered) << "a name is not needed";
}

TEST_F(PeerTest, ErrorsAreRepliesAndComeInTheOrderAsked)
{
    ASSERT_EQ(open(answering("GET", "-ERR no\r\n")), Outcome::answered);
    ASSERT_EQ(
        connection->exchange({{"PING"}, {"GET", "x"}, {"PING", "y"}}, Clock::now() + seconds(20), replies),
        Outcome::answered);
    ASSERT_EQ(replies.size(), 3U);
    EXPECT_EQ(store::text_of(replies[0].get()), "PONG");
    EXPECT_TRUE(store::is_error(replies[1].get(), "ERR"));
    EXPECT_EQ(store::text_of(replies[2].get()), "y");
    ASSERT_EQ(connection->exchange({{"PING"}}, Clock::now() + seconds(20), replies), Outcome::answered);
    EXPECT_EQ(replies.size(), 1U) << "those of before are gone";
}

TEST_F(PeerTest, AConnectionThatEndsIsLostAndOneThatIsSilentTimesOut)
{
    ASSERT_EQ(open(answering("GET", std::nullopt)), Outcome::answered);
    EXPECT_EQ(connection->exchange({{"GET", "x"}}, Clock::now() + seconds(20), replies), Outcome::lost);
    EXPECT_EQ(connection->problem(), "Server closed the connection");
    EXPECT_FALSE(connection->is_open());
    for (const milliseconds limit : {milliseconds(30), milliseconds(230)}) {
        ASSERT_EQ(open(answering("GET", "")), Outcome::answered);
        const Clock::time_point deadline = Clock::now() + limit;
        EXPECT_EQ(connection->exchange({{"GET", "x"}}, deadline, replies), Outcome::timed_out);
        EXPECT_GE(Clock::now(), deadline);
        EXPECT_EQ(connection->problem(), "no answer in time");
        EXPECT_FALSE(connection->is_open()) << "an answer that comes later is nobody's";
    }
    EXPECT_EQ(open(answering("SELECT", ""), milliseconds(30)), Outcome::timed_out);
}

TEST_F(PeerTest, AServerThatIsNotThereIsLost)
{
    identity.endpoint.path = "/nonexistent/socket";
    SyncConnection nobody(identity, 1);
    EXPECT_EQ(nobody.open(Clock::now() + seconds(20)), Outcome::lost);
    EXPECT_EQ(nobody.problem(), "No such file or directory");
}

TEST_F(PeerTest, WhatIsPushedComesOneByOne)
{
    ASSERT_EQ(open(answering("SUBSCRIBE", "+one\r\n+two\r\n")), Outcome::answered);
    ASSERT_EQ(connection->exchange({{"SUBSCRIBE", "x"}}, Clock::now() + seconds(20), replies),
              Outcome::answered);
    store::Reply next;
    ASSERT_EQ(connection->next(Clock::now() + seconds(20), next), Outcome::answered);
    EXPECT_EQ(store::text_of(next.get()), "two");
    EXPECT_EQ(connection->next(Clock::now() + milliseconds(20), next), Outcome::timed_out);
}

TEST_F(PeerTest, ALargeCommandIsSentWhole)
{
    ASSERT_EQ(open(store_test::ordinary_answer), Outcome::answered);
    const std::string large(4000000, 'x');
    ASSERT_EQ(connection->exchange({{"SET", large}}, Clock::now() + seconds(20), replies), Outcome::answered);
    EXPECT_EQ(server->commands().back().size(), large.size() + 4);
}

} // namespace
