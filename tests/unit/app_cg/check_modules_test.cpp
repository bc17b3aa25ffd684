// The registry of check modules: what a folder makes of it, and what it answers.
#include "app_cg/check_modules.h"

#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "app_cg_dbg/logging.h"
#include "fixture.h"

using namespace lines;

namespace
{

const std::string SCAN = "app_cg_deny_check_init_wait_obj";

app_cg_wait_obj_t &registry()
{
    return g_app_cg_global.wait_obj;
}

// Modules that appear in this order in the folder's listing.
void modules(const std::vector<std::string> &names)
{
    fake_fs::make_folder(fake_fs::MODULE_FOLDER);
    for (const std::string &name : names) {
        fake_fs::add_module(name);
    }
    fake_fs::list_order(names);
}

int32_t scan()
{
    return app_cg_deny_check_init_wait_obj(&registry(), fake_fs::MODULE_FOLDER);
}

std::vector<std::string> numbered_names(int count)
{
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; i++) {
        names.push_back("module" + std::to_string(i));
    }
    return names;
}

std::vector<std::string> registered()
{
    std::vector<std::string> names;
    names.reserve(APP_CG_WAIT_OBJ_MAX);
    for (int32_t i = 0; i < registry().app_cg_wait_obj_num; i++) {
        names.emplace_back(registry().app_cg_wait_obj_name[i]);
    }
    return names;
}

// Nothing of an earlier scan may be left behind the names.
bool slots_are_zero_beyond_their_names()
{
    app_cg_wait_obj_t clean{};
    for (int32_t i = 0; i < registry().app_cg_wait_obj_num; i++) {
        (void)std::snprintf(clean.app_cg_wait_obj_name[i], sizeof clean.app_cg_wait_obj_name[i], "%s",
                            registry().app_cg_wait_obj_name[i]);
    }
    return std::memcmp(clean.app_cg_wait_obj_name, registry().app_cg_wait_obj_name,
                       sizeof clean.app_cg_wait_obj_name) == 0;
}

void fill_registry()
{
    registry().app_cg_wait_obj_num = 16;
    registry().app_cg_wait_obj_bmp = 0xffffffff;
    std::memset(registry().app_cg_wait_obj_name, 'x', sizeof registry().app_cg_wait_obj_name);
}

class CheckModulesTest : public VerbosityTest
{
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Verbosities, CheckModulesTest, testing::ValuesIn(ALL_VERBOSITIES), verbosity_name);

TEST_P(CheckModulesTest, ANullArgumentLeavesTheRegistryUntouched)
{
    fill_registry();
    const app_cg_wait_obj_t before = registry();
    EXPECT_EQ(app_cg_deny_check_init_wait_obj(nullptr, fake_fs::MODULE_FOLDER), -4);
    EXPECT_EQ(app_cg_deny_check_init_wait_obj(&registry(), nullptr), -4);
    EXPECT_EQ(std::memcmp(&before, &registry(), sizeof before), 0);
    EXPECT_EQ(recording::journal(),
              heard({error(SCAN, "input arguments error.\r\n"), error(SCAN, "input arguments error.\r\n")}));
    EXPECT_EQ(fake_fs::calls(), Lines{});
}

TEST_P(CheckModulesTest, AMissingFolderEmptiesTheRegistry)
{
    fill_registry();
    EXPECT_EQ(scan(), -11);
    EXPECT_EQ(registry().app_cg_wait_obj_num, 0);
    EXPECT_EQ(registry().app_cg_wait_obj_bmp, 0U);
    EXPECT_TRUE(slots_are_zero_beyond_their_names());
    EXPECT_EQ(recording::journal(), heard({error(SCAN, "Folder path(/etc/app_cg/deny_check/) error.\n")}));
}

TEST_P(CheckModulesTest, TheMessageNamesTheFolderAsGiven)
{
    EXPECT_EQ(app_cg_deny_check_init_wait_obj(&registry(), "/etc/app_cg/other"), -11);
    EXPECT_EQ(recording::journal(), heard({error(SCAN, "Folder path(/etc/app_cg/other) error.\n")}));
}

