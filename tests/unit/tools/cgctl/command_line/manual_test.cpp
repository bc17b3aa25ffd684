// The manual page: made from the verbs and from prose.
#include "command_line/manual.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/failure.h"
#include "command_line/cli.h"
#include "unit/support/folder.h"

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

} // namespace

TEST(Manual, IsTheCopyInTheSources)
{
    EXPECT_TRUE(manual_page(all_verbs(), source / "docs/man/cgctl") == text_of(source / "docs/cgctl.1"))
        << "run: cmake --build build/dev --target manual";
}

TEST(Manual, NamesEveryVerbAndOption)
{
    const std::string page = manual_page(all_verbs(), source / "docs/man/cgctl");
    for_each_verb(all_verbs(), [&page](const Verb &verb) {
        if (!verb.path.empty()) {
            EXPECT_NE(page.find("\n.Ss " + verb.path + '\n'), std::string::npos) << verb.path;
        }
        for (const Argument &option : verb.options) {
            EXPECT_NE(page.find("Fl Fl " + option.names.back().substr(2)), std::string::npos)
                << option.names.back();
        }
    });
}

TEST(Manual, ProseAndVerbsBelongTogether)
{
    const Folder folder;
    const std::string prose = folder.path("prose");
    std::filesystem::copy(source / "docs/man/cgctl", prose);
    std::ofstream(prose + "/lits.mdoc") << "Nothing.\n";
    EXPECT_THROW(manual_page(all_verbs(), prose), Failure);
    std::filesystem::remove(prose + "/lits.mdoc");
    EXPECT_NO_THROW(manual_page(all_verbs(), prose));
    std::filesystem::remove(prose + "/list.mdoc");
    EXPECT_THROW(manual_page(all_verbs(), prose), Failure);
    EXPECT_THROW(manual_page(all_verbs(), folder.path("none")), Failure);
}

TEST(Manual, TextsCannotBecomeCommandsOfTheFormatter)
{
    const Folder folder;
    for (const char *name : {"head", "about"}) {
        std::ofstream(folder.path(std::string(name) + ".mdoc")) << ".Pp\n";
    }
    Verb program;
    program.name = "cgctl";
    program.options.push_back({.names = {"--odd"}, .label = "X", .description = ".Sh \\fBodd"});
    const std::string page = manual_page(program, folder.path(""));
    EXPECT_NE(page.find("\n\\&.Sh \\efBodd.\n"), std::string::npos) << page;
}

} // namespace cg
