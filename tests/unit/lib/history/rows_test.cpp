// What is written is read: decisions with their answers, and open checks.
#include "admission/words.h"
#include "database.h"
#include "history_fixture.h"

namespace history
{

namespace
{

using RowsTest = HistoryTest;

std::string texts_of(const std::vector<Decision> &decisions)
{
    std::string texts;
    for (const Decision &decision : decisions) {
        texts += decision.card.position.text() + ' ' + admission::word_of(decision.outcome) + '\n';
    }
    return texts;
}

} // namespace

TEST_F(RowsTest, EveryMemberOfADecision)
{
    const auto recorder = writer();
    Decision denied = decision_at(noon + 5ms, {2, -1, INT32_MAX});
    denied.outcome = Outcome::denied;
    denied.admitted = false;
    denied.reason = "too hot\n\xff";
    denied.complete = false;
    denied.request = {6, {"daemon", 5, {store::Cause::Kind::record, 4, "p_dev.card_info:0:1:3:0"}}};
    denied.result = {8, {"daemon", 7, {store::Cause::Kind::timer}}};
    denied.answers.at(1) = {"stranger", -7, "no", noon, false, std::nullopt};
    recorder->add(denied);
    const Decision read = Reader(path()).decisions().at(0);
    EXPECT_EQ(read.card.position, denied.card.position);
    EXPECT_EQ(read.card.name, "fan");
    EXPECT_EQ(read.card.serial, "0a0b");
    EXPECT_EQ(read.card.node_type, 3);
    EXPECT_EQ(read.card.config_dev_type, 17);
    EXPECT_EQ(read.card.nodeid, 259);
    EXPECT_EQ(read.card.tipc_nodeid, 1259);
    EXPECT_TRUE(read.card.online);
    EXPECT_EQ(read.outcome, Outcome::denied);
    EXPECT_EQ(read.admitted, false);
    EXPECT_EQ(read.requested_at, noon - 2s + 5ms);
    EXPECT_EQ(read.decided_at, noon + 5ms);
    EXPECT_EQ(read.decider, "m2");
    EXPECT_EQ(read.reason, "too hot\n\xff");
    EXPECT_EQ(read.role, 1);
    EXPECT_FALSE(read.complete);
    EXPECT_EQ(read.request.origin, denied.request.origin);
    EXPECT_EQ(read.result.origin, denied.result.origin);
    ASSERT_THAT(read.answers, SizeIs(2));
    EXPECT_EQ(read.answers[0].took, 1000ms);
    EXPECT_EQ(read.answers[1].module, "stranger");
    EXPECT_EQ(read.answers[1].ret, -7);
    EXPECT_EQ(read.answers[1].reason, "no");
    EXPECT_EQ(read.answers[1].at, noon);
    EXPECT_FALSE(read.answers[1].registered);
    EXPECT_EQ(read.answers[1].took, std::nullopt);
}

TEST_F(RowsTest, WhatIsNotKnownStaysUnknown)
{
    const auto recorder = writer();
    Decision silence;
    silence.card.position = slot3;
    silence.outcome = Outcome::silence;
    silence.decided_at = noon;
    silence.silent = {"m3", "m1"};
    recorder->add(silence);
    const Decision read = Reader(path()).decisions().at(0);
    EXPECT_EQ(read.admitted, std::nullopt);
    EXPECT_EQ(read.requested_at, std::nullopt);
    EXPECT_EQ(read.role, std::nullopt);
    EXPECT_THAT(read.silent, ElementsAre("m3", "m1"));
    EXPECT_THAT(read.answers, IsEmpty());
    EXPECT_FALSE(read.card.online);
}

TEST_F(RowsTest, FiltersNarrowDown)
{
    const auto recorder = writer();
    recorder->add(decision_at(noon));
    Decision silence = decision_at(noon + 1s, slot4);
    silence.outcome = Outcome::silence;
    silence.answers.clear();
    silence.silent = {"m9"};
    recorder->add(silence);
    recorder->add(decision_at(noon + 2s));
    const Reader reader(path());
    EXPECT_EQ(texts_of(reader.decisions()), "1/3/0 passed\n1/4/0 silence\n1/3/0 passed\n");
    EXPECT_EQ(texts_of(reader.decisions({.position = slot4})), "1/4/0 silence\n");
    EXPECT_EQ(texts_of(reader.decisions({.from = noon + 1s})), "1/4/0 silence\n1/3/0 passed\n");
    EXPECT_EQ(texts_of(reader.decisions({.until = noon + 1s})), "1/3/0 passed\n");
    EXPECT_EQ(texts_of(reader.decisions({.outcome = Outcome::silence})), "1/4/0 silence\n");
    EXPECT_EQ(texts_of(reader.decisions({.module = "m9"})), "1/4/0 silence\n");
    EXPECT_EQ(texts_of(reader.decisions({.module = "m1", .newest = 1})), "1/3/0 passed\n");
    EXPECT_EQ(texts_of(reader.decisions({.newest = 2})), "1/4/0 silence\n1/3/0 passed\n");
    EXPECT_EQ(texts_of(reader.decisions({.module = "m"})), "");
}

TEST_F(RowsTest, TheLastDecisionOfEachPosition)
{
    const auto recorder = writer();
    recorder->add(decision_at(noon, slot4));
    recorder->add(decision_at(noon, slot3));
    recorder->add(decision_at(noon + 1s, slot4));
    const std::vector<Decision> last = Reader(path()).last_decisions();
    EXPECT_EQ(texts_of(last), "1/3/0 passed\n1/4/0 passed\n");
    EXPECT_EQ(last.at(1).decided_at, noon + 1s);
}

TEST_F(RowsTest, AnOpenCheckIsReplacedAndEndsWithItsDecision)
{
    const auto recorder = writer();
    OpenCheck check{{slot3, "fan", "0a", 3, 17, 259, 1259, true}, noon, {"m1", "m2"}, {}};
    recorder->set_open(check);
    check.waiting_for = {"m2"};
    check.request = {8, {"daemon", 7, {store::Cause::Kind::record, 3, "p_dev.card_info:0:1:3:0"}}};
    check.answers = {{"m1", 0, "", noon + 1s, true, 1000ms}};
    recorder->set_open(check);
    recorder->set_open({{slot4, "", "", 0, 0, 0, 0, false}, std::nullopt, {"m1"}, {}});
    const Reader reader(path());
    const std::vector<OpenCheck> open = reader.open_checks();
    ASSERT_THAT(open, SizeIs(2));
    EXPECT_EQ(open[0].card.name, "fan");
    EXPECT_EQ(open[0].requested_at, noon);
    EXPECT_THAT(open[0].waiting_for, ElementsAre("m2"));
    ASSERT_THAT(open[0].answers, SizeIs(1));
    EXPECT_EQ(open[0].answers[0].module, "m1");
    EXPECT_EQ(open[0].request.origin, check.request.origin);
    EXPECT_EQ(open[1].request.origin, store::Origin{});
    EXPECT_EQ(open[1].requested_at, std::nullopt);
    recorder->add(decision_at(noon + 2s));
    EXPECT_THAT(reader.open_checks(), SizeIs(1));
    recorder->close_open(slot4);
    EXPECT_THAT(reader.open_checks(), IsEmpty());
}

TEST_F(RowsTest, ATimeToAnswerBelowNothingIsNone)
{
    const auto recorder = writer();
    Decision decision = decision_at(noon);
    decision.answers[0].took = -5ms;
    recorder->add(decision);
    const std::vector<Answer> answers = Reader(path()).decisions().at(0).answers;
    EXPECT_EQ(answers.at(0).took, std::nullopt);
    EXPECT_EQ(answers.at(1).took, 2000ms);
}

TEST_F(RowsTest, LongTextsAreCut)
{
    const auto recorder = writer();
    Decision decision = decision_at(noon);
    decision.reason = std::string(100'000, 'x');
    recorder->add(decision);
    EXPECT_EQ(Reader(path()).decisions().at(0).reason.size(), 256U);
}

TEST_F(RowsTest, WhichWriteBeganACheckAndWhichOneEndedIt)
{
    const auto recorder = writer();
    const store::Origin origin{"daemon", 7, {store::Cause::Kind::record, 42, "p_dev.card_info:0:1:3:0"}};
    OpenCheck check{{slot3, "fan", "0a", 3, 17, 259, 1259, true}, noon, {"m1"}, {}};
    check.request = {42, origin};
    recorder->set_open(check);
    Decision decision = decision_at(noon, slot4);
    decision.result = {43, {"daemon", 8, {store::Cause::Kind::timer, 0, ""}}};
    recorder->add(decision);
    decision.result = {};
    recorder->add(decision);
    const Reader reader(path());
    EXPECT_EQ(reader.open_checks().at(0).request.origin, origin);
    EXPECT_EQ(reader.open_checks().at(0).request.revision, 0U) << "it is of no use in another set of data";
    EXPECT_EQ(reader.decisions().at(0).result.origin.cause.kind, store::Cause::Kind::timer);
    EXPECT_EQ(reader.decisions().at(0).result.origin.number, 8U);
    EXPECT_EQ(reader.decisions().at(1).result.origin, store::Origin{});
}

} // namespace history
