// What is refused before a module serves, and what is only warned of.
#include "core/opening.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fake_loop.h"
#include "fake_store.h"

namespace kit_test
{

namespace
{

namespace fs = std::filesystem;

class Opening : public testing::Test
{
protected:
    Opening()
    {
        fake_loop::reset();
        fake_store::reset();
        std::string path = (fs::temp_directory_path() / "opening-XXXXXX").string();
        folder_ = mkdtemp(path.data());
        setenv("VX_PLATFORM_CONF", (folder_ / "no-settings").c_str(), 1);
        wanted_.name = "volt";
        wanted_.endpoint = "unix:/nowhere";
    }
    ~Opening() override
    {
        fs::remove_all(folder_);
        for (const char *name :
             {"VX_PLATFORM_CONF", "VX_MOM_ENDPOINT", "VX_MOM_ENDPOINT_1", "VX_MOM_ENDPOINT_28",
              "VX_MOM_AUTH_FILE", "VX_MOM_AUTH_FILE_1", "VX_MOM_DEADLINE_MS"}) {
            unsetenv(name);
        }
    }

    int open()
    {
        lines_.clear();
        kit::Module::Hooks hooks;
        hooks.check = [](const app_cg_kit_card_t &, app_cg_kit_check &) { return APP_CG_KIT_PASS; };
        return kit::open(wanted_, hooks, log_, opened_);
    }

