// What sentinels may say, byte for byte, and who of several is believed.
#include "store/connection/sentinel_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "wire_reader.h"

namespace
{

using Health = store::SentinelView::Health;
using Texts = std::vector<std::string>;
using store::SentinelView;

// The reply that the client makes of these bytes.
store::Reply decoded(const std::string &bytes)
{
    wire_test::OurReader reader;
    reader.feed(bytes);
    store::Reply reply = reader.next();
    EXPECT_NE(reply, nullptr) << bytes;
    return reply;
}

std::string list(const Texts &texts)
{
    std::string bytes = "*" + std::to_string(texts.size()) + "\r\n";
    for (const std::string &text : texts) {
        bytes += "$" + std::to_string(text.size()) + "\r\n" + text + "\r\n";
    }
    return bytes;
}

const std::string here = list({"10.0.0.1", "6379"});

std::string details(const std::string &flags, const std::string &epoch = "3")
{
    return list({"name", "card", "ip", "10.0.0.1", "port", "6379", "runid", "0abc", "flags", flags,
                 "config-epoch", epoch});
}

std::optional<SentinelView> view_of(const std::string &details_bytes, const std::string &address_bytes)
{
    std::string problem;
    auto view = store::read_view(decoded(details_bytes).get(), decoded(address_bytes).get(), "card", problem);
    EXPECT_EQ(problem.empty(), view.has_value()) << problem;
    return view;
}

std::string problem_of(const std::string &address_bytes)
{
    std::string problem;
    EXPECT_FALSE(
        store::read_view(decoded(details("master")).get(), decoded(address_bytes).get(), "card", problem)
            .has_value());
    return problem;
}

TEST(SentinelView, AMasterIsRead)
{
    const auto view = view_of(details("master"), here);
    ASSERT_TRUE(view.has_value());
    EXPECT_EQ(view->place, (store::HostPort{"10.0.0.1", 6379}));
    EXPECT_EQ(view->epoch, 3);
    EXPECT_EQ(view->run_id, "0abc");
    EXPECT_EQ(view->health, Health::plain);
}

TEST(SentinelView, FlagsTellHowItStands)
{
    const std::vector<std::pair<const char *, Health>> table{
        {"master", Health::plain},
        {"s_down,master", Health::doubtful},
        {"s_down,master,disconnected", Health::doubtful},
        {"", Health::doubtful},
        {"s_down,o_down,master", Health::troubled},
        {"master,failover_in_progress", Health::troubled},
        {"slave", Health::troubled},
        {"master,", Health::troubled},
        {"masterful", Health::troubled},
        {"master,something_new", Health::troubled},
    };
    for (const auto &[flags, health] : table) {
        EXPECT_EQ(view_of(details(flags), here)->health, health) << flags;
    }
}

TEST(SentinelView, ThePromotedOneComesBeforeItsDetails)
{
    const auto view =
        view_of(details("s_down,o_down,master,failover_in_progress", "4"), list({"10.0.0.2", "6379"}));
    ASSERT_TRUE(view.has_value());
    EXPECT_EQ(view->place.host, "10.0.0.2");
    EXPECT_EQ(view->epoch, 4) << "else the old one, that the others still name, would win";
    EXPECT_EQ(view->run_id, "") << "the old one's";
    EXPECT_EQ(view->health, Health::doubtful);
}

TEST(SentinelView, WhatNamesNoMasterIsAProblem)
{
    EXPECT_EQ(problem_of("*-1\r\n"), "no group 'card'");
    EXPECT_EQ(problem_of("$-1\r\n"), "no group 'card'");
    EXPECT_EQ(problem_of("-NOPERM not \x1b[31myou\r\n"), "refuses: NOPERM not ?[31myou");
    EXPECT_LT(problem_of("-ERR " + std::string(100000, 'x') + "\r\n").size(), 300U);
    const std::string no_address = "answers with something that is no address";
    for (const char *bytes : {"*0\r\n", "+OK\r\n", ":6379\r\n", "*1\r\n$8\r\n10.0.0.1\r\n",
                              "*3\r\n$1\r\na\r\n$1\r\n1\r\n$1\r\n1\r\n", "*2\r\n$8\r\n10.0.0.1\r\n:6379\r\n",
                              "*2\r\n$-1\r\n$-1\r\n", "*2\r\n*1\r\n$1\r\na\r\n$1\r\n1\r\n"}) {
        EXPECT_EQ(problem_of(bytes), no_address) << bytes;
    }
    for (const char *port : {"", "0", "-1", "65536", "99999999999999999999", "63x", " 63", "6379\n"}) {
        EXPECT_EQ(problem_of(list({"10.0.0.1", port})), no_address) << port;
    }
    for (const std::string &host : Texts{"", "a b", "a\n", std::string("a\0b", 3), std::string(256, 'a')}) {
        EXPECT_EQ(problem_of(list({host, "6379"})), no_address) << host;
    }
    std::string problem;
    EXPECT_FALSE(store::read_view(nullptr, nullptr, "card", problem).has_value());
}

TEST(SentinelView, SpoiltDetailsLeaveTheAddress)
{
    for (const std::string &bytes :
         Texts{"*-1\r\n", "*0\r\n", "+OK\r\n", "-ERR no\r\n", ":1\r\n", "*1\r\n$2\r\nip\r\n",
               "*2\r\n$-1\r\n$-1\r\n", "*2\r\n*1\r\n:1\r\n*0\r\n", list({"10.0.0.1", "ip", "6379", "port"}),
               list({"config-epoch", "-5"}), list({"config-epoch", "x"}), list({"config-epoch", ""}),
               list({"config-epoch", "99999999999999999999"}), "*2\r\n$12\r\nconfig-epoch\r\n:7\r\n"}) {
        const auto view = view_of(bytes, here);
        ASSERT_TRUE(view.has_value()) << bytes;
        EXPECT_EQ(view->place.host, "10.0.0.1");
        EXPECT_EQ(view->epoch, -1) << bytes;
        EXPECT_EQ(view->run_id, "");
        EXPECT_EQ(view->health, Health::doubtful);
    }
    const auto view =
        view_of(list({"ip", "10.0.0.1", "port", "6379", "runid", "no hexadecimal", "flags", "master"}), here);
    ASSERT_TRUE(view.has_value());
    EXPECT_EQ(view->run_id, "");
    EXPECT_EQ(view->health, Health::plain);
}

SentinelView view(const char *host, int64_t epoch, Health health = Health::plain, const char *run_id = "")
{
    return SentinelView{{host, 6379}, epoch, run_id, health, "master"};
}

store::Master chosen(const std::vector<SentinelView> &views)
{
    const auto master = store::choose_master(views, "card");
    EXPECT_TRUE(master.has_value());
    return master.value_or(store::Master());
}

TEST(MasterChoice, NobodyNamesNobody)
{
    EXPECT_FALSE(store::choose_master({}, "card").has_value());
}

TEST(MasterChoice, ItIsAPlaceToGoTo)
{
    const store::Master master = chosen({view("::1", 0)});
    EXPECT_EQ(master.place.text, "[::1]:6379 of card");
    EXPECT_EQ(master.place.host, "::1");
    EXPECT_EQ(master.place.port, 6379);
    EXPECT_EQ(master.place.path, "");
    EXPECT_EQ(master.place.group, "") << "would be searched again";
    EXPECT_TRUE(master.is_agreed);
}

TEST(MasterChoice, TheNewestConfigurationWinsAgainstAnyNumber)
{
    EXPECT_EQ(chosen({view("old", 4), view("old", 4), view("new", 5)}).place.host, "new");
    EXPECT_EQ(chosen({view("new", 5), view("old", 4), view("old", 4)}).place.host, "new");
    EXPECT_TRUE(chosen({view("old", 4), view("old", 4), view("new", 5)}).is_agreed);
    EXPECT_EQ(chosen({view("untold", -1), view("untold", -1), view("told", 0)}).place.host, "told");
}

TEST(MasterChoice, OfOneConfigurationTheMajorityWins)
{
    const store::Master master = chosen({view("one", 4), view("two", 4), view("two", 4)});
    EXPECT_EQ(master.place.host, "two");
    EXPECT_TRUE(master.is_agreed);
    const store::Master tie = chosen({view("one", 4), view("two", 4)});
    EXPECT_EQ(tie.place.host, "one");
    EXPECT_FALSE(tie.is_agreed);
}

TEST(MasterChoice, ARunThatOnlySomeKnowOfIsNotTold)
{
    const auto run_of = [](const char *first, const char *second) {
        return chosen({view("a", 1, Health::plain, first), view("a", 1, Health::plain, second)}).run_id;
    };
    EXPECT_EQ(run_of("11", "11"), "11");
    EXPECT_EQ(run_of("", "11"), "11");
    EXPECT_EQ(run_of("11", "22"), "");
    EXPECT_EQ(run_of("", ""), "");
    EXPECT_EQ(chosen({view("a", 1, Health::plain, "11"), view("b", 0, Health::plain, "22")}).run_id, "11");
}

TEST(MasterChoice, ItIsAgreedUponWhenNoneTellsOfTroubleAndHalfSeeNone)
{
    const auto settled = [](const std::vector<Health> &sights) {
        std::vector<SentinelView> views;
        views.reserve(sights.size());
        for (const Health health : sights) {
            views.push_back(view("a", 1, health));
        }
        return chosen(views).is_agreed;
    };
    EXPECT_TRUE(settled({Health::plain, Health::plain, Health::plain}));
    EXPECT_TRUE(settled({Health::doubtful, Health::plain, Health::plain}))
        << "one is cut off from the master";
    EXPECT_TRUE(settled({Health::doubtful, Health::plain}));
    EXPECT_FALSE(settled({Health::doubtful}));
    EXPECT_FALSE(settled({Health::doubtful, Health::doubtful, Health::plain}));
    EXPECT_FALSE(settled({Health::plain, Health::plain, Health::troubled})) << "it leads the fail-over";
}

} // namespace
