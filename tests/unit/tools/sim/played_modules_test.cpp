// Who answers what, when, and once.
#include <gtest/gtest.h>

#include "played_modules.h"

namespace cg
{

namespace
{

using namespace std::chrono_literals;
using scenario::Manner;
using scenario::ModuleRule;

const Position third{1, 3, 0};
const Position fourth{1, 4, 0};

ModuleRule passes(const std::string &module)
{
    ModuleRule rule;
    rule.module = module;
    return rule;
}

ModuleRule denies(const std::string &module, const std::string &reason)
{
    ModuleRule rule = passes(module);
    rule.pass = false;
    rule.reason = reason;
    return rule;
}

ModuleRule is(const std::string &module, Manner manner)
{
    ModuleRule rule = passes(module);
    rule.manner = manner;
    return rule;
}

} // namespace

TEST(PlayedModules, AnswersAreOwedToEachRequestOnce)
{
    PlayedModules modules;
    ModuleRule rule = passes("m1");
    rule.after = 2s;
    EXPECT_TRUE(modules.set_rule(rule).empty());
    const auto due = modules.requested(third, 17, false);
    ASSERT_EQ(due.size(), 1U);
    EXPECT_EQ(due[0].module, "m1");
    EXPECT_EQ(due[0].after, 2s);
    EXPECT_TRUE(due[0].pass);
    EXPECT_TRUE(modules.requested(third, 17, true).empty()) << "told again";
    EXPECT_TRUE(modules.is_wanted(due[0]));
}

TEST(PlayedModules, ARequestThatIsGoneIsNotAnswered)
{
    PlayedModules modules;
    modules.set_rule(passes("m1"));
    const auto due = modules.requested(third, 17, false);
    modules.withdrawn(third);
    EXPECT_FALSE(modules.is_wanted(due.at(0)));
    const auto again = modules.requested(third, 17, false);
    EXPECT_FALSE(modules.is_wanted(due.at(0))) << "the answer to the earlier request";
    EXPECT_TRUE(modules.is_wanted(again.at(0)));
}

TEST(PlayedModules, ARequestWrittenAgainIsAnsweredAgain)
{
    PlayedModules modules;
    modules.set_rule(passes("m1"));
    const auto first = modules.requested(third, 17, false);
    const auto second = modules.requested(third, 17, false);
    EXPECT_FALSE(modules.is_wanted(first.at(0)));
    EXPECT_TRUE(modules.is_wanted(second.at(0)));
}

TEST(PlayedModules, APositionCountsMoreThanATypeAndThatMoreThanAll)
{
    PlayedModules modules;
    modules.set_rule(passes("m1"));
    ModuleRule by_type = denies("m1", "type");
    by_type.type = 210;
    ModuleRule by_position = denies("m1", "position");
    by_position.position = third;
    modules.set_rule(by_position);
    modules.set_rule(by_type);
    EXPECT_EQ(modules.requested(third, 210, false).at(0).reason, "position");
    EXPECT_EQ(modules.requested(fourth, 210, false).at(0).reason, "type");
    EXPECT_TRUE(modules.requested({1, 5, 0}, 200, false).at(0).pass);
    modules.set_rule(passes("m1"));
    EXPECT_TRUE(modules.requested(third, 210, false).at(0).pass) << "what is said of all replaces the rest";
}

TEST(PlayedModules, WhoIsOnlyToldOfSomeCardsIsSilentOnTheOthers)
{
    PlayedModules modules;
    ModuleRule rule = denies("m1", "no");
    rule.position = third;
    modules.set_rule(rule);
    EXPECT_EQ(modules.requested(third, 1, false).size(), 1U);
    EXPECT_TRUE(modules.requested(fourth, 1, false).empty());
}

TEST(PlayedModules, ASilentModuleHasHeardAndSaysNothingLater)
{
    PlayedModules modules;
    modules.set_rule(is("m1", Manner::silent));
    EXPECT_TRUE(modules.requested(third, 1, false).empty());
    EXPECT_TRUE(modules.set_rule(passes("m1")).empty());
    EXPECT_EQ(modules.requested(fourth, 1, false).size(), 1U);
}

TEST(PlayedModules, AModuleThatWasAwayAnswersWhatStandsOnReturn)
{
    PlayedModules modules;
    modules.set_rule(is("m1", Manner::away));
    EXPECT_TRUE(modules.requested(third, 1, false).empty());
    EXPECT_TRUE(modules.requested(fourth, 1, false).empty());
    modules.withdrawn(fourth);
    const auto due = modules.set_rule(passes("m1"));
    ASSERT_EQ(due.size(), 1U);
    EXPECT_EQ(due[0].position, third);
    EXPECT_TRUE(modules.is_wanted(due[0]));
}

TEST(PlayedModules, AModuleThatGoesAwayStillGivesWhatItOwes)
{
    PlayedModules modules;
    modules.set_rule(passes("m1"));
    const auto due = modules.requested(third, 1, false);
    modules.set_rule(is("m1", Manner::away));
    EXPECT_TRUE(modules.is_wanted(due.at(0)));
    EXPECT_TRUE(modules.set_rule(passes("m1")).empty()) << "it has heard of that request";
}

} // namespace cg
