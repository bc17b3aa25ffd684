// What a check of the doctor found.
#include "doctor/finding.h"

#include <gtest/gtest.h>

namespace cg
{

namespace
{

store::Inspected error(const std::string &text)
{
    return {store::Inspected::Kind::error, text, {}};
}

} // namespace

TEST(Finding, IsWellWhenThereIsNothingToFix)
{
    EXPECT_TRUE((Finding{Severity::ok, ""}.is_well()));
    EXPECT_TRUE((Finding{Severity::skipped, ""}.is_well()));
    EXPECT_FALSE((Finding{Severity::skipped, "", as_administrator}.is_well()));
    EXPECT_FALSE((Finding{Severity::fail, ""}.is_well()));
}

TEST(Finding, ForAnErrorOfTheServerSaysWhoMayAsk)
{
    EXPECT_EQ(refused(error("NOPERM no"), "x").severity, Severity::skipped);
    EXPECT_EQ(refused(error("NOPERM no"), "x").fix, as_administrator);
    EXPECT_EQ(refused(error("ERR unknown command 'A'"), "x").severity, Severity::skipped);
    EXPECT_EQ(refused(error("ERR unknown command 'A'"), "x").fix, "");
    EXPECT_EQ(refused(error("OOM"), "x").severity, Severity::fail);
    EXPECT_EQ(refused(error("OOM"), "x").fix, "x");
}

TEST(Listed, IsAsLongAsAReaderWantsIt)
{
    EXPECT_EQ(listed({}), "");
    EXPECT_EQ(listed({"a", "b"}), "a, b");
    EXPECT_EQ(listed(std::vector<std::string>(8, "a")), "a, a, a, a, a, a, a, a");
    EXPECT_EQ(listed(std::vector<std::string>(10, "a")), "a, a, a, a, a, a, a, a and 2 more");
}

TEST(Listed, DatabasesAndTheirSettingsAreEnumerated)
{
    EXPECT_EQ(databases_text({1}), "database 1");
    EXPECT_EQ(databases_text({33, 28}), "databases 28 and 33");
    EXPECT_EQ(databases_text({1, 28, 33}), "databases 1, 28 and 33");
    const auto setting = [](int32_t database) {
        return platform::Setting{database == 1 ? "NAME" : "NAME_" + std::to_string(database / 10), ""};
    };
    EXPECT_EQ(setting_names({1}, setting), "NAME");
    EXPECT_EQ(setting_names({1, 28, 29, 33}, setting), "NAME, NAME_2 and NAME_3") << "each once";
}

} // namespace cg
