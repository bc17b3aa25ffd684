// The log macros, the verbosity, the level file, and the start of logging.
#include "app_cg_dbg/logging.h"

#include <algorithm>
#include <string>

#include "fixture.h"

using namespace lines;

namespace
{

constexpr char LEVEL_FILE[] = "/data/.vxos/vsd/0/plibpub/app_cg/app_cg/app_cg_dbg.txt";
constexpr char OPEN_LEVEL_FILE[] = "open(/data/.vxos/vsd/0/plibpub/app_cg/app_cg/app_cg_dbg.txt, O_RDONLY)";

// One message of every level. Returns how many had their argument evaluated.
int say_everything()
{
    int evaluated = 0;
    APP_CG_FATAL("fatal %d", ++evaluated);
    APP_CG_ERROR("error %d", ++evaluated);
    APP_CG_WARN("warn %d", ++evaluated);
    APP_CG_NOTICE("notice %d", ++evaluated);
    APP_CG_INFO("info %d", ++evaluated);
    return evaluated;
}

// Returns what `check` returned first, or 100 when the macro let the caller go on.
int32_t check_and_return(const std::function<int32_t()> &check)
{
    APP_CG_CHECK_RETURN(check());
    return 100;
}

class LoggingTest : public VerbosityTest
{
};

using LevelFileTest = DaemonTest;

} // namespace

INSTANTIATE_TEST_SUITE_P(Verbosities, LoggingTest, testing::ValuesIn(ALL_VERBOSITIES), verbosity_name);

