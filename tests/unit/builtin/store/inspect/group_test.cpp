// The servers behind a place.
#include "store/inspect/group.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/builtin/store/sentinel_group.h"

namespace
{

using std::chrono::milliseconds;
using store_test::SentinelGroup;

constexpr milliseconds in_time{20000};

store::StorePlace at(const std::string &endpoint)
{
    std::string why;
    const auto place = store::place_of(endpoint, "", why);
    EXPECT_TRUE(place) << why;
    return place.value_or(store::StorePlace{});
}

std::vector<std::string> texts_of(const std::vector<store::Endpoint> &endpoints)
{
    std::vector<std::string> texts;
    for (const store::Endpoint &endpoint : endpoints) {
        texts.push_back(endpoint.text);
    }
    return texts;
}

TEST(Group, ReplicasAreReadFromTheMastersInfo)
{
    const auto replicas =
        store::replicas_in("# Replication\r\nrole:master\r\nconnected_slaves:3\r\n"
                           "slave0:ip=10.0.0.2,port=6379,state=online,offset=14,lag=0\r\n"
                           "slave1:ip=fe80::1,port=6380,state=wait_bgsave,offset=0,lag=0\r\n"
                           "slave_repl_offset:7\r\nslave12:nonsense\r\nslave\r\n");
    ASSERT_EQ(replicas.size(), 3U);
    EXPECT_EQ(store::place_text(replicas[0].place), "10.0.0.2:6379");
    EXPECT_TRUE(replicas[0].is_online);
    EXPECT_EQ(store::place_text(replicas[1].place), "[fe80::1]:6380");
    EXPECT_FALSE(replicas[1].is_online);
    EXPECT_EQ(store::place_text(replicas[2].place), ":0") << "what says nothing is no place";
}

TEST(Group, AServerIsTheOnlyOneAtItsPlace)
{
    std::string why;
    const auto servers = store::servers_at(at("unix:/nowhere"), in_time, why);
    ASSERT_TRUE(servers);
    EXPECT_THAT(texts_of(*servers), testing::ElementsAre("unix:/nowhere")) << "nobody is asked";
}

TEST(Group, MasterReplicasAndEachSentinelAreFound)
{
    SentinelGroup group;
    std::string why;
    const auto servers = store::servers_at(at(group.endpoint()), in_time, why);
    ASSERT_TRUE(servers) << why;
    const std::vector<std::string> texts = texts_of(*servers);
    EXPECT_EQ(texts.front(), "tcp:" + group.server_address(0));
    EXPECT_THAT(texts, testing::UnorderedElementsAre("tcp:" + group.server_address(0),
                                                     "tcp:" + group.server_address(1),
                                                     "tcp:" + group.server_address(2)));

    group.kill_sentinel(1);
    const auto reports = store::ask_sentinels(at(group.endpoint()), in_time);
    ASSERT_EQ(reports.size(), 3U);
    for (const size_t sentinel : {size_t{0}, size_t{2}}) {
        ASSERT_TRUE(reports[sentinel].master) << reports[sentinel].words;
        EXPECT_EQ(store::place_text(*reports[sentinel].master), group.server_address(0));
    }
    EXPECT_FALSE(reports[1].master);
    EXPECT_EQ(store::place_text(reports[1].place), group.sentinel_address(1));
    EXPECT_EQ(reports[1].words, group.sentinel_address(1) + ": Connection refused");

    group.kill_sentinel(0);
    group.kill_sentinel(2);
    EXPECT_FALSE(store::servers_at(at(group.endpoint()), in_time, why));
    EXPECT_THAT(why, testing::AllOf(testing::HasSubstr(group.endpoint()), testing::HasSubstr("no master")));
}

} // namespace
