// Where the store is and as whom: texts of an operator, right and wrong.
#include "store/connection/endpoint.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "store/connection/configuration.h"
#include "store/connection/errors.h"
#include "store_client_fixture.h"

namespace
{

using store_test::Card;
using store_test::ScopedSetting;
using testing::HasSubstr;

TEST(Endpoint, FormsAreRead)
{
    std::string why;
    const auto socket = store::parse_endpoint("unix:/run/store.sock", why);
    ASSERT_TRUE(socket.has_value());
    EXPECT_EQ(socket->path, "/run/store.sock");

    const auto named = store::parse_endpoint("tcp:store.example:6380", why);
    ASSERT_TRUE(named.has_value());
    EXPECT_EQ(named->host, "store.example");
    EXPECT_EQ(named->port, 6380);
    EXPECT_EQ(named->path, "");

    const auto bracketed = store::parse_endpoint("tcp:[::1]:6379", why);
    ASSERT_TRUE(bracketed.has_value());
    EXPECT_EQ(bracketed->host, "::1");
}

TEST(Endpoint, AGroupHasANameAndSentinels)
{
    std::string why;
    const auto group = store::parse_endpoint("sentinel:card@10.0.0.1:26379,watch.example:1,[::1]:26379", why);
    ASSERT_TRUE(group.has_value()) << why;
    EXPECT_EQ(group->group, "card");
    EXPECT_EQ(group->host, "");
    EXPECT_EQ(group->path, "");
    const std::vector<store::HostPort> expected{{"10.0.0.1", 26379}, {"watch.example", 1}, {"::1", 26379}};
    EXPECT_EQ(group->sentinels, expected);
    EXPECT_EQ(store::place_text(group->sentinels.front()), "10.0.0.1:26379");
    EXPECT_EQ(store::place_text(group->sentinels.back()), "[::1]:26379");

    const auto server = store::parse_endpoint("tcp:host:1", why);
    ASSERT_TRUE(server.has_value());
    EXPECT_EQ(server->group, "");
    EXPECT_TRUE(server->sentinels.empty());
}

TEST(Endpoint, WhatIsWrongWithAGroupIsNamed)
{
    const std::vector<std::pair<std::string, std::string>> table{
        {"sentinel:", "there is no '@' after the name of the group"},
        {"sentinel:card", "there is no '@' after the name of the group"},
        {"sentinel:@a:1", "the name of the group is empty"},
        {"sentinel:my card@a:1", "'my card' is no name of a group"},
        {"sentinel:card@", "the address of a sentinel is empty"},
        {"sentinel:card@a:1,", "the address of a sentinel is empty"},
        {"sentinel:card@,a:1", "the address of a sentinel is empty"},
        {"sentinel:card@a:1,,b:1", "the address of a sentinel is empty"},
        {"sentinel:card@a", "'a' is no host:port"},
        {"sentinel:card@a:1,b", "'b' is no host:port"},
        {"sentinel:card@a:0", "'a:0' is no host:port"},
        {"sentinel:card@:1", "':1' is no host:port"},
        {"sentinel:card@::1:1", "'::1:1' is no host:port"},
        {"sentinel:card@a:1, b:1", "' b:1' is no host:port"},
        {"sentinel:card@a@b:1", "'a@b:1' is no host:port"},
        {"sentinel:card@a:1,b:1,a:1", "a:1 is named twice"},
        {"sentinel:card@[::1]:1,[::1]:1", "[::1]:1 is named twice"},
    };
    for (const auto &[text, what] : table) {
        std::string why;
        EXPECT_FALSE(store::parse_endpoint(text, why).has_value()) << text;
        EXPECT_THAT(why, testing::StartsWith("endpoint '" + text + "' is none: "));
        EXPECT_THAT(why, testing::EndsWith(
                             what + ", use unix:/path, tcp:host:port or sentinel:NAME@host:port,host:port"));
    }
}

TEST(Endpoint, APathThatNoSocketCanHaveIsRefused)
{
    std::string why;
    EXPECT_TRUE(store::parse_endpoint("unix:/" + std::string(106, 's'), why).has_value());
    EXPECT_FALSE(store::parse_endpoint("unix:/" + std::string(107, 's'), why).has_value());
    EXPECT_THAT(why, HasSubstr("at most 107 bytes"));
}

TEST(Endpoint, AnythingElseIsNamedWithWhatIsRight)
{
    for (const char *text :
         {"", "unix:", "unix:relative", "tcp:", "tcp:host", "tcp:host:", "tcp::6379", "tcp:host:0",
          "tcp:host:65536", "tcp:host:12x", "tcp:::1:6379", "udp:host:1", "tcp:a b:1", "tcp:a:1,b:1",
          "tcp:card@a:1", "/run/store.sock", "sentinels:card@a:1"}) {
        std::string why;
        EXPECT_FALSE(store::parse_endpoint(text, why).has_value()) << text;
        EXPECT_THAT(why, HasSubstr(std::string("'") + text + "'"));
        EXPECT_THAT(why, HasSubstr("use unix:/path, tcp:host:port or sentinel:NAME@host:port"));
    }
}

class CredentialsTest : public store_test::StoreClientTest
{
protected:
    void write_file(const std::string &text, mode_t mode = 0600)
    {
        std::ofstream(path) << text;
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
    }
    std::string refusal()
    {
        std::string why;
        EXPECT_FALSE(store::read_credentials(path, why).has_value());
        return why;
    }

