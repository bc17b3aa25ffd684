// Whether a module may start, how it ends, and what is no way to use the kit.
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
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

    std::filesystem::path lock_file()
    {
        for (const auto &entry : std::filesystem::directory_iterator(folder_.path(""))) {
            if (entry.path().filename().string().starts_with("app_cg_kit.volt.")) {
                return entry.path();
            }
        }
        ADD_FAILURE() << "no lock file";
        return {};
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

TEST_F(KitStart, EntriesCountAsTheDaemonTakesThem)
{
    std::filesystem::create_directory(folder_.path("long"));
    options_.module_folder = folder_.path("long");
    std::ofstream(folder_.path("long/power-budget-module")) << "";
    EXPECT_EQ(open("power-budget-mo"), 0);
    EXPECT_EQ(logged_.count("entry"), 0U) << logged_.all();

    std::filesystem::create_directory(folder_.path("many"));
    options_.module_folder = folder_.path("many");
    for (int i = 0; i < 17; ++i) {
        std::ofstream(folder_.path("many/m" + std::to_string(i))) << "";
    }
    auto last = std::filesystem::directory_iterator(folder_.path("many"));
    std::advance(last, 16); // in the folder's own order
    EXPECT_EQ(open(last->path().filename()), 0);
    EXPECT_TRUE(logged_.has("behind 16 others")) << logged_.all();
}

TEST_F(KitStart, ANameIsUsedOnceOnAHostForOneStore)
{
    cg::Child other([this] {
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

// Who could open the file could hold its lock, and keep the module from starting.
TEST_F(KitStart, TheLockFileIsItsOwnersAlone)
{
    std::filesystem::path lock;
    {
        const app_cg_kit::Module module(options_);
        lock = lock_file();
        EXPECT_EQ(std::filesystem::status(lock).permissions(), std::filesystem::perms(0600));
    }
    EXPECT_FALSE(exists(lock)) << "it is left behind";
    std::ofstream(lock) << "";
    std::filesystem::permissions(lock, std::filesystem::perms(0644));
    const app_cg_kit::Module module(options_);
    EXPECT_EQ(std::filesystem::status(lock).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(logged_.count("lock file"), 0U) << logged_.all();
}

TEST_F(KitStart, APipeInPlaceOfTheLockFileHoldsNobodyUp)
{
    std::filesystem::path lock;
    {
        const app_cg_kit::Module module(options_);
        lock = lock_file();
    }
    ASSERT_EQ(mkfifo(lock.c_str(), 0600), 0);
    EXPECT_EQ(open("volt"), 0);
    EXPECT_TRUE(logged_.has("it is no file; remove it")) << logged_.all();
    EXPECT_TRUE(exists(lock)) << "it is not ours";
}

TEST_F(KitStart, ALockFileThatIsAnothersByNowStays)
{
    std::filesystem::path lock;
    {
        const app_cg_kit::Module module(options_);
        lock = lock_file();
        std::filesystem::remove(lock);
        std::ofstream(lock) << "";
    }
    EXPECT_TRUE(exists(lock));
}

TEST_F(KitStart, ALockFileOfAnotherUserTellsNothing)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file to another user";
    }
    std::filesystem::path lock;
    {
        const app_cg_kit::Module module(options_);
        lock = lock_file();
    }
    std::ofstream(lock) << "";
    ASSERT_EQ(chown(lock.c_str(), 4711, 4711), 0);
    EXPECT_EQ(open("volt"), 0);
    EXPECT_TRUE(exists(lock)) << "it is another's";
    EXPECT_TRUE(logged_.has("4 cannot rely on the lock file")) << logged_.all();
    EXPECT_TRUE(logged_.has("it belongs to user 4711, and this is user 0; if no module of its owner runs, "
                            "remove it; whether another module has the name is not known"))
        << logged_.all();
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

TEST_F(KitStart, WhyItCannotConnectIsSaid)
{
    app_cg_kit::Module module(options_);
    setenv("VX_MOM_ENDPOINT", "nowhere", 1);
    EXPECT_EQ(module.run(), APP_CG_KIT_E_SYSTEM);
    EXPECT_TRUE(logged_.has("3 no connection to the store can be made (")) << logged_.all();
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
        cg::Child module([this] {
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

// A program that was compiled with an earlier header has a shorter structure.
TEST(KitArguments, TheDefaultsAreWrittenAsFarAsTheStructureReaches)
{
    struct {
        app_cg_kit_options_t options;
        char after[16];
    } memory;
    std::memset(static_cast<void *>(&memory), 0x5a, sizeof memory);
    const std::size_t shorter = offsetof(app_cg_kit_options_t, lock_folder);
    app_cg_kit_options_init_size(&memory.options, shorter);
    EXPECT_EQ(memory.options.size, shorter);
    EXPECT_EQ(memory.options.log_level, APP_CG_KIT_INFO);
    EXPECT_STREQ(memory.options.module_folder, "/etc/app_cg/deny_check");
    const auto *bytes = reinterpret_cast<const unsigned char *>(&memory);
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
