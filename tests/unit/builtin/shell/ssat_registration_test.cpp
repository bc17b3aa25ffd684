// Opening the debug shell and offering commands, as the daemon does it.
//
// These calls return numbers that no client ever sees, so they are made in the test's own process, not in a
// child: a child could hand over one status at most, and not which of many refusals was missing.
#include <cerrno>
#include <filesystem>
#include <string>

#include "ssat_fixture.h"

namespace
{

using ssat_test::module;
using ssat_test::nothing;
using ssat_test::Ssat;
using testing_platform::Child;
using testing_platform::content_of;
using testing_platform::patience;
using testing_platform::ScopedSetting;

class SsatRegistration : public Ssat
{
protected:
    ~SsatRegistration() override { vx_global_finish(global); }
    vx_global_t *global = vx_global_init(module, nullptr);
};

TEST_F(SsatRegistration, OpeningMayFailAndThenSucceed)
{
    testing_platform::write_file(path, "somebody's file");
    testing::internal::CaptureStderr();
    EXPECT_EQ(ssat_lib_init(global, module), -EEXIST);
    EXPECT_LT(ssat_reg_mod_cmd(module, "nothing", 0, "void", nothing), 0) << "there is no shell yet";
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(content_of(path), "somebody's file");
    std::filesystem::remove(path);
    EXPECT_EQ(ssat_lib_init(global, module), 0);
    EXPECT_EQ(ssat_lib_init(global, module), 0) << "it is open";
    EXPECT_EQ(ssat_reg_mod_cmd(module, "nothing", 0, "void", nothing), 0);
    EXPECT_LT(ssat_lib_init(global, "other"), 0) << "a process has one shell";
}

TEST_F(SsatRegistration, OpeningNeedsAContextAndAModuleThatCanNameAFile)
{
    EXPECT_LT(ssat_lib_init(nullptr, module), 0);
    EXPECT_LT(ssat_lib_init(global, nullptr), 0);
    EXPECT_LT(ssat_lib_init(global, ""), 0);
    EXPECT_LT(ssat_lib_init(global, "../test"), 0);
}

TEST_F(SsatRegistration, PathThatIsTooLongForASocketIsRefused)
{
    const ScopedSetting too_long("SSAT_SOCKET", "/" + std::string(200, 'x'));
    testing::internal::CaptureStderr();
    EXPECT_EQ(ssat_lib_init(global, module), -ENAMETOOLONG);
    testing::internal::GetCapturedStderr();
}

TEST_F(SsatRegistration, ArgumentsThatAreNoneAreRefused)
{
    ASSERT_EQ(ssat_lib_init(global, module), 0);
    EXPECT_LT(ssat_reg_mod_cmd(nullptr, "c", 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd("other", "c", 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, nullptr, 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, "", 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, "two words", 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, "c", 1, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, "c", 0, "void", nullptr), 0);
    for (const char *args_template : {"", " ", "void void", "a", "a=%s", "a=%d,b=%d", "=%d", "a=%d a=%d",
                                      "a=%dx", "a=%d b=%d c=%d d=%d e=%d f=%d g=%d h=%d i=%d"}) {
        EXPECT_LT(ssat_reg_mod_cmd(module, "c", 0, args_template, nothing), 0) << args_template;
    }
    EXPECT_LT(ssat_reg_mod_cmd(module, "c", 0, nullptr, nothing), 0);
}

int32_t other_nothing()
{
    return 8;
}

TEST_F(SsatRegistration, CommandRegisteredAgainTakesTheEarlierOnesPlace)
{
    ASSERT_EQ(ssat_lib_init(global, module), 0);
    EXPECT_EQ(ssat_reg_mod_cmd(module, "nothing", 0, "void", nothing), 0);
    EXPECT_EQ(ssat_reg_mod_cmd(module, "later", 0, "void", nothing), 0);
    EXPECT_EQ(ssat_reg_mod_cmd(module, "nothing", 0, "void", other_nothing), 0);
    Child served{[&] { return vx_global_run(global); }};
    EXPECT_EQ(run("nothing").result, 8);
    EXPECT_EQ(ssat::commands(path, patience).size(), 2U);
}

} // namespace
