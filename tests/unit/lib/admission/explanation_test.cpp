// What causes say.
#include "explanation.h"

#include <gtest/gtest.h>

using namespace admission;
using store::Cause;

namespace
{

constexpr int32_t line_card = 3;
constexpr int32_t main_board = 2;
constexpr Position slot3{1, 3, -1};

Cause by(const std::string &key)
{
    return {Cause::Kind::record, 42, key};
}

const Cause by_answer = by("p_libpub.app_cg_card_check_ack:1:3:-1:fan%20\xC3\xA4");
const Cause by_card = by("p_dev.card_info:0:1:3:-1");

TEST(ExplanationTest, AnAnswerDecides)
{
    const Explanation passed = explanation_of(true, by_answer, line_card);
    EXPECT_EQ(passed.outcome, Outcome::passed);
    EXPECT_EQ(passed.module, "fan \xC3\xA4");
    EXPECT_EQ(passed.answer, 42U);
    EXPECT_EQ(passed.position, slot3);
    EXPECT_EQ(explanation_of(false, by_answer, line_card).outcome, Outcome::denied);
    EXPECT_EQ(explanation_of(false, by_answer, line_card).module, "fan \xC3\xA4");
}

TEST(ExplanationTest, ATimerAdmits)
{
    const Explanation explanation = explanation_of(true, {Cause::Kind::timer}, line_card);
    EXPECT_EQ(explanation.outcome, Outcome::silence);
    EXPECT_EQ(explanation.module, "");
    EXPECT_EQ(explanation.position, std::nullopt);
    EXPECT_EQ(explanation_of(false, {Cause::Kind::timer}, line_card).outcome, Outcome::unseen);
}

TEST(ExplanationTest, ACardsOwnInformationAdmitsWhereNobodyIsAsked)
{
    EXPECT_EQ(explanation_of(true, by_card, line_card).outcome, Outcome::unasked);
    EXPECT_EQ(explanation_of(true, by_card, line_card).position, slot3);
    EXPECT_EQ(explanation_of(true, by_card, main_board).outcome, Outcome::exempt);
    EXPECT_EQ(explanation_of(true, by_card, main_board).position, slot3);
    EXPECT_EQ(explanation_of(false, by_card, line_card).outcome, Outcome::unseen);
    EXPECT_EQ(explanation_of(false, by_card, main_board).outcome, Outcome::unseen);
}

TEST(ExplanationTest, OtherCausesSayNothing)
{
    for (const Cause &cause :
         {Cause{}, Cause{Cause::Kind::none}, Cause{Cause::Kind::connection}, by("p_dev.dp_lib_grole"),
          by("p_dev.card_info:0:1:3"), by("p_dev.card_info:0:1:3:x"), by("p_dev.card_info:0:1:3:0:0"),
          by("p_dev.card_info:0:1:3:99999999999"), by("p_libpub.app_cg_card_check_info:0:1:3:0"),
          by("p_libpub.app_cg_card_check_ack:1:3:0"), by("p_libpub.app_cg_card_check_ack:1:3:0:m%2"),
          by("p_libpub.app_cg_card_check_ack:1:3:0:m%zz"), by("p_libpub.app_cg_card_check_ack:1:3:0:m%C3%A4"),
          by("p_libpub.app_cg_card_check_ack:1:3:0:m%"),
          Cause{Cause::Kind::timer, 42, "p_dev.card_info:0:1:3:0"}}) {
        const Explanation explanation = explanation_of(true, cause, line_card);
        EXPECT_EQ(explanation.outcome, cause.kind == Cause::Kind::timer ? Outcome::silence : Outcome::unseen)
            << cause.key;
        EXPECT_EQ(explanation.module, "");
        EXPECT_EQ(explanation.position, std::nullopt);
    }
}

TEST(ExplanationTest, TheDaemonAsksForACardsInformation)
{
    EXPECT_TRUE(is_daemons_request(by_card, slot3));
    EXPECT_FALSE(is_daemons_request(by_card, {1, 3, 0}));
    EXPECT_FALSE(is_daemons_request(by_answer, slot3));
    EXPECT_FALSE(is_daemons_request({}, slot3));
    EXPECT_FALSE(is_daemons_request({Cause::Kind::none}, slot3));
}

TEST(ExplanationTest, AnAnswerIsReadByWhoeverDeletesItForItsOwnSake)
{
    EXPECT_TRUE(is_read(by_answer, slot3, "fan \xC3\xA4"));
    EXPECT_FALSE(is_read(by_answer, slot3, "fan"));
    EXPECT_FALSE(is_read(by_answer, {1, 3, 0}, "fan \xC3\xA4"));
    EXPECT_FALSE(is_read(by_card, slot3, "fan"));
    EXPECT_FALSE(is_read({Cause::Kind::none}, slot3, "fan"));
    EXPECT_TRUE(is_read({}, slot3, "fan")) << "it may be";
}

} // namespace
