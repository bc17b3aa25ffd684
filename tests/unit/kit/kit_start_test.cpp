// Whether a module may start, how it ends, and what is no way to use the kit.
#include <poll.h>

#include <csignal>
#include <fstream>

#include "kit_fixture.h"

namespace kit_test
{

namespace
{

using app_cg_kit::Card;
using app_cg_kit::Check;

class KitStart : public KitTest
{
protected:
    KitStart()
    {
        options_.check = [](const Card &, const Check &) { return app_cg_kit::pass(); };
    }

    int open(const std::string &name)
    {
        options_.name = name;
        try {
            const app_cg_kit::Module module(options_);
            return 0;
        } catch (const app_cg_kit::Error &error) {
            EXPECT_STREQ(error.what(), app_cg_kit_error_text(error.code()));
            return error.code();
        }
    }
};

int never(void *, const app_cg_kit_card_t *, app_cg_kit_check_t *)
{
    return APP_CG_KIT_AGAIN;
}

} // namespace

TEST_F(KitStart, NamesThatTheDaemonWouldNotKnowAreRefused)
{
    EXPECT_EQ(open("fifteen_bytes_x"), 0);
    EXPECT_EQ(open("sixteen_bytes_xx"), APP_CG_KIT_E_NAME);
    EXPECT_TRUE(
        logged_.has("3 the name sixteen_bytes_xx has 16 bytes; the daemon would cut it to sixteen_bytes_x "))
        << logged_.all();
    for (const char *name : {"", ".", "..", "a/b", "a\nb", "\x7f"}) {
        EXPECT_EQ(open(name), APP_CG_KIT_E_NAME) << name;
    }
}

TEST_F(KitStart, AnEntryThatIsMissingIsAWarning)
{
    options_.module_folder = folder_.path("");
    EXPECT_EQ(open("volt"), 0);
    EXPECT_TRUE(logged_.has("has no entry volt")) << logged_.all();
    std::ofstream(folder_.path("amp")) << "";
    const std::size_t before = logged_.count("has no entry");
    EXPECT_EQ(open("amp"), 0);
    EXPECT_EQ(logged_.count("has no entry"), before);
}

TEST_F(KitStart, ANameIsUsedOnceOnAHostForOneStore)
{
    cgctl::Child other([this] {
        const app_cg_kit::Module module(options_);
        std::cout << "open" << std::endl;
        return poll(nullptr, 0, -1);
    });
    ASSERT_TRUE(other.prints("open")) << other.err();
    EXPECT_EQ(open("volt"), APP_CG_KIT_E_TAKEN);
    EXPECT_TRUE(
        logged_.has("3 another module of the name volt runs (process " + std::to_string(other.pid()) + ")"))
        << logged_.all();
    EXPECT_EQ(open("amp"), 0);
    options_.endpoint = "unix:" + folder_.path("another");
    EXPECT_EQ(open("volt"), 0);
    options_.endpoint = "unix:" + folder_.path("store");
    other.send(SIGKILL);
    other.wait();
    EXPECT_EQ(open("volt"), 0);
}

TEST_F(KitStart, WithoutAPlaceForTheLockItWarnsAndGoesOn)
{
    options_.lock_folder = folder_.path("none");
    EXPECT_EQ(open("volt"), 0);
    EXPECT_TRUE(logged_.has("4 cannot open the lock file")) << logged_.all();
}

TEST_F(KitStart, AProcessHasOneModule)
{
    const app_cg_kit::Module first(options_);
    EXPECT_EQ(open("amp"), APP_CG_KIT_E_TAKEN);
}

TEST_F(KitStart, SettingsThatAreOfNoUseAreRefused)
{
    options_.endpoint = "nowhere";
    EXPECT_EQ(open("volt"), APP_CG_KIT_E_SETTINGS);
    EXPECT_TRUE(logged_.has("nowhere")) << logged_.all();
}

TEST_F(KitStart, ItMayBeStoppedBeforeItRunsAndRunsOnce)
{
    app_cg_kit::Module module(options_);
    module.stop();
    EXPECT_EQ(module.run(), 0);
    EXPECT_EQ(module.run(), APP_CG_KIT_E_STOPPED);
}

TEST_F(KitStart, TheStoreMayComeLater)
{
    stop_server();
    module_ = std::make_unique<app_cg_kit::Module>(options_);
    thread_ = std::thread([this] { result_ = module_->run(); });
    EXPECT_TRUE(says("4 ")) << logged_.all(); // that nobody answers
    start_server();
    EXPECT_TRUE(says("6 subscribed")) << logged_.all();
    ask("3");
    EXPECT_EQ(take_answer("3")["ret"], 0);
    end();
}

TEST_F(KitStart, SignalsEndItWhenItMayTakeThem)
{
    for (const int signal_number : {SIGTERM, SIGINT}) {
        cgctl::Child module([this] {
            options_.flags = 0;
            options_.log = nullptr;
            return app_cg_kit::Module(options_).run();
        });
        ASSERT_TRUE(module.says("volt: subscribed; module volt waits for cards\n")) << module.err();
        module.send(signal_number);
        EXPECT_EQ(module.wait(), 0) << module.err();
    }
}

TEST_F(KitStart, AHandleThatOutlivesTheModuleIsHarmless)
{
    std::unique_ptr<Check> kept;
    std::mutex mutex;
    serve([&](const Card &, const Check &check) {
        const std::lock_guard<std::mutex> guard(mutex);
        kept = std::make_unique<Check>(check);
        return app_cg_kit::later();
    });
    ask("3");
    ASSERT_TRUE(eventually([&] {
        const std::lock_guard<std::mutex> guard(mutex);
        return kept != nullptr;
    }));
    end();
    EXPECT_FALSE(kept->is_open());
    EXPECT_EQ(kept->pass(), APP_CG_KIT_E_STOPPED);
    EXPECT_EQ(answers(), 0U);
}

TEST(KitArguments, WhatIsMissingIsRefused)
{
    app_cg_kit_options_t options;
    app_cg_kit_options_init(&options);
    app_cg_kit_options_init(nullptr);
    app_cg_kit_t *kit = nullptr;
    EXPECT_EQ(app_cg_kit_open(nullptr, &kit), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_open(&options, nullptr), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_open(&options, &kit), APP_CG_KIT_E_ARGUMENT);
    options.name = "volt";
    EXPECT_EQ(app_cg_kit_open(&options, &kit), APP_CG_KIT_E_ARGUMENT);
    options.check = never;
    options.lock_folder = nullptr;
    EXPECT_EQ(app_cg_kit_open(&options, &kit), APP_CG_KIT_E_ARGUMENT);
    options.lock_folder = "";
    options.size = 0;
    EXPECT_EQ(app_cg_kit_open(&options, &kit), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(kit, nullptr);
    EXPECT_EQ(app_cg_kit_run(nullptr), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_stop(nullptr), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_answer(nullptr, APP_CG_KIT_PASS, nullptr), APP_CG_KIT_E_ARGUMENT);
    EXPECT_EQ(app_cg_kit_hold(nullptr), nullptr);
    EXPECT_EQ(app_cg_kit_is_open(nullptr), 0);
    app_cg_kit_release(nullptr);
    app_cg_kit_close(nullptr);
}

TEST(KitArguments, EveryErrorHasASentenceOfItsOwn)
{
    std::vector<std::string> texts;
    for (int error = 0; error >= APP_CG_KIT_E_STOPPED; error--) {
        texts.emplace_back(app_cg_kit_error_text(error));
    }
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::unique(texts.begin(), texts.end()), texts.end());
    EXPECT_STREQ(app_cg_kit_error_text(-4711), "unknown error");
    EXPECT_STREQ(app_cg_kit_error_text(1), "unknown error");
}

} // namespace kit_test
