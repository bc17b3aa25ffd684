// What is written is read, beside the writer and after it.
#include "database.h"
#include "history_fixture.h"

namespace history
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string texts_of(const std::vector<Decision> &decisions)
{
    std::string texts;
    for (const Decision &decision : decisions) {
        texts += decision.card.position.text() + ' ' + admission::word_of(decision.outcome) + '\n';
    }
    return texts;
}

using RoundTrip = HistoryTest;

} // namespace

TEST_F(RoundTrip, EveryMemberOfADecision)
{
    const auto recorder = writer();
    Decision denied = decision_at(noon + 5ms, {2, -1, INT32_MAX});
    denied.outcome = Outcome::denied;
    denied.admitted = false;
    denied.reason = "too hot\n\xff";
    denied.complete = false;
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
    ASSERT_THAT(read.answers, SizeIs(2));
    EXPECT_EQ(read.answers[0].took, 1000ms);
    EXPECT_EQ(read.answers[1].module, "stranger");
    EXPECT_EQ(read.answers[1].ret, -7);
    EXPECT_EQ(read.answers[1].reason, "no");
    EXPECT_EQ(read.answers[1].at, noon);
    EXPECT_FALSE(read.answers[1].registered);
    EXPECT_EQ(read.answers[1].took, std::nullopt);
}

TEST_F(RoundTrip, WhatIsNotKnownStaysUnknown)
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

TEST_F(RoundTrip, FiltersNarrowDown)
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

TEST_F(RoundTrip, TheLastDecisionOfEachPosition)
{
    const auto recorder = writer();
    recorder->add(decision_at(noon, slot4));
    recorder->add(decision_at(noon, slot3));
    recorder->add(decision_at(noon + 1s, slot4));
    const std::vector<Decision> last = Reader(path()).last_decisions();
    EXPECT_EQ(texts_of(last), "1/3/0 passed\n1/4/0 passed\n");
    EXPECT_EQ(last.at(1).decided_at, noon + 1s);
}

TEST_F(RoundTrip, AnOpenCheckIsReplacedAndEndsWithItsDecision)
{
    const auto recorder = writer();
    OpenCheck check{{slot3, "fan", "0a", 3, 17, 259, 1259, true}, noon, {"m1", "m2"}, {}};
    recorder->set_open(check);
    check.waiting_for = {"m2"};
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
    EXPECT_EQ(open[1].requested_at, std::nullopt);
    recorder->add(decision_at(noon + 2s));
    EXPECT_THAT(reader.open_checks(), SizeIs(1));
    recorder->close_open(slot4);
    EXPECT_THAT(reader.open_checks(), IsEmpty());
}

TEST_F(RoundTrip, GapsThatNobodyEndedEndWhenTheRecorderWasLastAlive)
{
    auto recorder = writer();
    recorder->end_gap(recorder->begin_gap(noon, "the store was away"), noon + 1s);
    recorder->begin_gap(noon + 10s, "the store was away");
    EXPECT_EQ(Reader(path()).gaps({}, {}).at(1).until, std::nullopt);
    recorder->alive(noon + 15s);
    recorder.reset();
    recorder = writer(noon + 60s);
    EXPECT_EQ(recorder->last_alive(), noon + 15s);
    const Reader reader(path());
    const std::vector<Gap> gaps = reader.gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(2));
    EXPECT_EQ(gaps[0].until, noon + 1s);
    EXPECT_EQ(gaps[0].why, "the store was away");
    EXPECT_EQ(gaps[1].until, noon + 15s);
    EXPECT_THAT(reader.gaps(noon + 2s, noon + 10s), IsEmpty());
    EXPECT_THAT(reader.gaps(noon + 12s, noon + 13s), SizeIs(1));
}

