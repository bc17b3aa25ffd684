// What the recorder resumes from its file, also where that opens late.
#include "recorder_fixture.h"

namespace recorder
{

namespace
{

class ResumeTest : public RecorderTest
{
};

} // namespace

TEST_F(ResumeTest, TheCheckOfAnotherDaemonIsAnotherCheck)
{
    start();
    listen();
    plug(4);
    ask(4);
    now_ += 10s;
    answer(4, "m1");
    pass(5s);
    recorder_->end(now_);
    kill();
    restart_daemon();
    now_ += 12s;
    start();
    plug(4, true);
    ask(4, true);
    listen();
    now_ += 10s;
    answer(4, "m2");
    answer(4, "m1");
    decide(4, true);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::unseen, Outcome::passed));
    const std::vector<history::Decision> decisions = file().decisions();
    EXPECT_EQ(decisions.at(0).requested_at, noon);
    EXPECT_THAT(decisions.at(0).answers, SizeIs(1));
    EXPECT_EQ(decisions.at(1).requested_at, std::nullopt);
    EXPECT_EQ(decisions.at(1).decider, "m1");
    EXPECT_THAT(decisions.at(1).answers, SizeIs(2));
}

TEST_F(ResumeTest, TheSameRequestIsTheSameCheckWheneverItsBeginningWasSeen)
{
    start();
    plug(4, true);
    ask(4, true);
    listen();
    pass(15s);
    kill();
    now_ += 1s;
    start();
    plug(4, true);
    ask(4, true);
    listen();
    answer(4, "m1");
    answer(4, "m2");
    decide(4, true);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::passed));
    EXPECT_EQ(file().decisions().at(0).requested_at, std::nullopt);
}

TEST_F(ResumeTest, WhatWasDecidedIsNotOpenAnyMoreWhileItsRequestStands)
{
    start();
    listen();
    plug(4);
    ask(4);
    now_ += 1s;
    answer(4, "m2", 1);
    result(4, false);
    recorder_->flush(now_);
    EXPECT_THAT(file().open_checks(), IsEmpty());
    kill();
    now_ += 1s;
    start();
    plug(4, true);
    result(4, false, true);
    listen();
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied));
}

TEST_F(ResumeTest, OnlyTheFirstCheckIsCompletedByTheFileThatOpensLate)
{
    live_before();
    {
        const FullDisk full;
        start();
        plug(4, true);
        ask(4, true);
        answer(4, "m1", 0, true); // it is remembered, and stands
        listen();
        read_answer(4, "m1");
        pass(1s);
        answer(4, "m2");
        decide(4, true);
        now_ += 100s;
        recorder_->store_lost(1, now_);
        now_ += 5s;
        recorder_->store_returned(now_);
        plug(4, true);
        ask(4, true);
        recorder_->snapshot_done(1, now_);
        now_ += 10s;
        deny(4);
        pass(1s);
    }
    pass(1s);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::passed, Outcome::denied));
    const history::Decision first = file().decisions().at(1);
    EXPECT_EQ(first.requested_at, noon);
    ASSERT_THAT(first.answers, SizeIs(2));
    EXPECT_EQ(first.answers[0].module, "m1");
    EXPECT_EQ(first.answers[1].module, "m2");
    const history::Decision second = file().decisions().at(2);
    EXPECT_EQ(second.requested_at, std::nullopt);
    ASSERT_THAT(second.answers, SizeIs(1));
    EXPECT_EQ(second.answers[0].module, "m2");
}

TEST_F(ResumeTest, WhoHadAnsweredWasNotSilentWhenTheFileOpensLate)
{
    live_before();
    {
        const FullDisk full;
        start();
        plug(4, true);
        ask(4, true);
        listen();
        pass(10s);
        restart_daemon();
        ask(4);
        pass(1s);
        answer(4, "m1");
        answer(4, "m2");
        decide(4, true);
    }
    pass(1s);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::withdrawn, Outcome::passed));
    EXPECT_EQ(file().decisions().at(1).requested_at, noon);
    EXPECT_THAT(file().decisions().at(1).silent, ElementsAre("m2"));
}

TEST_F(ResumeTest, TheNextDaemonCutsACheckOffThatWasFound)
{
    live_before();
    restart_daemon();
    start();
    plug(4, true);
    ask(4, true);
    listen();
    now_ += 10s;
    answer(4, "m1");
    pass(5s);
    restart_daemon();
    ask(4);
    pass(1s);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::unseen, Outcome::withdrawn));
    EXPECT_EQ(file().decisions().at(2).reason, admission::daemon_restarted);
}

TEST_F(ResumeTest, AFileOfVersion2IsResumed)
{
    {
        std::ifstream dump(HISTORY_VERSION_2);
        const std::string sql{std::istreambuf_iterator<char>(dump), {}};
        history::Database(folder_.path("h"), history::Database::Access::write).run(sql.c_str());
    }
    const std::size_t before = 11;
    const auto find_open = [this](int slot, const admission::Write &write) {
        deliver("card_info",
                {{"index", {{"devid", 1}, {"slotid", slot}}},
                 {"static_info", {{"node_type", 3}}},
                 {"name", "card-" + std::to_string(slot)},
                 {"card_tipc_nodeid", 1000 + slot},
                 {"is_online", true}},
                true);
        deliver("app_cg_card_check_info", {{"index", {{"devid", 1}, {"slotid", slot}}}}, true, write);
    };
    now_ = noon + 95'300'000s;
    start();
    find_open(10, {5, {}});                 // by the daemon of then, which does not say who it is
    find_open(7, daemon_write(by_card(7))); // by one that was started since
    listen();
    pass(1s);
    const std::vector<history::OpenCheck> open = file().open_checks();
    ASSERT_THAT(open, SizeIs(2));
    EXPECT_EQ(open[0].card.position, (history::Position{1, 7, 0}));
    EXPECT_EQ(open[0].requested_at, std::nullopt);
    EXPECT_EQ(open[1].card.position, (history::Position{1, 10, 0}));
    EXPECT_TRUE(open[1].requested_at);
    EXPECT_THAT(open[1].waiting_for, ElementsAre("m1"));
    EXPECT_THAT(open[1].answers, SizeIs(1));
    const std::vector<Outcome> all = outcomes();
    ASSERT_THAT(all, SizeIs(before + 5));
    EXPECT_EQ(std::count(all.begin() + before, all.end(), Outcome::unseen), 5) << "those that do not stand";
}

TEST_F(ResumeTest, ANewFileTellsThatTheStoreWasAwayAtFirst)
{
    start();
    pass(2s);
    pass(3598s);
    listen();
    pass(1s);
    const std::vector<history::Gap> gaps = file().gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].from, noon);
    EXPECT_EQ(gaps[0].until, noon + 3600s);
    EXPECT_EQ(gaps[0].why, "the store was away");
    EXPECT_THAT(metrics(), HasSubstr("cg_recorder_gaps_total 1\n"));
}

TEST_F(ResumeTest, AStoreThatIsThereAtOnceLeavesNoGapInANewFile)
{
    start();
    now_ += 1s;
    listen();
    pass(1s);
    EXPECT_THAT(file().gaps({}, {}), IsEmpty());
}

} // namespace recorder