    std::string path = server.folder() + "/auth";
};

TEST_F(CredentialsTest, UserAndPasswordAreRead)
{
    write_file("user gate\n\npassword  two words\n");
    std::string why;
    const auto credentials = store::read_credentials(path, why);
    ASSERT_TRUE(credentials.has_value()) << why;
    EXPECT_EQ(credentials->user, "gate");
    EXPECT_EQ(credentials->password, "two words");
}

TEST_F(CredentialsTest, NoFileMeansNoCredentials)
{
    std::string why;
    const auto credentials = store::read_credentials("", why);
    ASSERT_TRUE(credentials.has_value());
    EXPECT_EQ(credentials->password, "");
}

TEST_F(CredentialsTest, TheSentinelsHaveTheirOwn)
{
    write_file("sentinel-user watcher\nsentinel-password hidden\n");
    std::string why;
    auto credentials = store::read_credentials(path, why);
    ASSERT_TRUE(credentials.has_value()) << why;
    EXPECT_EQ(credentials->sentinel_user, "watcher");
    EXPECT_EQ(credentials->sentinel_password, "hidden");
    EXPECT_EQ(credentials->user, "");
    EXPECT_EQ(credentials->password, "");
    write_file("sentinel-password hidden\npassword secret\nuser gate");
    credentials = store::read_credentials(path, why);
    ASSERT_TRUE(credentials.has_value()) << why;
    EXPECT_EQ(credentials->sentinel_user, "");
    EXPECT_EQ(credentials->sentinel_password, "hidden");
    EXPECT_EQ(credentials->user, "gate");
    EXPECT_EQ(credentials->password, "secret");
}

TEST_F(CredentialsTest, AWrongFileIsRefused)
{
    EXPECT_THAT(refusal(), HasSubstr("No such file"));
    EXPECT_THAT(refusal(), HasSubstr("use a file with the lines 'user NAME' and 'password SECRET'"));
    for (const char *line : {"secret", "passwordsecret", "password", "password ", "user", " user gate",
                             "sentinel-passwordsecret", "sentinel-", "sentinel-key secret"}) {
        write_file("user gate\n\n" + std::string(line) + "\n");
        EXPECT_THAT(refusal(), HasSubstr("line 3 is neither 'user NAME' nor 'password SECRET'")) << line;
        EXPECT_THAT(refusal(), testing::Not(HasSubstr("secret"))) << line;
    }
}

TEST_F(CredentialsTest, AUserNeedsAPassword)
{
    write_file("user gate\nsentinel-password secret\n");
    EXPECT_THAT(refusal(), HasSubstr("there is a line 'user NAME' and none 'password SECRET'"));
    write_file("sentinel-user gate\npassword secret\n");
    EXPECT_THAT(refusal(),
                HasSubstr("there is a line 'sentinel-user NAME' and none 'sentinel-password SECRET'"));
}

TEST_F(CredentialsTest, NoRightOfOthersIsTolerated)
{
    for (const mode_t mode : {0604U, 0602U, 0601U, 0607U}) {
        write_file("password secret\n", mode);
        EXPECT_THAT(refusal(), HasSubstr("others have rights to it, use mode 0600")) << mode;
    }
    for (const mode_t mode : {0600U, 0640U, 0400U}) {
        write_file("password secret\n", 0600);
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        std::string why;
        EXPECT_TRUE(store::read_credentials(path, why).has_value()) << why;
    }
}

TEST_F(CredentialsTest, OnlyAFileOfReasonableSizeIsRead)
{
    const std::string folder = server.folder();
    std::string why;
    EXPECT_FALSE(store::read_credentials(folder, why).has_value());
    EXPECT_THAT(why, HasSubstr(folder + ": not a regular file"));
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_THAT(refusal(), HasSubstr("not a regular file")) << "and not waited for";
    ASSERT_EQ(unlink(path.c_str()), 0);

    const std::string longest = "password " + std::string(4096 - 9, 's');
    write_file(longest + "\n");
    EXPECT_TRUE(store::read_credentials(path, why).has_value()) << why;
    write_file("user gate\n" + longest + "s\n");
    EXPECT_THAT(refusal(), HasSubstr("line 2 is longer than 4096 bytes"));
    write_file(std::string(65537, '\n'));
    EXPECT_THAT(refusal(), HasSubstr("longer than 65536 bytes"));
}

TEST_F(CredentialsTest, TheClientSignsInOnBothConnections)
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

TEST_F(CredentialsTest, AWrongPasswordFailsAtOnce)
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

class ConfigurationTest : public store_test::StoreClientTest
{
};

TEST_F(ConfigurationTest, AWrongEndpointFailsEveryCall)
{
    const ScopedSetting wrong("VX_MOM_ENDPOINT", "nowhere");
    testing::internal::CaptureStderr();
    restart_client();
    const Card card(0, 1, 0);
    EXPECT_LT(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_LT(vx_mom_client_connect(global.get(), 1, note_connect, this), 0);
    EXPECT_LT(vx_mom_set_sync(global.get(), 1, card.message()), 0);
    EXPECT_LT(subscribe_cards(), 0);
    vx_mom_result_t *result = vx_mom_hgetall_sync(global.get(), 1, card.message());
    ASSERT_NE(result, nullptr);
    EXPECT_LT(result->error_code, 0);
    vx_mom_hash_res_free(result);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("'nowhere'"));
    EXPECT_THAT(log_text(), HasSubstr("'nowhere'"));
}

TEST_F(ConfigurationTest, AServerWithTooFewDatabasesIsNamed)
{
    store_test::StoreServer small(16);
    const ScopedSetting other("VX_MOM_ENDPOINT", small.endpoint());
    restart_client();
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 33), store::invalid);
    EXPECT_THAT(log_text(), HasSubstr("database 33"));
    EXPECT_THAT(log_text(), HasSubstr("databases 64"));
}

