// When a module warns that the daemon's 300 seconds run out, told in virtual time.
#include "module_fixture.h"

#include "recording_platform.h"
#include "still_loop.h"

namespace kit_test
{

namespace
{

using namespace std::chrono_literals;

constexpr const char *early = "4 1/3/0: no verdict for 240 s; ";
constexpr const char *late = "4 1/3/0: no verdict for 300 s; ";

class Patience : public ModuleTest
{
protected:
    // A module that promises a verdict and keeps the handle.
    Examine keeps()
    {
        return [this](app_cg_kit_check &check) {
            kept_ = check.shared_from_this();
            check.hold();
            return APP_CG_KIT_LATER;
        };
    }

    std::shared_ptr<app_cg_kit_check> kept_;
};

} // namespace

TEST_F(Patience, ASilentModuleWarnsBeforeTheTimeIsOverAndThen)
{
    serve(keeps(), [this] {
        ask(3);
        recording::advance(239s);
        EXPECT_EQ(said("no verdict for"), 0U) << log();
        recording::advance(1s);
        EXPECT_EQ(said(early), 1U) << log();
        recording::advance(59s);
        EXPECT_EQ(said(late), 0U) << log();
        recording::advance(1s);
        EXPECT_EQ(said(late), 1U) << log();
        recording::advance(1h);
        EXPECT_EQ(said("no verdict for"), 2U) << "once each";
    });
    kept_->release();
}

// Who asks again waits 300 seconds from then on: a daemon that was started afresh.
TEST_F(Patience, ARepeatedRequestBeginsItsTimeAnew)
{
    serve(keeps(), [this] {
        ask(3);
        recording::advance(239s);
        ask(3);
        recording::advance(239s);
        EXPECT_EQ(said("no verdict for"), 0U) << log();
        recording::advance(1s);
        EXPECT_EQ(said(early), 1U) << log();
        recording::advance(59s);
        EXPECT_EQ(said(late), 0U) << log();
        recording::advance(1s);
        EXPECT_EQ(said(late), 1U) << log();
    });
    kept_->release();
}

TEST_F(Patience, ARequestThatIsRepeatedAfterTheWarningIsWarnedOfAgain)
{
    serve(keeps(), [this] {
        ask(3);
        recording::advance(250s);
        ask(3);
        recording::advance(239s);
        EXPECT_EQ(said("no verdict for"), 1U) << "the first one's end is nobody's: " << log();
        recording::advance(61s);
        EXPECT_EQ(said(early), 2U) << log();
        EXPECT_EQ(said(late), 1U) << log();
    });
    kept_->release();
}

TEST_F(Patience, ARepeatedRequestForACardThatIsStillToBeExaminedBeginsItsTimeAnewToo)
{
    serve([](app_cg_kit_check &) { return APP_CG_KIT_AGAIN; },
          [this] {
              ask(3);
              recording::advance(200s);
              ask(3);
              recording::advance(239s);
              EXPECT_EQ(said("no verdict for"), 0U) << log();
              recording::advance(1s);
              EXPECT_EQ(said(early), 1U) << log();
          });
}

TEST_F(Patience, EndsWithTheVerdictAndWithTheRequest)
{
    serve(keeps(), [this] {
        ask(3);
        EXPECT_EQ(kept_->answer(true, ""), 0);
        EXPECT_TRUE(still_loop::turn());
        EXPECT_EQ(recording::armed_timers(), std::vector<std::string>{});
        kept_->release();
        ask(3);
        withdraw(3);
        EXPECT_EQ(recording::armed_timers(), std::vector<std::string>{});
        recording::advance(1h);
        EXPECT_EQ(said("no verdict for"), 0U) << log();
    });
    kept_->release();
}

TEST_F(Patience, OneCardsWarningIsNotAnothers)
{
    serve(keeps(), [this] {
        ask(4);
        EXPECT_EQ(kept_->answer(true, ""), 0);
        kept_->release();
        recording::advance(100s);
        ask(3);
        EXPECT_TRUE(still_loop::turn());
        recording::advance(239s);
        EXPECT_EQ(said("no verdict for"), 0U) << log();
        recording::advance(1s);
        EXPECT_EQ(said(early), 1U) << log();
    });
    kept_->release();
}

} // namespace kit_test
