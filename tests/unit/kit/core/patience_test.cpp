// When a module warns that the daemon's 300 seconds run out, told in virtual time.
#include "module_fixture.h"

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
        request(3);
        fake_loop::advance(239s);
        EXPECT_EQ(logged("no verdict for"), 0U) << log();
        fake_loop::advance(1s);
        EXPECT_EQ(logged(early), 1U) << log();
        fake_loop::advance(59s);
        EXPECT_EQ(logged(late), 0U) << log();
        fake_loop::advance(1s);
        EXPECT_EQ(logged(late), 1U) << log();
        fake_loop::advance(1h);
        EXPECT_EQ(logged("no verdict for"), 2U) << "once each";
    });
    kept_->release();
}

// Who asks again waits 300 seconds from then on: a daemon that was started afresh.
TEST_F(Patience, ARepeatedRequestBeginsItsTimeAnew)
{
    serve(keeps(), [this] {
        request(3);
        fake_loop::advance(239s);
        request(3);
        fake_loop::advance(239s);
        EXPECT_EQ(logged("no verdict for"), 0U) << log();
        fake_loop::advance(1s);
        EXPECT_EQ(logged(early), 1U) << log();
        fake_loop::advance(59s);
        EXPECT_EQ(logged(late), 0U) << log();
        fake_loop::advance(1s);
        EXPECT_EQ(logged(late), 1U) << log();
    });
    kept_->release();
}

TEST_F(Patience, ARequestThatIsRepeatedAfterTheWarningIsWarnedOfAgain)
{
    serve(keeps(), [this] {
        request(3);
        fake_loop::advance(250s);
        request(3);
        fake_loop::advance(239s);
        EXPECT_EQ(logged("no verdict for"), 1U) << "the first one's end is nobody's: " << log();
        fake_loop::advance(61s);
        EXPECT_EQ(logged(early), 2U) << log();
        EXPECT_EQ(logged(late), 1U) << log();
    });
    kept_->release();
}

TEST_F(Patience, ARepeatedRequestForACardThatIsStillToBeExaminedBeginsItsTimeAnewToo)
{
    serve([](app_cg_kit_check &) { return APP_CG_KIT_AGAIN; },
          [this] {
              request(3);
              fake_loop::advance(200s);
              request(3);
              fake_loop::advance(239s);
              EXPECT_EQ(logged("no verdict for"), 0U) << log();
              fake_loop::advance(1s);
              EXPECT_EQ(logged(early), 1U) << log();
          });
}

TEST_F(Patience, EndsWithTheVerdictAndWithTheRequest)
{
    serve(keeps(), [this] {
        request(3);
        EXPECT_EQ(kept_->answer(true, ""), 0);
        EXPECT_TRUE(fake_loop::turn());
        EXPECT_EQ(fake_loop::armed_timers(), 0U);
        kept_->release();
        request(3);
        withdraw(3);
        EXPECT_EQ(fake_loop::armed_timers(), 0U);
        fake_loop::advance(1h);
        EXPECT_EQ(logged("no verdict for"), 0U) << log();
    });
    kept_->release();
}

TEST_F(Patience, OneCardsWarningIsNotAnothers)
{
    serve(keeps(), [this] {
        request(4);
        EXPECT_EQ(kept_->answer(true, ""), 0);
        kept_->release();
        fake_loop::advance(100s);
        request(3);
        EXPECT_TRUE(fake_loop::turn());
        fake_loop::advance(239s);
        EXPECT_EQ(logged("no verdict for"), 0U) << log();
        fake_loop::advance(1s);
        EXPECT_EQ(logged(early), 1U) << log();
    });
    kept_->release();
}

} // namespace kit_test
