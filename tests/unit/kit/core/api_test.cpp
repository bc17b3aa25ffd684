// The C functions: their arguments, their defaults, their errors.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "app_cg_kit.h"
#include "core/check.h"
#include "fake_loop.h"
#include "fake_store.h"

namespace kit_test
{

namespace
{

int never(void *, const app_cg_kit_card_t *, app_cg_kit_check_t *)
{
    return APP_CG_KIT_AGAIN;
}

class KitArguments : public testing::Test
{
protected:
    KitArguments()
    {
        fake_loop::reset();
        fake_store::reset();
        app_cg_kit_options_init(&options_);
        options_.name = "volt";
        options_.check = never;
        options_.endpoint = "unix:/nowhere";
        options_.module_folder = "";
        options_.lock_folder = "";
    }

    int open() { return app_cg_kit_open(&options_, &kit_); }

    app_cg_kit_options_t options_{};
    app_cg_kit_t *kit_ = nullptr;
};

} // namespace

TEST_F(KitArguments, WhatIsMissingIsRefused)
{
    EXPECT_EQ(app_cg_kit_open(nullptr, &kit_), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_open(&options_, nullptr), APP_CG_KIT_E_ARGUMENT);
    const app_cg_kit_options_t complete = options_;
    for (const auto &take_away : std::vector<void (*)(app_cg_kit_options_t &)>{
             [](app_cg_kit_options_t &options) { options.name = nullptr; },
             [](app_cg_kit_options_t &options) { options.check = nullptr; },
             [](app_cg_kit_options_t &options) { options.module_folder = nullptr; },
             [](app_cg_kit_options_t &options) { options.lock_folder = nullptr; },
             [](app_cg_kit_options_t &options) { options.size = 0; }}) {
        options_ = complete;
        take_away(options_);
        EXPECT_EQ(open(), APP_CG_KIT_E_ARGUMENT);
    }
    EXPECT_EQ(kit_, nullptr);
    options_ = complete;
    EXPECT_EQ(open(), 0);
    app_cg_kit_close(kit_);
}

TEST_F(KitArguments, NullIsAnErrorOrNothing)
{
    EXPECT_EQ(app_cg_kit_run(nullptr), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_stop(nullptr), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_answer(nullptr, APP_CG_KIT_PASS, nullptr), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_deny(nullptr, "x"), APP_CG_KIT_DENY);
    EXPECT_EQ(app_cg_kit_hold(nullptr), nullptr);
    EXPECT_EQ(app_cg_kit_is_open(nullptr), 0);
    app_cg_kit_release(nullptr);
    app_cg_kit_close(nullptr);
    app_cg_kit_options_init(nullptr);
}

TEST_F(KitArguments, AVerdictIsPassOrDeny)
{
    const auto mailbox = std::make_shared<kit::Mailbox>([] {}, kit::Log());
    const auto check = std::make_shared<app_cg_kit_check>(kit::Facts(), mailbox);
    EXPECT_EQ(app_cg_kit_answer(check.get(), APP_CG_KIT_LATER, "x"), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_is_open(check.get()), 1);
    EXPECT_EQ(app_cg_kit_answer(check.get(), APP_CG_KIT_DENY, nullptr), 0);
    EXPECT_EQ(app_cg_kit_is_open(check.get()), 0);
    EXPECT_FALSE(check->given().pass);
    EXPECT_EQ(check->given().reason, "");
    mailbox->close();
}

TEST_F(KitArguments, ADenialWithoutAReasonKeepsTheEarlierOne)
{
    const auto mailbox = std::make_shared<kit::Mailbox>([] {}, kit::Log());
    const auto check = std::make_shared<app_cg_kit_check>(kit::Facts(), mailbox);
    EXPECT_EQ(app_cg_kit_deny(check.get(), "hot"), APP_CG_KIT_DENY);
    EXPECT_EQ(app_cg_kit_deny(check.get(), nullptr), APP_CG_KIT_DENY);
    EXPECT_EQ(check->answer_from_callback(false), 0);
    EXPECT_EQ(check->given().reason, "hot");
    mailbox->close();
}

TEST_F(KitArguments, AStopBeforeTheStartCounts)
{
    ASSERT_EQ(open(), 0);
    EXPECT_EQ(app_cg_kit_stop(kit_), 0);
    fake_loop::on_run([] {
        EXPECT_TRUE(fake_loop::turn());
        EXPECT_TRUE(fake_loop::is_stopping());
    });
    EXPECT_EQ(app_cg_kit_run(kit_), 0);
    EXPECT_TRUE(fake_loop::ends_at_signals()) << "unless the flag leaves them";
    app_cg_kit_close(kit_);
}

// A program that was compiled with an earlier header has a shorter structure.
TEST_F(KitArguments, WhatAShorterStructureLacksHasItsDefault)
{
    options_.lock_folder = nullptr;
    options_.size = offsetof(app_cg_kit_options_t, lock_folder);
    ASSERT_EQ(open(), 0) << "/run/lock";
    app_cg_kit_close(kit_);
}

TEST_F(KitArguments, TheDefaultsAreWrittenAsFarAsTheStructureReaches)
{
    struct {
        app_cg_kit_options_t options;
        char after[16];
    } memory;
    std::memset(static_cast<void *>(&memory), 0x5a, sizeof memory);
    app_cg_kit_options_init_size(&memory.options, sizeof memory.options.size - 1);
    const auto *bytes = reinterpret_cast<const unsigned char *>(&memory);
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof memory, [](auto byte) { return byte == 0x5a; }));
    const std::size_t shorter = offsetof(app_cg_kit_options_t, lock_folder);
    app_cg_kit_options_init_size(&memory.options, shorter);
    EXPECT_EQ(memory.options.size, shorter);
    EXPECT_EQ(memory.options.log_level, APP_CG_KIT_INFO);
    EXPECT_STREQ(memory.options.module_folder, "/etc/app_cg/deny_check");
    EXPECT_TRUE(std::all_of(bytes + shorter, bytes + sizeof memory, [](auto byte) { return byte == 0x5a; }));
    // A later header's is longer; what this library does not know is 0.
    app_cg_kit_options_init_size(&memory.options, sizeof memory.options + 8);
    EXPECT_EQ(memory.options.size, sizeof memory.options + 8);
    EXPECT_STREQ(memory.options.lock_folder, "/run/lock");
    EXPECT_TRUE(std::all_of(memory.after, memory.after + 8, [](char byte) { return byte == 0; }));
    EXPECT_EQ(memory.after[8], 0x5a);
    app_cg_kit_options_init(&memory.options);
    EXPECT_EQ(memory.options.size, sizeof memory.options);
}

TEST_F(KitArguments, EveryErrorHasASentenceOfItsOwn)
{
    std::vector<std::string> texts;
    for (int error = 0; error >= APP_CG_KIT_E_STOPPED; error--) {
        texts.emplace_back(app_cg_kit_error_text(error));
    }
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "unknown error"), 0);
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::unique(texts.begin(), texts.end()), texts.end());
    EXPECT_STREQ(app_cg_kit_error_text(0), "done");
    EXPECT_STREQ(app_cg_kit_error_text(APP_CG_KIT_E_STOPPED), "the module has ended");
    EXPECT_STREQ(app_cg_kit_error_text(APP_CG_KIT_E_STOPPED - 1), "unknown error");
    EXPECT_STREQ(app_cg_kit_error_text(1), "unknown error");
    EXPECT_STREQ(app_cg_kit_version(), APP_CG_KIT_VERSION);
}

} // namespace kit_test
