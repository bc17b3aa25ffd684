// The recorder from the store's changes to its file, also while that cannot be opened.
#include "recorder_fixture.h"

namespace recorder
{

TEST_F(RecorderTest, GoesOnBehindItsPast)
{
    live_before();
    start();
    const history::Time started = now_;
    plug(3, true);
    plug(4, true);
    ask(4, true);
    now_ += 1s;
    listen();
    answer(4, "m2");
    decide(4, true);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::passed));
    const history::Decision passed = file().decisions().at(1);
    EXPECT_EQ(passed.requested_at, noon);
    EXPECT_THAT(passed.answers, SizeIs(2));
    const std::vector<history::Gap> gaps = file().gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].why, away);
    EXPECT_EQ(gaps[0].until, started + 1s);
    EXPECT_THAT(file().life({}, {}), SizeIs(1));
}

TEST_F(RecorderTest, WhatTheFileHoldsIsResumedWhenItCanBeOpened)
{
    live_before();
    history::Time listening{};
    {
        const FullDisk full;
        start();
        EXPECT_THAT(log_, testing::Contains(HasSubstr("retrying; kept in memory")));
        plug(4, true);
        ask(4, true);
        now_ += 1s;
        listening = now_;
        listen();
        pass(10s);
        answer(4, "m2");
        decide(4, true); // when it began is in the file
        plug(5);
        ask(5);
        pass(10s);
    }
    now_ += 300s;
    recorder_->tick(now_);
    EXPECT_THAT(log_, testing::Contains("the history is written again"));
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::passed));
    const history::Decision passed = file().decisions().at(1);
    EXPECT_EQ(passed.requested_at, noon);
    ASSERT_THAT(passed.answers, SizeIs(2));
    EXPECT_EQ(passed.answers[0].module, "m1");
    EXPECT_FALSE(passed.complete);
    EXPECT_EQ(recorder_->tracker().find({1, 4, 0})->state, admission::State::passed); // as it was heard
    EXPECT_EQ(recorder_->tracker().find({1, 3, 0})->last->outcome, Outcome::denied);  // as it is remembered
    const std::vector<history::Gap> gaps = file().gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].why, away);
    EXPECT_EQ(gaps[0].until, listening);
    EXPECT_LE(gaps[0].from, killed_at_);
    const std::vector<history::OpenCheck> open = file().open_checks();
    ASSERT_THAT(open, SizeIs(1));
    EXPECT_EQ(open[0].card.position, (history::Position{1, 5, 0}));
    EXPECT_THAT(metrics(), HasSubstr("cg_recorder_gaps_total 1\n"));
}

TEST_F(RecorderTest, ACheckThatStandsMeanwhileIsJoinedWithItsPast)
{
    live_before();
    {
        const FullDisk full;
        start();
        plug(4, true);
        ask(4, true);
        listen();
        pass(5s);
    }
    pass(1s);
    ASSERT_THAT(file().open_checks(), SizeIs(1));
    EXPECT_EQ(file().open_checks()[0].requested_at, noon);
    answer(4, "m2");
    decide(4, true);
    const std::vector<history::Decision> decisions = file().decisions();
    ASSERT_THAT(decisions, SizeIs(2));
    EXPECT_EQ(decisions[1].requested_at, noon);
    EXPECT_THAT(decisions[1].answers, SizeIs(2));
    EXPECT_FALSE(decisions[1].complete);
}

TEST_F(RecorderTest, ARememberedCheckThatIsGoneIsOlderThanWhatWasHeardMeanwhile)
{
    live_before();
    {
        const FullDisk full;
        start();
        plug(4, true);
        listen();
        now_ += 30s;
        ask(4);
        deny(4);
        pass(1s);
    }
    pass(1s);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::unseen, Outcome::denied));
    EXPECT_EQ(recorder_->tracker().find({1, 4, 0})->last->outcome, Outcome::denied);
    kill();
    start();
    EXPECT_EQ(recorder_->tracker().find({1, 4, 0})->last->outcome,
              Outcome::denied); // the last one in the file
    EXPECT_THAT(file().open_checks(), IsEmpty());
}