    fs::path folder_;
    kit::Wanted wanted_;
    std::string lines_;
    const kit::Log log_{
        [this](int level, const std::string &text) { lines_ += std::to_string(level) + ' ' + text + '\n'; },
        APP_CG_KIT_DEBUG};
    kit::Opened opened_;
};

} // namespace

TEST_F(Opening, AnUsableNameIsEnough)
{
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(lines_, "");
    EXPECT_NE(opened_.module, nullptr);
}

TEST_F(Opening, NamesThatTheDaemonWouldNotKnowAreRefused)
{
    wanted_.name = "fifteen_bytes_x";
    EXPECT_EQ(open(), 0);
    wanted_.name = "sixteen_bytes_xx";
    EXPECT_EQ(open(), APP_CG_KIT_E_NAME);
    EXPECT_EQ(
        lines_.find("3 the name sixteen_bytes_xx has 16 bytes; the daemon would cut it to sixteen_bytes_x"),
        0U)
        << lines_;
    for (const char *name : {"", ".", "..", "a/b", "a\nb", "\x7f"}) {
        wanted_.name = name;
        EXPECT_EQ(open(), APP_CG_KIT_E_NAME) << name;
    }
}

TEST_F(Opening, AnEntryThatIsMissingIsAWarning)
{
    wanted_.module_folder = folder_.string();
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(lines_.find("4 " + folder_.string() + " has no entry volt"), 0U) << lines_;
    std::ofstream(folder_ / "volt") << "";
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(lines_, "");
}

TEST_F(Opening, AnEndpointOfItsOwnNeedsNoOtherSettings)
{
    setenv("VX_MOM_ENDPOINT", "nonsense", 1);
    setenv("VX_MOM_AUTH_FILE", "", 1);
    EXPECT_EQ(open(), 0);
    ASSERT_TRUE(fake_store::options().place);
    EXPECT_EQ(fake_store::options().place->endpoint, "unix:/nowhere");
    EXPECT_EQ(fake_store::options().place->credential_file, "");
    wanted_.endpoint = "nowhere";
    EXPECT_EQ(open(), APP_CG_KIT_E_SETTINGS);
    EXPECT_EQ(lines_.find("3 "), 0U);
    EXPECT_NE(lines_.find("nowhere"), std::string::npos) << lines_;
}

TEST_F(Opening, CredentialsAreThoseOfTheSettings)
{
    setenv("VX_MOM_AUTH_FILE", (folder_ / "missing").c_str(), 1);
    EXPECT_EQ(open(), APP_CG_KIT_E_SETTINGS);
    EXPECT_NE(lines_.find((folder_ / "missing").string()), std::string::npos) << lines_;
    std::ofstream(folder_ / "missing") << "user module-volt\npassword x\n";
    fs::permissions(folder_ / "missing", fs::perms::owner_read);
    EXPECT_EQ(open(), 0) << lines_;
    EXPECT_EQ(fake_store::options().place->credential_file, (folder_ / "missing").string());
}

TEST_F(Opening, SettingsAreReadWhenThereIsNoEndpoint)
{
    wanted_.endpoint.reset();
    setenv("VX_MOM_ENDPOINT", "unix:/somewhere", 1);
    EXPECT_EQ(open(), 0);
    EXPECT_FALSE(fake_store::options().place);
    setenv("VX_MOM_ENDPOINT", "nowhere", 1);
    EXPECT_EQ(open(), APP_CG_KIT_E_SETTINGS);
    EXPECT_NE(lines_.find("nowhere"), std::string::npos) << lines_;
    setenv("VX_MOM_ENDPOINT", "unix:/somewhere", 1);
    setenv("VX_MOM_DEADLINE_MS", "soon", 1);
    EXPECT_EQ(open(), APP_CG_KIT_E_SETTINGS);
    EXPECT_NE(lines_.find("VX_MOM_DEADLINE_MS"), std::string::npos) << lines_;
}

TEST_F(Opening, TheStoreOfDatabaseOneCounts)
{
    setenv("VX_MOM_AUTH_FILE", (folder_ / "missing").c_str(), 1);
    std::ofstream(folder_ / "own") << "user module-volt\npassword x\n";
    fs::permissions(folder_ / "own", fs::perms::owner_read);
    setenv("VX_MOM_AUTH_FILE_1", (folder_ / "own").c_str(), 1);
    EXPECT_EQ(open(), 0) << lines_;
    EXPECT_EQ(fake_store::options().place->credential_file, (folder_ / "own").string());
    wanted_.endpoint.reset();
    setenv("VX_MOM_ENDPOINT", "nowhere", 1);
    setenv("VX_MOM_ENDPOINT_28", "nowhere either", 1);
    setenv("VX_MOM_ENDPOINT_1", "unix:/host", 1);
    EXPECT_EQ(open(), 0) << lines_;
    wanted_.lock_folder = folder_.string();
    ASSERT_EQ(open(), 0);
    kit::Wanted other = wanted_;
    other.endpoint = "unix:/host";
    kit::Opened second;
    EXPECT_EQ(kit::open(other, {}, log_, second), APP_CG_KIT_E_TAKEN);
}

TEST_F(Opening, MistakesInTheSettingsFileGoToTheModulesLog)
{
    std::ofstream(folder_ / "settings") << "no equals sign\n";
    setenv("VX_PLATFORM_CONF", (folder_ / "settings").c_str(), 1);
    wanted_.endpoint.reset();
    EXPECT_EQ(open(), 0);
    EXPECT_NE(
        lines_.find("4 platform: " + (folder_ / "settings").string() + ":1: not of the form NAME=VALUE"),
        std::string::npos)
        << lines_;
}

TEST_F(Opening, ANameIsLockedForTheStoreThatIsUsed)
{
    wanted_.lock_folder = folder_.string();
    ASSERT_EQ(open(), 0);
    const auto open_other = [&](std::optional<std::string> endpoint) {
        kit::Wanted wanted = wanted_;
        wanted.endpoint = std::move(endpoint);
        kit::Opened other;
        return kit::open(wanted, {}, log_, other);
    };
    EXPECT_EQ(open_other("unix:/nowhere"), APP_CG_KIT_E_TAKEN);
    EXPECT_EQ(open_other("unix:/elsewhere"), 0);
    setenv("VX_MOM_ENDPOINT", "unix:/nowhere", 1);
    EXPECT_EQ(open_other(std::nullopt), APP_CG_KIT_E_TAKEN);
    unsetenv("VX_MOM_ENDPOINT");
    EXPECT_EQ(open_other(std::nullopt), 0);
}

TEST_F(Opening, ALockThatIsNotPossibleIsAWarning)
{
    wanted_.lock_folder = (folder_ / "missing").string();
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(lines_.find("4 cannot open the lock file"), 0U) << lines_;
}

} // namespace kit_test
