// Where the store is and as whom: texts of an operator, right and wrong.
#include "store/connection/endpoint.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "unit/support/folder.h"

namespace
{

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

    EXPECT_EQ(store::parse_endpoint("tcp:host:65535", why)->port, 65535);
    EXPECT_EQ(store::parse_endpoint("tcp:host:1", why)->port, 1);

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

class CredentialsTest : public testing::Test
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

    cg::Folder folder;
    std::string path = folder.path("auth");
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
    std::string why;
    EXPECT_FALSE(store::read_credentials(folder.path(""), why).has_value());
    EXPECT_THAT(why, HasSubstr(folder.path("") + ": not a regular file"));
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

} // namespace