TEST_F(RecorderTest, TheServiceLogIsWrittenOnceWheneverTheFileOpens)
{
    live_before();
    note_service("1700049630000 exit exited 77");
    note_service("1700049631000 start 43");
    {
        const FullDisk full;
        start();
        listen();
        pass(1s);
    }
    note_service("1700049690000 exit killed KILL");
    pass(1s);
    pass(1s);
    kill();
    start();
    pass(1s);
    std::vector<std::string> events;
    for (const history::LifeEvent &event : file().life({}, {})) {
        events.push_back(event.is_start ? std::to_string(event.pid) : event.status);
    }
    EXPECT_THAT(events, ElementsAre("42", "77", "43", "KILL"));
}

TEST_F(RecorderTest, OfMoreLinesThanAreKeptTheNewestAreWritten)
{
    live_before();
    const std::size_t many = most_waiting + 5;
    for (std::size_t i = 1; i <= many; ++i) {
        note_service("1700049700000 start " + std::to_string(i));
    }
    start();
    pass(1s);
    const auto pids = [this] {
        std::vector<int64_t> all;
        for (const history::LifeEvent &event : file().life({}, {})) {
            all.push_back(event.pid);
        }
        return all;
    };
    std::vector<int64_t> noted = pids(); // which keeps as many
    ASSERT_EQ(noted.size(), most_waiting);
    EXPECT_EQ(noted.front(), 6);
    EXPECT_EQ(noted.back(), many);
    kill();
    note_service("1700049800000 start 77");
    start();
    pass(1s);
    noted.erase(noted.begin());
    noted.push_back(77);
    EXPECT_TRUE(pids() == noted) << "there are more lines than are kept, and still it goes on";
}

TEST_F(RecorderTest, AnOverlongLineOfTheServiceLogIsReportedOnce)
{
    live_before();
    start();
    note_service(std::string(std::size_t{600} << 10U, 'x'));
    note_service("1700049690000 exit killed KILL");
    for (int i = 0; i < 5; ++i) {
        pass(1s);
    }
    EXPECT_EQ(std::count_if(log_.begin(), log_.end(),
                            [](const std::string &text) { return text.find("overlong") != text.npos; }),
              1);
    EXPECT_EQ(file().life({}, {}).back().status, "KILL");
}

TEST_F(RecorderTest, ADaemonThatEndedWhileTheRecorderWasAwayIsNotTakenForTheSame)
{
    live_before();
    restart_daemon();
    start();
    plug(4, true);
    ask(4, true);
    listen();
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::unseen));
    EXPECT_EQ(recorder_->tracker().find({1, 4, 0})->requested_at, std::nullopt);
    answer(4, "m1");
    answer(4, "m2");
    decide(4, true);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::unseen, Outcome::passed));
}

TEST_F(RecorderTest, WhatWasDecidedWhileTheRecorderWasAwayIsReadFromTheStore)
{
    live_before();
    cause_[4] = {store::Cause::Kind::timer};
    start();
    plug(3, true);
    result(3, false, true);
    plug(4, true);
    result(4, true, true);
    listen();
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::silence));
    const history::Decision decision = file().decisions().at(1);
    EXPECT_EQ(decision.requested_at, noon);
    EXPECT_THAT(decision.silent, ElementsAre("m2"));
    EXPECT_FALSE(decision.complete);
    const admission::TrackedCard &denied = *recorder_->tracker().find({1, 3, 0});
    EXPECT_EQ(denied.state, admission::State::denied);
    EXPECT_EQ(denied.decider, "m2");
    EXPECT_EQ(denied.since, noon) << "by the decision in the file";
}

