// What may stand at the end of a command line.
#include "command_line/completion.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "command_line/cli.h"

namespace cg
{

namespace
{

// A line up to the cursor; a blank at its end begins a word.
Completion at_end_of(const std::string &line)
{
    return completion_of(all_verbs(), split(line, ' '));
}

std::vector<std::string> words_at_end_of(const std::string &line)
{
    std::vector<std::string> words;
    for (const Candidate &candidate : at_end_of(line).words) {
        words.push_back(candidate.word);
    }
    return words;
}

bool offers(const std::string &line, const std::string &word)
{
    const std::vector<std::string> words = words_at_end_of(line);
    return std::find(words.begin(), words.end(), word) != words.end();
}

} // namespace

TEST(Completion, OffersVerbsAndThoseBelowThem)
{
    EXPECT_TRUE(offers("", "list"));
    EXPECT_FALSE(offers("", "manual"));
    EXPECT_EQ(words_at_end_of("card "), (std::vector<std::string>{"plug", "online", "offline", "pull"}));
    EXPECT_EQ(words_at_end_of("--json card "), words_at_end_of("card "));
    EXPECT_EQ(words_at_end_of("--socket card "), words_at_end_of("")) << "card is a value there";
    EXPECT_FALSE(at_end_of("car").words.front().description.empty());
    EXPECT_TRUE(completion_of(all_verbs(), {}).words.size() > 10);
}

TEST(Completion, OffersTheOptionsOfTheVerb)
{
    EXPECT_TRUE(offers("-", "--endpoint"));
    EXPECT_TRUE(offers("card plug 1/3 --no", "--node-type"));
    EXPECT_FALSE(offers("list -", "--node-type"));
}

TEST(Completion, OffersTheValuesOfAnOptionWhereverItStands)
{
    for (const char *line : {"role m", "--json role m", "--endpoint x role --json m"}) {
        EXPECT_EQ(words_at_end_of(line), (std::vector<std::string>{"master", "slave", "candidate", "none"}))
            << line;
    }
    EXPECT_EQ(at_end_of("--socket ").kind, "FILE");
    EXPECT_EQ(at_end_of("show 1/3 --socket ").kind, "FILE") << "the program's own stand behind each verb";
    EXPECT_EQ(at_end_of("show 1/3 --socket=a ").words.size(), 0U);
    EXPECT_EQ(at_end_of("acl --secrets ").kind, "FOLDER");
    EXPECT_EQ(at_end_of("show --no-such-option=").kind, "");
}

TEST(Completion, KeepsWhatStandsBeforeTheValue)
{
    const Completion one = at_end_of("list --state wai");
    EXPECT_EQ(one.before, "");
    EXPECT_TRUE(one.is_list);
    EXPECT_EQ(at_end_of("list --state waiting,den").before, "waiting,");
    EXPECT_EQ(at_end_of("list --state=waiting,den").before, "--state=waiting,");
    EXPECT_EQ(at_end_of("list --color=a").before, "--color=");
    EXPECT_FALSE(at_end_of("list --color a,").is_list);
}

TEST(Completion, SaysOfWhichKindAnArgumentIs)
{
    EXPECT_EQ(at_end_of("card pull ").kind, "POS");
    EXPECT_EQ(at_end_of("card pull 1/3 ").kind, "") << "takes no second one";
    EXPECT_EQ(at_end_of("get ").kind, "TYPE");
    EXPECT_EQ(at_end_of("watch card_info ").kind, "TYPE") << "takes several";
    const Completion field = at_end_of("get card_info devid=1 slo");
    EXPECT_EQ(field.kind, "FIELD=VALUE");
    EXPECT_EQ(field.about, "card_info");
    EXPECT_EQ(at_end_of("debug update_dev dev").about, "update_dev");
}

TEST(Completion, LeavesAnotherProgramsLineAlone)
{
    EXPECT_EQ(at_end_of("module run m1 -- tru").kind, "--");
    EXPECT_EQ(at_end_of("module run m1 -- cgctl lis").kind, "--");
    EXPECT_TRUE(at_end_of("module run m1 -- cgctl lis").words.empty());
}

TEST(Completion, KnowsWhereTheLineLooksForStoreAndShell)
{
    EXPECT_EQ(at_end_of("--endpoint unix:/a show ").endpoint, "unix:/a");
    EXPECT_EQ(at_end_of("show --endpoint=unix:/a --socket /b ").endpoint, "unix:/a");
    EXPECT_EQ(at_end_of("show --endpoint=unix:/a --socket /b ").socket, "/b");
    EXPECT_EQ(at_end_of("show ").endpoint, "");
}

} // namespace cg
