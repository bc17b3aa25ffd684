// Help and pages show what the command takes, and all of it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/text.h"
#include "command_line/cli.h"
#include "command_lines.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

namespace
{

const std::filesystem::path source{PROJECT_SOURCE};

std::string text_of(const std::filesystem::path &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// The pages with a suffix of one of these, below the folders that hold some.
std::vector<std::filesystem::path> pages(const std::vector<std::string> &suffixes)
{
    std::vector<std::filesystem::path> found{source / "README.md", source / "HACKING.md"};
    for (const char *folder : {"docs", "kit"}) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(source / folder)) {
            found.push_back(entry.path());
        }
    }
    std::erase_if(found, [&suffixes](const std::filesystem::path &path) {
        return std::find(suffixes.begin(), suffixes.end(), path.extension()) == suffixes.end();
    });
    return found;
}

// Why a page's command would not be taken; empty when it would.
std::string problem_of(const ShellText &shown, const CommandLine &command)
{
    const std::string problem = usage_problem(command);
    const bool only_short = problem.find("is required") != std::string::npos ||
                            problem.find("requires a verb") != std::string::npos;
    return shown.in_a_sentence && only_short ? "" : problem;
}

// Returns how many commands there were; every one that would not be taken is a failure.
int expect_taken(const std::filesystem::path &path, const std::vector<ShellText> &shown)
{
    int count = 0;
    for (const ShellText &text : shown) {
        for (const CommandLine &command : commands_in(text.text)) {
            ++count;
            EXPECT_EQ(problem_of(text, command), "") << path << ": " << text.text;
        }
    }
    return count;
}

} // namespace

TEST(Help, EveryVerbHasExamplesThatTheParserTakes)
{
    for_each_verb(all_verbs(), [](const Verb &verb) {
        EXPECT_FALSE(verb.examples.empty()) << verb.path;
        for (const std::string &example : verb.examples) {
            const auto commands = commands_in(example);
            EXPECT_FALSE(commands.empty()) << example;
            for (const CommandLine &command : commands) {
                EXPECT_EQ(usage_problem(command), "") << example;
            }
        }
    });
}

TEST(Help, OfEveryVerbShowsItsExamplesOptionsAndTheirValues)
{
    for_each_verb(all_verbs(), [](const Verb &verb) {
        std::vector<std::string> arguments =
            verb.path.empty() ? std::vector<std::string>{} : split(verb.path, ' ');
        arguments.emplace_back("--help");
        const Outcome outcome = run_cgctl(arguments);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_NE(outcome.out.find("Examples:\n  cgctl"), std::string::npos) << verb.path;
        for (const Argument &option : verb.options) {
            const std::string shown = option.names.back() + (option.label.empty() ? "" : ' ' + option.label);
            EXPECT_NE(outcome.out.find(shown), std::string::npos) << verb.path << ' ' << shown;
            EXPECT_FALSE(option.description.empty()) << verb.path << ' ' << shown;
        }
    });
}

TEST(Help, SaysWhereACommandMayFollow)
{
    EXPECT_NE(run_cgctl({"module", "run", "--help"}).out.find("[OPTIONS] NAME -- COMMAND [ARG...]\n"),
              std::string::npos);
    EXPECT_EQ(run_cgctl({"show", "--help"}).out.find("COMMAND"), std::string::npos);
}

TEST(Help, ShowsTheWordsThatAnArgumentMayBe)
{
    EXPECT_NE(run_cgctl({"role", "--help"}).out.find("ROLE master|slave|candidate|none"), std::string::npos);
    EXPECT_NE(run_cgctl({"completion", "--help"}).out.find("SHELL bash|zsh"), std::string::npos);
}

TEST(Help, LeavesOutWhatIsNotForPeople)
{
    for (const Verb &verb : all_verbs().verbs) {
        EXPECT_NE(verb.name, "manual");
        EXPECT_NE(verb.name, "complete");
    }
    EXPECT_EQ(usage_problem({"complete", "--", "show"}), "");
}

TEST(Pages, ShowOnlyCommandsThatThereAre)
{
    int count = 0;
    for (const auto &path : pages({".md"})) {
        count += expect_taken(path, shown_in_markdown(text_of(path)));
    }
    for (const auto &path : pages({".mdoc", ".1", ".3", ".5", ".8"})) {
        count += expect_taken(path, shown_in_mdoc(text_of(path)));
    }
    EXPECT_GT(count, 40);
}

TEST(Pages, ACommandThatThereIsNotIsFound)
{
    const std::string page =
        "Say `cgctl lits`, or\n```sh\nX=1 cgctl show 1/3 | sort && cgctl list --colour # cgctl x\n```\n";
    std::vector<std::string> problems;
    for (const ShellText &shown : shown_in_markdown(page)) {
        for (const CommandLine &command : commands_in(shown.text)) {
            problems.push_back(problem_of(shown, command));
        }
    }
    ASSERT_EQ(problems.size(), 3U);
    EXPECT_EQ(problems[0], "");
    EXPECT_NE(problems[1].find("--colour"), std::string::npos);
    EXPECT_NE(problems[2].find("unknown verb"), std::string::npos);
}

TEST(Pages, CommandsAreReadAsAShellReadsThem)
{
    const auto commands = commands_in("cgctl card plug 1/3 --name \"line card\" > file \\\n  --type 3\n"
                                      "sh -c 'cgctl lits' | /usr/bin/cgctl list; . <(cgctl completion bash)");
    ASSERT_EQ(commands.size(), 3U);
    EXPECT_EQ(commands[0], (CommandLine{"card", "plug", "1/3", "--name", "line card", "--type", "3"}));
    EXPECT_EQ(commands[1], CommandLine{"list"});
    EXPECT_EQ(commands[2], (CommandLine{"completion", "bash"}));
}

} // namespace cg
