// Cards as an option describes them.
#include "try/test_card.h"

#include <gtest/gtest.h>

#include "base/failure.h"

namespace cg
{

namespace
{

std::string mistake(const std::vector<std::string> &texts)
{
    try {
        (void)parse_test_cards(texts);
    } catch (const Failure &problem) {
        EXPECT_EQ(problem.status(), wrong_usage);
        return problem.what();
    }
    return "none";
}

} // namespace

TEST(TestCard, EachMemberHasAName)
{
    const TestCard card = parse_test_card(
        "name=line card  3 type=300 devid=2 slot=3 sslot=1 node-type=sfc nodeid=7 serial=00e0");
    EXPECT_EQ(card.position.text(), "2/3/1");
    EXPECT_EQ(card.name, "line card 3");
    EXPECT_EQ(card.type, 300);
    EXPECT_EQ(card.node_type, "DM_TYPE_SFC");
    EXPECT_EQ(card.node_id, 7);
    EXPECT_EQ(card.serial, "00e0");
}

TEST(TestCard, WhatIsNotNamedHasADefault)
{
    const TestCard card = parse_test_card("slot=4");
    EXPECT_EQ(card.position.text(), "1/4/0");
    EXPECT_EQ(card.name, "card 1/4/0");
    EXPECT_EQ(card.type, 200);
    EXPECT_EQ(card.node_type, "lc");
    EXPECT_EQ(card.node_id, 0);
    EXPECT_EQ(card.serial, "");
}

TEST(TestCard, ThereAreAtLeastTwo)
{
    EXPECT_EQ(parse_test_cards({}).size(), 3U);
    const std::vector<TestCard> cards = parse_test_cards({"slot=4 type=5"});
    ASSERT_EQ(cards.size(), 2U);
    EXPECT_EQ(cards[1].position.text(), "1/5/0");
    EXPECT_EQ(cards[1].type, 5);
    EXPECT_EQ(parse_test_cards({"slot=3", "slot=2"}).size(), 2U);
}

TEST(TestCard, MistakesAreNamed)
{
    EXPECT_EQ(mistake({""}), "--card: empty; as in 'name=fan type=230 slot=3'");
    EXPECT_EQ(mistake({"slot 3"}), "--card: \"slot\": no '='; as in 'name=fan type=230 slot=3'");
    EXPECT_EQ(mistake({"slot=x"}), "--card: slot=x: not a whole number from 0");
    EXPECT_EQ(mistake({"type=-1 slot=3"}), "--card: type=-1: not a whole number from 0");
    EXPECT_EQ(mistake({"slot=3", "type=5 slot=3"}),
              "--card: two cards at 1/3/0; give each its own slot, as in slot=4");
    EXPECT_EQ(mistake({"serial=xyz"}).find("--card: \"serial=xyz\": not one of name=, type=,"), 0U);
    EXPECT_EQ(mistake({"colour=red"}).find("--card: \"colour=red\": not one of"), 0U);
}

} // namespace cg
