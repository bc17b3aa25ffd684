// An examination by itself: its verdict, its handles, its end.
#include "core/check.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace kit_test
{

namespace
{

class CheckTest : public testing::Test
{
protected:
    // What is posted knows the mailbox that it is in; a module that ends closes its own likewise.
    void TearDown() override { mailbox_->close(); }

    std::shared_ptr<app_cg_kit_check> make()
    {
        kit::Facts facts;
        facts.request.position = {1, 3, 0};
        return std::make_shared<app_cg_kit_check>(facts, mailbox_);
    }

    int wakes_ = 0;
    std::vector<std::string> lines_;
    std::shared_ptr<kit::Mailbox> mailbox_ = std::make_shared<kit::Mailbox>(
        [this] { wakes_++; },
        kit::Log([this](int level,
                        const std::string &text) { lines_.push_back(std::to_string(level) + ' ' + text); },
                 APP_CG_KIT_INFO));
};

} // namespace

TEST_F(CheckTest, AVerdictIsPostedOnce)
{
    const auto check = make();
    EXPECT_TRUE(check->is_open());
    EXPECT_FALSE(check->is_answered());
    EXPECT_EQ(check->answer(false, "hot"), 0);
    EXPECT_EQ(check->answer(true, ""), APP_CG_KIT_E_ANSWERED);
    EXPECT_FALSE(check->is_open());
    EXPECT_TRUE(check->is_answered());
    EXPECT_FALSE(check->given().pass);
    EXPECT_EQ(check->given().reason, "hot");
    EXPECT_EQ(wakes_, 1);
    const auto posted = mailbox_->receive();
    ASSERT_EQ(posted.size(), 1U);
    EXPECT_EQ(posted.front(), check);
    EXPECT_TRUE(mailbox_->receive().empty());
}

TEST_F(CheckTest, APassHasNoReasonAndNoWarning)
{
    const auto check = make();
    EXPECT_EQ(check->answer(true, std::string(300, 'x')), 0);
    EXPECT_EQ(check->given().reason, "");
    EXPECT_TRUE(lines_.empty());
}

TEST_F(CheckTest, AfterItsEndAVerdictIsDroppedWithTheCause)
{
    const auto check = make();
    check->end(APP_CG_KIT_E_STOPPED);
    EXPECT_FALSE(check->is_open());
    EXPECT_EQ(check->answer(true, ""), APP_CG_KIT_E_STOPPED);
    EXPECT_FALSE(check->is_answered());
    EXPECT_EQ(wakes_, 0);
}

TEST_F(CheckTest, WhatIsAnsweredIsEndedOnlyByForce)
{
    const auto open = make();
    EXPECT_TRUE(open->end_unless_answered(APP_CG_KIT_E_WITHDRAWN));
    EXPECT_EQ(open->answer(true, ""), APP_CG_KIT_E_WITHDRAWN);
    const auto answered = make();
    EXPECT_EQ(answered->answer(true, ""), 0);
    EXPECT_FALSE(answered->end_unless_answered(APP_CG_KIT_E_WITHDRAWN));
    EXPECT_EQ(answered->answer(true, ""), APP_CG_KIT_E_ANSWERED);
    answered->end(APP_CG_KIT_E_WITHDRAWN);
    EXPECT_EQ(answered->answer(true, ""), APP_CG_KIT_E_WITHDRAWN);
}

TEST_F(CheckTest, APromiseNeedsAHandleOrTheVerdict)
{
    EXPECT_FALSE(make()->promise());
    const auto held = make();
    held->hold();
    EXPECT_TRUE(held->promise());
    const auto answered = make();
    EXPECT_EQ(answered->answer(true, ""), 0);
    EXPECT_TRUE(answered->promise());
    held->release();
}

TEST_F(CheckTest, AHandleKeepsItAlive)
{
    auto check = make();
    const std::weak_ptr<app_cg_kit_check> seen = check;
    app_cg_kit_check *handle = check.get();
    handle->hold();
    handle->hold();
    check.reset();
    handle->release();
    EXPECT_FALSE(seen.expired());
    handle->release();
    EXPECT_TRUE(seen.expired());
}

TEST_F(CheckTest, AReleaseTooManyIsNothing)
{
    const auto check = make();
    EXPECT_TRUE(!check->promise());
    check->release();
    EXPECT_TRUE(lines_.empty());
}

TEST_F(CheckTest, TheLastReleaseOfABrokenPromiseIsAWarning)
{
    const auto broken = make();
    broken->hold();
    (void)broken->promise();
    broken->release();
    ASSERT_EQ(lines_.size(), 1U);
    EXPECT_EQ(lines_[0],
              "4 1/3/0: the last handle was released without a verdict; the daemon admits the card "
              "after 300 s");
    for (const auto &keep : std::vector<void (*)(app_cg_kit_check &)>{
             [](app_cg_kit_check &) {}, // nothing was promised
             [](app_cg_kit_check &check) { (void)check.promise(), (void)check.answer(true, ""); },
             [](app_cg_kit_check &check) { (void)check.promise(), check.end(APP_CG_KIT_E_WITHDRAWN); }}) {
        const auto check = make();
        check->hold();
        keep(*check);
        check->release();
    }
    EXPECT_EQ(lines_.size(), 1U);
}

TEST_F(CheckTest, AClosedMailboxDropsAndSaysNothing)
{
    const auto check = make();
    EXPECT_EQ(check->answer(true, ""), 0);
    mailbox_->close();
    EXPECT_TRUE(mailbox_->receive().empty());
    EXPECT_EQ(make()->answer(false, ""), 0);
    EXPECT_EQ(wakes_, 1);
    EXPECT_TRUE(mailbox_->receive().empty());
    EXPECT_TRUE(lines_.empty());
}

TEST_F(CheckTest, AReasonIsCutAtACharacter)
{
    EXPECT_EQ(kit::fitting_reason(std::string(255, 'x')), std::string(255, 'x'));
    EXPECT_EQ(kit::fitting_reason(std::string(256, 'x')), std::string(255, 'x'));
    EXPECT_EQ(kit::fitting_reason(std::string(253, 'x') + "éx"), std::string(253, 'x') + "é");
    EXPECT_EQ(kit::fitting_reason(std::string(254, 'x') + "é"), std::string(254, 'x'));
    EXPECT_EQ(kit::fitting_reason(std::string(300, '\x80')), "") << "not UTF-8 at all";
}

TEST(Log, WritesWhatIsSevereEnough)
{
    std::string seen;
    const kit::Log log([&](int, const std::string &text) { seen += text; }, APP_CG_KIT_WARNING);
    log(APP_CG_KIT_ERROR, "a");
    log(APP_CG_KIT_WARNING, "b");
    log(APP_CG_KIT_INFO, "c");
    kit::Log()(APP_CG_KIT_ERROR, "to nobody");
    EXPECT_EQ(seen, "ab");
}

// The log function may use what its owner frees once the mailbox is closed.
TEST_F(CheckTest, TheEndWaitsForLogFunctionsOfOtherThreads)
{
    std::atomic<bool> is_in = false;
    std::atomic<bool> is_closing = false;
    std::atomic<bool> is_out = false;
    kit::Mailbox mailbox([] {}, kit::Log(
                                    [&](int, const std::string &) {
                                        is_in = true;
                                        while (!is_closing) {
                                            std::this_thread::yield();
                                        }
                                        for (int turns = 0; turns < 1000; turns++) {
                                            std::this_thread::yield();
                                        }
                                        is_out = true;
                                    },
                                    APP_CG_KIT_INFO));
    std::thread other([&] { mailbox.log(APP_CG_KIT_INFO, "text"); });
    while (!is_in) {
        std::this_thread::yield();
    }
    is_closing = true;
    mailbox.close();
    EXPECT_TRUE(is_out);
    is_in = false;
    mailbox.log(APP_CG_KIT_INFO, "nobody hears it");
    EXPECT_FALSE(is_in);
    other.join();
}

} // namespace kit_test
