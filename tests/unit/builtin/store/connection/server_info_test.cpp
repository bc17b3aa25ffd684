// What a server says of itself, as bytes: which ones are good enough, and what a wrong answer is called.
#include "store/connection/server_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace
{

using store::ServerInfo;
using testing::HasSubstr;

// A reply of a kind, with a text.
class Text
{
public:
    Text(int type, std::string text) : text_(std::move(text))
    {
        reply_.type = type;
        reply_.str = text_.data();
        reply_.len = text_.size();
    }
    const redisReply *reply() const { return &reply_; }

private:
    std::string text_;
    redisReply reply_{};
};

bool read(const std::string &server, const std::string &replication, ServerInfo &info, std::string &why)
{
    return store::read_server_info(Text(REDIS_REPLY_STRING, server).reply(),
                                   Text(REDIS_REPLY_STRING, replication).reply(), info, why);
}

TEST(ServerInfo, IsReadFromItsLines)
{
    ServerInfo info;
    std::string why;
    ASSERT_TRUE(read("# Server\r\nredis_version:7.0.15\r\nrun_id:ab\r\n",
                     "role:master\r\nmaster_replid:cd\r\n", info, why))
        << why;
    EXPECT_EQ(info.version, "7.0.15");
    EXPECT_EQ(info.run(), "ab:cd");
    EXPECT_FALSE(info.is_replica);
    ASSERT_TRUE(read("redis_version:10.1\nrun_id:ab", "role:slave\r\nmaster_replid:cd", info, why)) << why;
    EXPECT_TRUE(info.is_replica);
}

TEST(ServerInfo, OfAnOldServerIsRefused)
{
    for (const char *version : {"6.2.14", "2.8", "6", "x", "-7.0"}) {
        ServerInfo info;
        std::string why;
        EXPECT_FALSE(read("redis_version:" + std::string(version) + "\r\nrun_id:ab\r\n", "role:master\r\n",
                          info, why));
        EXPECT_THAT(why, HasSubstr(std::string(version) + ": 7.0 or newer is needed"));
    }
}

TEST(ServerInfo, OfSomethingElseIsRefused)
{
    for (const char *text :
         {"", "hello", "redis_version", "redis_version:", "xredis_version:7.0\nrun_id:1"}) {
        ServerInfo info;
        std::string why;
        EXPECT_FALSE(read(text, "role:master", info, why)) << text;
        EXPECT_THAT(why, HasSubstr("no store server")) << text;
    }
    ServerInfo info;
    std::string why;
    EXPECT_FALSE(store::read_server_info(Text(REDIS_REPLY_ERROR, "NOPERM no").reply(),
                                         Text(REDIS_REPLY_STRING, "").reply(), info, why));
    EXPECT_THAT(why, HasSubstr("NOPERM no"));
}

} // namespace