TEST_P(CheckModulesTest, AnEmptyFolderGivesNoModule)
{
    fill_registry();
    modules({});
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(registered(), Lines{});
    EXPECT_EQ(registry().app_cg_wait_obj_bmp, 0U);
    EXPECT_TRUE(slots_are_zero_beyond_their_names());
    EXPECT_EQ(recording::journal(), Lines{fatal(SCAN, "module: num[0], bmp[0], name: []")});
}

TEST_P(CheckModulesTest, ModulesAreTakenInListingOrderAndTheLastOneIsTold)
{
    modules({"a", "b", "c"});
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(registered(), (Lines{"a", "b", "c"}));
    EXPECT_EQ(registry().app_cg_wait_obj_bmp, 7U);
    EXPECT_EQ(recording::journal(), Lines{fatal(SCAN, "module: num[3], bmp[7], name: [c|]")});
    EXPECT_EQ(app_cg_wait_obj_lookup("a"), 0);
    EXPECT_EQ(app_cg_wait_obj_lookup("b"), 1);
    EXPECT_EQ(app_cg_wait_obj_lookup("c"), 2);
    EXPECT_EQ(fake_fs::calls(), (Lines{"opendir(/etc/app_cg/deny_check/)", "closedir()"}));
}

TEST_P(CheckModulesTest, TheListingIsNotSorted)
{
    modules({"c", "a", "b"});
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(registered(), (Lines{"c", "a", "b"}));
    EXPECT_EQ(recording::journal(), Lines{fatal(SCAN, "module: num[3], bmp[7], name: [b|]")});
}

TEST_P(CheckModulesTest, OnlyTheFolderItselfAndItsParentAreSkipped)
{
    modules({".hidden", "..x", "...", ".a"});
    fake_fs::list_order({".hidden", "..", "..x", ".", "...", ".a"});
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(registered(), (Lines{".hidden", "..x", "...", ".a"}));
    EXPECT_EQ(registry().app_cg_wait_obj_bmp, 15U);
}

TEST_P(CheckModulesTest, EveryTypeOfEntryCounts)
{
    modules({"file"});
    fake_fs::make_folder(std::string(fake_fs::MODULE_FOLDER) + "folder");
    std::filesystem::create_symlink("nowhere",
                                    fake_fs::host_path(std::string(fake_fs::MODULE_FOLDER) + "link"));
    ASSERT_EQ(mkfifo(fake_fs::host_path(std::string(fake_fs::MODULE_FOLDER) + "pipe").c_str(), 0600), 0);
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(registered(), (Lines{"file", "folder", "link", "pipe"}));
}

TEST_P(CheckModulesTest, SixteenModulesAreTheMost)
{
    for (const int count : {15, 16, 17, 20}) {
        SCOPED_TRACE(count);
        SetUp();
        const std::vector<std::string> names = numbered_names(count);
        modules(names);
        EXPECT_EQ(scan(), 0);
        const int kept = std::min(count, 16);
        EXPECT_EQ(registered(), Lines(names.begin(), names.begin() + kept));
        EXPECT_EQ(registry().app_cg_wait_obj_bmp, (1U << static_cast<unsigned>(kept)) - 1U);
        EXPECT_EQ(recording::journal(),
                  Lines{fatal(SCAN, "module: num[" + std::to_string(kept) + "], bmp[" +
                                        std::to_string((1 << kept) - 1) + "], name: [module" +
                                        std::to_string(kept - 1) + "|]")});
        EXPECT_EQ(app_cg_wait_obj_lookup("module16"), -1);
        EXPECT_EQ(fake_fs::calls().back(), "closedir()");
    }
}

TEST_P(CheckModulesTest, TheSeventeenthModuleEndsTheReading)
{
    modules(numbered_names(20)); // listed before "." and ".."
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(fake_fs::entries_asked_for(), 17U);
}

TEST_P(CheckModulesTest, ALongNameIsCutToFifteenCharacters)
{
    modules({"abcdefghijklmno", "ABCDEFGHIJKLMNOP", "abcdefghij0123456789"});
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(registered(), (Lines{"abcdefghijklmno", "ABCDEFGHIJKLMNO", "abcdefghij01234"}));
    EXPECT_TRUE(slots_are_zero_beyond_their_names());
    EXPECT_EQ(recording::journal(), Lines{fatal(SCAN, "module: num[3], bmp[7], name: [abcdefghij01234|]")});
    EXPECT_EQ(app_cg_wait_obj_lookup("abcdefghijklmno"), 0);
    EXPECT_EQ(app_cg_wait_obj_lookup("abcdefghij01234"), 2);
    EXPECT_EQ(app_cg_wait_obj_lookup("abcdefghij0123456789"), -1);
    EXPECT_EQ(app_cg_wait_obj_lookup("abcdefghij0123"), -1);
}

