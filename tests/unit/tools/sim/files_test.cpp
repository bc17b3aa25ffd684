// Scenario files, good ones and others.
#include "files.h"

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

#include "base/failure.h"
#include "base/json.h"
#include "unit/support/folder.h"

namespace cg
{

namespace
{

using testing::HasSubstr;

class Files : public testing::Test
{
protected:
    std::string file(const std::string &name, const std::string &text)
    {
        std::ofstream(folder_.path(name)) << text;
        return folder_.path(name);
    }

    // "STATUS: message" of the refusal.
    std::string refusal(const std::vector<std::string> &files)
    {
        try {
            read_files(output_, files);
        } catch (const Failure &failure) {
            return std::to_string(failure.status()) + ": " + failure.what();
        }
        return "";
    }

    Folder folder_;
    std::ostringstream out_;
    std::ostringstream err_;
    Output output_{out_, err_, false, "cg_sim"};
};

} // namespace

TEST_F(Files, AreReadInTheirOrder)
{
    const auto scenarios = read_files(output_, {file("a", "wait 1s\n"), file("b", "wait 2s\nwait 3s")});
    ASSERT_EQ(scenarios.size(), 2U);
    EXPECT_EQ(scenarios[0].file, folder_.path("a"));
    EXPECT_EQ(scenarios[1].statements.size(), 2U);
    EXPECT_EQ(confirm(output_, scenarios), done);
    EXPECT_EQ(err_.str(), "cg_sim: " + folder_.path("a") + ": syntax OK, 1 statement\ncg_sim: " +
                              folder_.path("b") + ": syntax OK, 2 statements\n");
}

TEST_F(Files, AllMistakesOfAllFilesAreReported)
{
    EXPECT_EQ(refusal({file("a", "wate 1s\n"), file("b", "wait 2s"), file("c", "plug\nwait")}), "2: ");
    EXPECT_THAT(err_.str(), HasSubstr(folder_.path("a") + ":1:1: \"wate\" is not a statement; nearest: wait\n"
                                                          "    wate 1s\n    ^\n"));
    EXPECT_THAT(err_.str(), HasSubstr("cg_sim: " + folder_.path("a") + ": 1 mistake; nothing is played\n"));
    EXPECT_THAT(err_.str(), HasSubstr("cg_sim: " + folder_.path("c") + ": 2 mistakes; nothing is played\n"));
    EXPECT_EQ(out_.str(), "");
}

TEST_F(Files, MistakesAreJsonWhenThatIsWanted)
{
    output_.json = true;
    EXPECT_EQ(refusal({file("a", "wait 1s\nwait")}), "2: ");
    EXPECT_EQ(Json::parse(err_.str()),
              (Json{{"error", folder_.path("a") + ": 1 mistake; nothing is played"},
                    {"mistakes", Json::array({{{"file", folder_.path("a")},
                                               {"line", 2},
                                               {"column", 6},
                                               {"message", "a time as in 5s is missing here"}}})}}));
}

TEST_F(Files, NoFilesAreRefused)
{
    EXPECT_EQ(refusal({folder_.path("none")}), "1: " + folder_.path("none") + ": cannot be read");
    EXPECT_EQ(refusal({folder_.path("")}), "1: " + folder_.path("") + ": cannot be read");
    EXPECT_EQ(refusal({file("empty", "")}), "1: " + folder_.path("empty") + ": it is empty");
    EXPECT_THAT(refusal({file("long", std::string((1U << 20U) + 1, '#'))}), HasSubstr("2: "));
    EXPECT_EQ(refusal({file("full", std::string(1U << 20U, '#'))}), "");
}

} // namespace cg