TEST_P(LoggingTest, EachLevelIsWrittenAboveItsVerbosityAndTheRestIsNotEvenEvaluated)
{
    const Lines all{fatal("say_everything", "fatal 1"), error("say_everything", "error 2"),
                    warn("say_everything", "warn 3"), "log 60 app_cg.cpp say_everything: notice 4",
                    info("say_everything", "info 5")};
    const Lines expected = heard(all);
    EXPECT_EQ(static_cast<std::size_t>(say_everything()), expected.size());
    EXPECT_EQ(recording::journal(), expected);
    const std::size_t written[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(expected.size(), written[std::min(GetParam(), 4U)]);
}

TEST_P(LoggingTest, WithoutAHandleNothingIsWritten)
{
    g_app_cg_global.zlog_handle = nullptr;
    (void)say_everything();
    EXPECT_EQ(recording::journal(), Lines{});
}

TEST_P(LoggingTest, ARecordSaysExactlyWhereItComesFrom)
{
    const int line = __LINE__ + 1;
    APP_CG_FATAL("100%% %s", "sure");
    const recording::LogCall &log = recording::last_log();
    EXPECT_EQ(log.file, "app_cg.cpp");
    EXPECT_EQ(log.function, "TestBody");
    EXPECT_EQ(log.line, line);
    EXPECT_EQ(log.level, 120);
    EXPECT_EQ(log.format, "%s");
    EXPECT_EQ(log.text, "100% sure");
}

TEST_P(LoggingTest, ALongTextIsCutTo1023Characters)
{
    for (const std::size_t length : {0U, 1U, 1022U, 1023U, 1024U, 1025U, 5000U}) {
        const std::string text(length, 'a');
        APP_CG_FATAL("%s", text.c_str());
        EXPECT_EQ(recording::last_log().text, text.substr(0, 1023)) << length;
    }
}

TEST_P(LoggingTest, ATextIsNotTakenForAFormat)
{
    APP_CG_FATAL("%s", "%d %s %n");
    EXPECT_EQ(recording::journal(), Lines{fatal("TestBody", "%d %s %n")});
}

TEST_P(LoggingTest, ACheckThatSucceedsIsMadeOnce)
{
    int calls = 0;
    EXPECT_EQ(check_and_return([&calls] {
                  ++calls;
                  return 0;
              }),
              100);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(recording::journal(), Lines{});
}

TEST_P(LoggingTest, ACheckThatFailsIsMadeAgainForTheMessageAndForTheResult)
{
    int calls = 0;
    const int32_t result = check_and_return([&calls] { return -(++calls); });
    const int expected = GetParam() > 0 ? 3 : 2;
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(result, -expected);
    EXPECT_EQ(recording::journal(), heard({error("check_and_return", "failed,rv -2")}));
}

TEST_P(LoggingTest, ANewVerbosityIsToldByTheOldOne)
{
    for (const int32_t level : {0, 1, 4, -1, INT32_MAX, INT32_MIN}) {
        app_cg_verbosity = GetParam();
        (void)recording::take();
        EXPECT_EQ(app_cg_log_level(level), 0);
        EXPECT_EQ(app_cg_verbosity, static_cast<uint32_t>(level));
        EXPECT_EQ(recording::journal(),
                  heard({warn("app_cg_log_level", "set debug level " + std::to_string(level), DBG)}));
    }
}

TEST_P(LoggingTest, TheFirstStartTellsOnlyItsEnd)
{
    g_app_cg_global.zlog_handle = nullptr;
    EXPECT_EQ(app_cg_zlog_init(), 0);
    EXPECT_EQ(g_app_cg_global.zlog_handle, recording::category());
    EXPECT_EQ(app_cg_verbosity, GetParam());
    EXPECT_EQ(recording::journal(), heard({"vx_zlog_init(app_cg)", info("app_cg_zlog_init", "leave", DBG)}));
    EXPECT_EQ(fake_fs::calls(), Lines{OPEN_LEVEL_FILE});
}

TEST_P(LoggingTest, ARepeatedStartTellsItsBeginningToo)
{
    EXPECT_EQ(app_cg_zlog_init(), 0);
    EXPECT_EQ(recording::journal(), heard({info("app_cg_zlog_init", "enter", DBG), "vx_zlog_init(app_cg)",
                                           info("app_cg_zlog_init", "leave", DBG)}));
}

TEST_P(LoggingTest, AFailingLibraryLeavesNoHandleAndNoMessage)
{
    recording::script("vx_zlog_init", {1});
    EXPECT_EQ(app_cg_zlog_init(), -11);
    EXPECT_EQ(g_app_cg_global.zlog_handle, nullptr) << "an earlier handle is replaced";
    EXPECT_EQ(recording::journal(), heard({info("app_cg_zlog_init", "enter", DBG), "vx_zlog_init(app_cg)"}));
}

TEST_P(LoggingTest, ALevelFileTakesEffectBeforeTheLibraryIsOpened)
{
    fake_fs::write(LEVEL_FILE, "4\n");
    const std::size_t descriptors = open_descriptors();
    EXPECT_EQ(app_cg_zlog_init(), 0);
    EXPECT_EQ(app_cg_verbosity, 4U);
    const Lines before =
        heard({info("app_cg_zlog_init", "enter", DBG), warn("app_cg_log_level", "set debug level 4", DBG)});
    EXPECT_EQ(recording::journal(),
              (before + Lines{"vx_zlog_init(app_cg)", info("app_cg_zlog_init", "leave", DBG)}));
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_P(LoggingTest, ALevelFileThatCannotBeReadChangesNothing)
{
    fake_fs::make_folder(LEVEL_FILE); // can be opened, but not read
    const std::size_t descriptors = open_descriptors();
    EXPECT_EQ(app_cg_zlog_init(), 0);
    EXPECT_EQ(app_cg_verbosity, GetParam());
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(fake_fs::calls(), Lines{OPEN_LEVEL_FILE});
}

TEST_F(LevelFileTest, TheTextIsANumberAsFarAsItGoes)
{
    struct Row {
        const char *text;
        uint32_t verbosity;
    };
    const Row rows[] = {
        {"4\n", 4},
        {"0", 0},
        {"-1", verbosity(-1)},
        {"-1\n", verbosity(-1)},
        {"", 0},
        {"\n", 0},
        {"verbose", 0},
        {"- 3", 0},
        {"  \t3", 3},
        {"+2", 2},
        {"3 7", 3},
        {"2x", 2},
        {"0x10", 0},
        {"010", 10},
        // Fifteen bytes leave no room for a terminator of their own; what follows them is not read.
        {"000000000000004", 4},
        {"0000000000000049", 4},
        {"              37", 3},
        {"              -3", 0},
        {"12345678901234567890", 0x860ddf79U}, // 123456789012345 modulo 2^32
        {"999999999999999", 0xa4c67fffU},
        // Outside of 32 bits the number wraps.
        {"2147483648", 0x80000000U},
        {"4294967295", 0xffffffffU},
        {"4294967296", 0},
        {"4294967297", 1},
        {"-2147483648", 0x80000000U},
        {"-4294967295", 1},
    };
    for (const Row &row : rows) {
        app_cg_verbosity = 1;
        fake_fs::write(LEVEL_FILE, row.text);
        EXPECT_EQ(app_cg_zlog_init(), 0);
        EXPECT_EQ(app_cg_verbosity, row.verbosity) << '"' << row.text << '"';
    }
}

TEST_F(LevelFileTest, AByteOfZeroEndsTheText)
{
    fake_fs::write(LEVEL_FILE, std::string("3\0"
                                           "7",
                                           3));
    EXPECT_EQ(app_cg_zlog_init(), 0);
    EXPECT_EQ(app_cg_verbosity, 3U);
}

TEST_F(LevelFileTest, TheWrappedNumberIsTold)
{
    app_cg_verbosity = 2;
    fake_fs::write(LEVEL_FILE, "4294967299");
    EXPECT_EQ(app_cg_zlog_init(), 0);
    EXPECT_EQ(recording::journal(),
              (Lines{warn("app_cg_log_level", "set debug level 3", DBG), "vx_zlog_init(app_cg)"}));
}

TEST_F(LevelFileTest, AMissingFileKeepsTheVerbosity)
{
    for (const uint32_t level : ALL_VERBOSITIES) {
        app_cg_verbosity = level;
        EXPECT_EQ(app_cg_zlog_init(), 0);
        EXPECT_EQ(app_cg_verbosity, level);
    }
}

TEST_F(LevelFileTest, MinusOneMakesEverythingHeard)
{
    fake_fs::write(LEVEL_FILE, "-1");
    EXPECT_EQ(app_cg_zlog_init(), 0);
    EXPECT_EQ(say_everything(), 5);
}

TEST_F(LevelFileTest, AnEmptyFileSilencesEverythingButTheFatal)
{
    fake_fs::write(LEVEL_FILE, "");
    EXPECT_EQ(app_cg_zlog_init(), 0);
    EXPECT_EQ(say_everything(), 1);
}