TEST_P(CheckModulesTest, NamesThatAreCutAlikeAreTwoModulesAndTheFirstAnswers)
{
    modules({"same-beginning-1", "same-beginning-2"});
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(registered(), (Lines{"same-beginning-", "same-beginning-"}));
    EXPECT_EQ(app_cg_wait_obj_lookup("same-beginning-"), 0);
}

TEST_P(CheckModulesTest, ARescanStartsFromNothing)
{
    modules({"a-long-name", "b", "c"});
    EXPECT_EQ(scan(), 0);
    fake_fs::remove_module("a-long-name");
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(registered(), (Lines{"b", "c"}));
    EXPECT_EQ(registry().app_cg_wait_obj_bmp, 3U);
    EXPECT_TRUE(slots_are_zero_beyond_their_names());
    EXPECT_EQ(app_cg_wait_obj_lookup("c"), 1);
    EXPECT_EQ(app_cg_wait_obj_lookup("a-long-name"), -1);
}

TEST_P(CheckModulesTest, AnotherRegistryThanTheDaemonsCanBeFilled)
{
    modules({"a"});
    app_cg_wait_obj_t other{};
    EXPECT_EQ(app_cg_deny_check_init_wait_obj(&other, fake_fs::MODULE_FOLDER), 0);
    EXPECT_EQ(other.app_cg_wait_obj_num, 1);
    EXPECT_EQ(registry().app_cg_wait_obj_num, 0);
    EXPECT_EQ(app_cg_wait_obj_lookup("a"), -1);
}

TEST_P(CheckModulesTest, ALookupComparesWholeNamesWithinTheCount)
{
    EXPECT_EQ(app_cg_wait_obj_lookup("a"), -1) << "nothing is registered";
    modules({"ab", "abc"});
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(app_cg_wait_obj_lookup("ab"), 0);
    EXPECT_EQ(app_cg_wait_obj_lookup("abc"), 1);
    EXPECT_EQ(app_cg_wait_obj_lookup("a"), -1);
    EXPECT_EQ(app_cg_wait_obj_lookup("abcd"), -1);
    EXPECT_EQ(app_cg_wait_obj_lookup("AB"), -1);
    EXPECT_EQ(app_cg_wait_obj_lookup(""), -1);
    registry().app_cg_wait_obj_num = 1;
    EXPECT_EQ(app_cg_wait_obj_lookup("abc"), -1);
}

TEST_P(CheckModulesTest, TheSummaryNeedsTheHandleAndNothingElse)
{
    modules({"a"});
    g_app_cg_global.zlog_handle = nullptr;
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(recording::journal(), Lines{});
}

TEST_P(CheckModulesTest, TheDumpPrintsTheRegistry)
{
    EXPECT_EQ(printed([] { (void)app_cg_dump_wait_obj(); }),
              "app_cg_wait_obj_num 0\napp_cg_wait_obj_bmp 0x0\n");
    modules({"a", "bcd"});
    EXPECT_EQ(scan(), 0);
    (void)recording::take();
    EXPECT_EQ(
        printed([] { EXPECT_EQ(app_cg_dump_wait_obj(), 0); }),
        "app_cg_wait_obj_num 2\napp_cg_wait_obj_bmp 0x3\nwait mod[0], name[a]\nwait mod[1], name[bcd]\n");
    EXPECT_EQ(recording::journal(), Lines{});
}

TEST_P(CheckModulesTest, TheDumpPrintsTheBitmapInHexadecimal)
{
    modules(numbered_names(16));
    EXPECT_EQ(scan(), 0);
    const std::string text = printed([] { (void)app_cg_dump_wait_obj(); });
    EXPECT_EQ(text.substr(0, text.find("wait mod")), "app_cg_wait_obj_num 16\napp_cg_wait_obj_bmp 0xffff\n");
    EXPECT_EQ(text.substr(text.rfind("wait mod")), "wait mod[15], name[module15]\n");
}