TEST_F(RoundTrip, TheDaemonsLifeWithTheNoteOfItsLastEvent)
{
    auto recorder = writer();
    EXPECT_EQ(recorder->last_alive(), std::nullopt);
    EXPECT_EQ(recorder->life_note(), "");
    recorder->add_life({noon, true, 42, "", ""}, "first");
    EXPECT_EQ(recorder->life_note(), "first");
    recorder->add_life({noon + 1s, false, 0, "exited", "77"}, "second");
    recorder.reset();
    recorder = writer(noon + 1h);
    EXPECT_EQ(recorder->life_note(), "second");
    const Reader reader(path());
    const std::vector<LifeEvent> life = reader.life({}, {});
    ASSERT_THAT(life, SizeIs(2));
    EXPECT_TRUE(life[0].is_start);
    EXPECT_EQ(life[0].pid, 42);
    EXPECT_EQ(life[1].status, "77");
    EXPECT_THAT(reader.life(noon + 1s, {}), SizeIs(1));
    EXPECT_EQ(reader.begun_at(), noon);
    EXPECT_EQ(reader.alive_at(), std::nullopt);
}

TEST_F(RoundTrip, AnEventOfTheDaemonsLifeIsNotThereWithoutItsNote)
{
    const auto recorder = writer();
    recorder->add_life({noon, true, 42, "", ""}, "first");
    Database(path(), Database::Access::write)
        .run("CREATE TRIGGER refusing BEFORE INSERT ON notes BEGIN SELECT RAISE(ABORT, 'no'); END");
    EXPECT_THROW(recorder->add_life({noon + 1s, false, 0, "exited", "77"}, "second"), Error);
    EXPECT_EQ(recorder->life_note(), "first");
    EXPECT_THAT(Reader(path()).life({}, {}), SizeIs(1));
}

TEST_F(RoundTrip, AGapIsNeverShorterThanNothing)
{
    const auto recorder = writer();
    recorder->add_gap({noon, noon - 1h, "a clock was set back"});
    const std::vector<Gap> gaps = Reader(path()).gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].until, noon);
}

TEST_F(RoundTrip, ATimeToAnswerBelowNothingIsNone)
{
    const auto recorder = writer();
    Decision decision = decision_at(noon);
    decision.answers[0].took = -5ms;
    recorder->add(decision);
    const std::vector<Answer> answers = Reader(path()).decisions().at(0).answers;
    EXPECT_EQ(answers.at(0).took, std::nullopt);
    EXPECT_EQ(answers.at(1).took, 2000ms);
}

TEST_F(RoundTrip, WhatIsWrittenWhileAReaderIsOpenIsSeenByIt)
{
    const auto recorder = writer();
    const Reader reader(path());
    EXPECT_THAT(reader.decisions(), IsEmpty());
    recorder->add(decision_at(noon));
    EXPECT_THAT(reader.decisions(), SizeIs(1));
}

TEST_F(RoundTrip, LongTextsAreCut)
{
    const auto recorder = writer();
    Decision decision = decision_at(noon);
    decision.reason = std::string(100'000, 'x');
    recorder->add(decision);
    EXPECT_EQ(Reader(path()).decisions().at(0).reason.size(), 256U);
}

TEST_F(HistoryTest, TheModulesAreRemembered)
{
    EXPECT_EQ(writer()->modules_note(), std::nullopt);
    for (const std::vector<std::string> &modules :
         std::vector<std::vector<std::string>>{{"m1", "b c", "\xff|,", "m1"}, {"one"}, {}}) {
        writer()->set_modules_note(modules);
        EXPECT_EQ(writer()->modules_note(), modules);
    }
}

TEST_F(HistoryTest, TheEndOfTheLastGapIsKnown)
{
    const auto file = writer();
    EXPECT_EQ(file->last_gap_end(), std::nullopt);
    const int64_t lasting = file->begin_gap(noon, "the store was away");
    EXPECT_EQ(file->last_gap_end(), std::nullopt);
    file->end_gap(lasting, noon + 5s);
    EXPECT_EQ(file->last_gap_end(), noon + 5s);
    file->add_gap({noon - 10s, noon - 9s, "the recorder was not running"});
    EXPECT_EQ(file->last_gap_end(), noon + 5s);
}

} // namespace history
