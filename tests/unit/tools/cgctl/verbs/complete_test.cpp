// What a completion script is told.
#include <gtest/gtest.h>

#include <cstdlib>

#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

TEST(Complete, SaysFirstWhatFollows)
{
    EXPECT_TRUE(run_cgctl({"complete", "--", "sho"}).out.starts_with("words\nlist\tList "));
    EXPECT_TRUE(run_cgctl({"complete", "--", "list", "--state", "a"}).out.starts_with("list\nwaiting\n"));
    EXPECT_EQ(run_cgctl({"complete", "--", "--socket", ""}).out, "file\n");
    EXPECT_EQ(run_cgctl({"complete", "--", "acl", "--secrets", ""}).out, "folder\n");
    EXPECT_EQ(run_cgctl({"complete", "--", "module", "run", "m", "--", ""}).out, "command\n");
    const std::string fields = run_cgctl({"complete", "--", "get", "card_info", ""}).out;
    EXPECT_TRUE(fields.starts_with("open\n")) << fields;
    EXPECT_NE(fields.find("\ndevid=\n"), std::string::npos) << fields;
    EXPECT_EQ(run_cgctl({"complete", "--", "card", "pull", "1/3", ""}).out, "words\n");
}

TEST(Complete, OffersFullTypeNamesOnlyWhereOneWasBegun)
{
    const std::string brief = run_cgctl({"complete", "--", "get", ""}).out;
    EXPECT_NE(brief.find("\ncard_info\n"), std::string::npos) << brief;
    EXPECT_EQ(brief.find("p_dev"), std::string::npos);
    EXPECT_NE(run_cgctl({"complete", "--", "get", "p_"}).out.find("\np_dev.card_info\n"), std::string::npos);
}

TEST(Complete, IsSilentWhereNobodyAnswers)
{
    const Outcome outcome = run_cgctl({"complete", "--", "--endpoint", "unix:/nonexistent/x", "show", ""});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out + outcome.err, "");
    unsetenv("VX_MOM_ENDPOINT");
}

} // namespace cg