TEST_F(RecorderTest, ARestartOfTheDaemonCutsAChecksRowOff)
{
    start();
    listen();
    plug(4);
    ask(4);
    now_ += 10s;
    answer(4, "m1");
    deliver("app_cg_card_check_info", {{"index", {{"devid", 1}, {"slotid", 4}}}}, false,
            {99, {"somebody", 1, {store::Cause::Kind::none}}}); // writes it again
    EXPECT_THAT(outcomes(), IsEmpty());
    restart_daemon();
    pass(6s);
    EXPECT_THAT(outcomes(), IsEmpty());
    ask(4);
    pass(1s);
    recorder_->flush(now_);
    const std::vector<history::Decision> decisions = file().decisions();
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::withdrawn);
    EXPECT_EQ(decisions[0].reason, admission::daemon_restarted);
    EXPECT_EQ(decisions[0].requested_at, noon);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2"));
    EXPECT_THAT(decisions[0].answers, SizeIs(1));
    ASSERT_THAT(file().open_checks(), SizeIs(1));
    EXPECT_EQ(file().open_checks()[0].requested_at, noon + 16s);
    EXPECT_THAT(metrics(), HasSubstr("cg_decisions_total{decider=\"\",outcome=\"withdrawn\"} 1\n"));
}

TEST_F(RecorderTest, AFileThatIsMovedAsideHasWhatStandsInTheNextOne)
{
    live_before();
    start();
    plug(4, true);
    ask(4, true);
    listen();
    ASSERT_THAT(file().open_checks(), SizeIs(1));
    // Else the log would heal it when the file is closed.
    history::Database(folder_.path("h"), history::Database::Access::write)
        .run("PRAGMA wal_checkpoint(TRUNCATE)");
    std::ofstream(folder_.path("h")) << std::string(50'000, 'x');
    pass(40s);
    pass(1s);
    pass(1s);
    EXPECT_THAT(log_, testing::Contains(HasSubstr("it was moved to")));
    ASSERT_THAT(file().open_checks(), SizeIs(1));
    EXPECT_EQ(file().open_checks()[0].requested_at, noon);
    kill();
    start();
    EXPECT_THAT(file().life({}, {}), SizeIs(1)) << "as in any new file, and once";
}

TEST_F(RecorderTest, ThereIsNoHeartbeatWhileSomethingWaitsToBeWritten)
{
    start();
    listen();
    const std::optional<history::Time> alive = file().alive_at();
    history::Database blocked(folder_.path("h"), history::Database::Access::write);
    blocked.run("CREATE TRIGGER refusing BEFORE INSERT ON gaps BEGIN SELECT RAISE(ABORT, 'no'); END");
    recorder_->could_not_read(1, "card_info:0", "rubbish", now_);
    pass(60s);
    EXPECT_EQ(file().alive_at(), alive);
    blocked.run("DROP TRIGGER refusing");
    pass(1s);
    EXPECT_EQ(file().alive_at(), now_);
    EXPECT_THAT(file().gaps({}, {}), SizeIs(1));
}

TEST_F(RecorderTest, ADeniedCardStaysDeniedWhenItGoesOffline)
{
    start();
    listen();
    plug(3);
    ask(3);
    deny(3);
    pass(1s);
    EXPECT_THAT(metrics(), HasSubstr("cg_cards{state=\"denied\"} 1\n"));
    deliver("card_info",
            {{"index", {{"devid", 1}, {"slotid", 3}}},
             {"static_info", {{"node_type", 3}}},
             {"name", "lc-3"},
             {"card_tipc_nodeid", 1003},
             {"is_online", false}},
            false);
    pass(1s);
    EXPECT_THAT(metrics(), HasSubstr("cg_cards{state=\"denied\"} 1\n"));
    EXPECT_THAT(metrics(), HasSubstr("cg_cards{state=\"offline\"} 0\n"));
}

} // namespace recorder