TEST_F(ConfigurationTest, ADatabaseBeyondTheUsualOnesNeedsMore)
{
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 99), store::invalid);
    EXPECT_THAT(log_text(), HasSubstr("'databases 100'"));
}

// Text that a process said on standard error while `work` was done.
std::string said_meanwhile(const std::function<void()> &work)
{
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}

TEST_F(ConfigurationTest, AServerThatRefusesIsNamedOnStandardError)
{
    ASSERT_EQ(server.run(0, {"CONFIG", "SET", "requirepass", "secret"}), "OK");
    const std::string said = said_meanwhile([this] {
        EXPECT_LT(vx_mom_client_connect_sync(global.get(), 1), 0);
        EXPECT_LT(vx_mom_client_connect_sync(global.get(), 1), 0);
        EXPECT_LT(vx_mom_client_connect_sync(global.get(), 28), 0);
    });
    EXPECT_EQ(said, "store client: " + server.endpoint() +
                        ": the store server refuses: NOAUTH Authentication required.\n");
}

TEST_F(ConfigurationTest, AServerThatIsNotThereIsNamedOnStandardError)
{
    const ScopedSetting shorter("VX_MOM_DEADLINE_MS", "50");
    restart_client();
    server.kill();
    const std::string said =
        said_meanwhile([this] { EXPECT_LT(vx_mom_client_connect_sync(global.get(), 1), 0); });
    EXPECT_THAT(said, testing::MatchesRegex("store client: unix:.*: .+\n"));
}

TEST_F(ConfigurationTest, WhatIsWrongIsFoundBeforeThereIsAClient)
{
    EXPECT_EQ(store::configuration_problem(), "");
    {
        const ScopedSetting wrong("VX_MOM_DEADLINE_MS", "abc");
        testing::internal::CaptureStderr();
        EXPECT_EQ(store::configuration_problem(),
                  "VX_MOM_DEADLINE_MS=abc: not a whole number from 1 to 3600000");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "to say it is the caller's";
    }
    {
        const ScopedSetting wrong("VX_MOM_AUTH_FILE", "/nonexistent/auth");
        EXPECT_THAT(store::configuration_problem(),
                    HasSubstr("VX_MOM_AUTH_FILE: /nonexistent/auth: No such file or directory"));
    }
    const ScopedSetting wrong("VX_MOM_ENDPOINT", "tcp:1");
    EXPECT_EQ(store::configuration_problem(),
              "endpoint 'tcp:1' is none, use unix:/path, tcp:host:port or sentinel:NAME@host:port,host:port");
}

TEST_F(ConfigurationTest, TheStoreIsReachedOverTcp)
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

} // namespace
