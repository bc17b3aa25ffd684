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

} // namespace cg
