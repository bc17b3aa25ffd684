// The times in which the recorder missed something: where they begin, and what alarms hear of them.
#include "recorder_fixture.h"

namespace recorder
{

namespace
{

std::string gap_end_line(history::Time at)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(at.time_since_epoch());
    return "cg_recorder_last_gap_end_seconds " + std::to_string(seconds.count()) + "\n";
}

class GapTest : public RecorderTest
{
protected:
    GapTest()
    {
        start();
        listen();
    }
    void return_after(std::chrono::seconds time)
    {
        now_ += time;
        recorder_->store_returned(now_);
        recorder_->snapshot_done(1, now_);
    }
};

} // namespace

TEST_F(GapTest, BeginsWhenTheStoreWasLastHeard)
{
    pass(100s);
    recorder_->heard(now_);
    const history::Time frozen = now_;
    now_ += 7s;
    recorder_->store_lost(1, now_);
    return_after(20s);
    const std::vector<history::Gap> gaps = file().gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].from, frozen);
    EXPECT_EQ(gaps[0].until, frozen + 27s);
    EXPECT_EQ(gaps[0].why, "the store was away");
}

TEST_F(GapTest, ALossOfDatabase1IsOneAndThatOfAnotherIsNone)
{
    const std::string cards = R"({database="1",server="unix:a"} )";
    const std::string devices = R"({database="33",server="unix:b"} )";
    EXPECT_THAT(metrics(), HasSubstr("cg_store_connected" + cards + "1\n"));
    EXPECT_THAT(metrics(), HasSubstr("cg_store_connected" + devices + "0\n")) << "it never was there";
    recorder_->snapshot_done(33, now_);
    recorder_->store_lost(33, now_);
    EXPECT_THAT(metrics(), HasSubstr("cg_store_connected" + cards + "1\n"));
    EXPECT_THAT(metrics(), HasSubstr("cg_store_connected" + devices + "0\n"));
    EXPECT_THAT(metrics(), HasSubstr("cg_store_outages_total" + cards + "0\n"));
    EXPECT_THAT(metrics(), HasSubstr("cg_store_outages_total" + devices + "1\n"));
    EXPECT_THAT(metrics(), HasSubstr("cg_recorder_gaps_total 0\n"));
    recorder_->store_lost(1, now_);
    EXPECT_THAT(metrics(), HasSubstr("cg_store_connected" + cards + "0\n"));
    recorder_->snapshot_done(33, now_ + 1s);
    EXPECT_THAT(metrics(), HasSubstr("cg_store_connected" + devices + "1\n"));
    EXPECT_EQ(file().gaps({}, {}).at(0).until, std::nullopt) << "it lasts";
    return_after(1s);
    EXPECT_THAT(metrics(), HasSubstr("cg_store_connected" + cards + "1\n"));
    recorder_->store_lost(1, now_);
    recorder_->store_lost(33, now_);
    EXPECT_THAT(metrics(), HasSubstr("cg_store_outages_total" + cards + "2\n"));
    EXPECT_THAT(metrics(), HasSubstr("cg_store_outages_total" + devices + "2\n"));
    EXPECT_THAT(metrics(), HasSubstr("cg_recorder_gaps_total 2\n"));
}

TEST_F(GapTest, ARecordOfDatabase1ThatCannotBeReadIsOne)
{
    recorder_->could_not_read(33, "im_card_power_onoff:0", "rubbish", now_);
    EXPECT_THAT(file().gaps({}, {}), IsEmpty());
    recorder_->could_not_read(1, "card_info:0", "rubbish", now_);
    EXPECT_THAT(file().gaps({}, {}), SizeIs(1));
    EXPECT_THAT(log_,
                ElementsAre("cannot decode the record im_card_power_onoff:0: rubbish",
                            "cannot decode the record card_info:0: rubbish; a decision may be missing"));
}

TEST_F(GapTest, BeginsNoEarlierThanTheLastOneEnded)
{
    recorder_->heard(now_);
    now_ += 7s;
    recorder_->store_lost(1, now_);
    return_after(1s);
    const history::Time back = now_;
    now_ += 3s; // without a word
    recorder_->store_lost(1, now_);
    return_after(1s);
    const std::vector<history::Gap> gaps = file().gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(2));
    EXPECT_EQ(gaps[0].until, back);
    EXPECT_EQ(gaps[1].from, back);
}

TEST_F(GapTest, BeginsWhenItIsNoticedWhereNothingIsKnown)
{
    pass(100s);
    recorder_->store_lost(1, now_);
    EXPECT_EQ(file().gaps({}, {}).at(0).from, now_);
}

TEST_F(GapTest, AClockThatWasSetBackMakesNoneInTheFuture)
{
    recorder_->heard(now_ + 3600s);
    recorder_->store_lost(1, now_);
    EXPECT_EQ(file().gaps({}, {}).at(0).from, now_);
}

TEST_F(GapTest, ARecorderThatIsKilledWhileTheStoreHangsWasAliveUntilTheLastWord)
{
    recorder_->heard(now_);
    const history::Time frozen = now_;
    pass(40s);
    kill();
    now_ += 5s;
    start();
    listen();
    const std::vector<history::Gap> gaps = file().gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].from, frozen);
    EXPECT_EQ(gaps[0].until, now_);
}

TEST_F(GapTest, ItsEndIsShownForAlarms)
{
    EXPECT_THAT(metrics(), HasSubstr("cg_recorder_last_gap_end_seconds 0\n"));
    recorder_->store_lost(1, now_);
    EXPECT_THAT(metrics(), HasSubstr("cg_recorder_last_gap_end_seconds 0\n")); // it lasts
    return_after(10s);
    EXPECT_THAT(metrics(), HasSubstr(gap_end_line(now_)));
    now_ += 10s;
    recorder_->could_not_read(1, "card_info:0", "rubbish", now_);
    EXPECT_THAT(metrics(), HasSubstr(gap_end_line(now_)));
}

// Its counter begins with 1 each time, which is no increase.
TEST_F(GapTest, EachRestartEndsOne)
{
    for (int i = 0; i < 2; ++i) {
        pass(1s);
        kill();
        now_ += 600s;
        start();
        EXPECT_THAT(metrics(),
                    HasSubstr(i == 0 ? "cg_recorder_last_gap_end_seconds 0\n" : gap_end_line(noon + 601s)));
        listen();
        EXPECT_THAT(metrics(), HasSubstr(gap_end_line(now_)));
        EXPECT_THAT(metrics(), HasSubstr("cg_recorder_gaps_total 1\n"));
    }
}

TEST_F(GapTest, DecisionsThatWereGivenUpMakeOne)
{
    history::Database blocked(folder_.path("h"), history::Database::Access::write);
    blocked.run("CREATE TRIGGER refusing BEFORE INSERT ON gaps BEGIN SELECT RAISE(ABORT, 'no'); END");
    for (std::size_t i = 0; i <= most_waiting; ++i) {
        recorder_->could_not_read(1, "card_info:0", "rubbish", now_);
    }
    EXPECT_THAT(log_, testing::Contains(HasSubstr("decisions are lost")));
    EXPECT_THAT(metrics(), HasSubstr("cg_recorder_gaps_total " + std::to_string(most_waiting + 2) + "\n"));
}

} // namespace recorder
