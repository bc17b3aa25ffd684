// Scenario files: refused with a place in the text, or made of statements that read the same again.
#include "scenario.h"

#include "base/text.h"

#include "fuzz.h"

namespace
{

using fuzz::require;

void check_problem(const std::vector<std::string> &lines, const cg::scenario::Problem &problem)
{
    require(cg::visible(problem.message) == problem.message, "a message is one line", problem.message);
    require(problem.line >= 1 && problem.line <= lines.size(), "a mistake is on a line");
    require(problem.column >= 1 && problem.column <= lines[problem.line - 1].size() + 2,
            "a mistake is on its line or just behind", lines[problem.line - 1]);
    require(fuzz::parts_of(problem.excerpt, '\n').size() == 2, "an excerpt is two lines", problem.excerpt);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(fuzz::view_of(data, size));
    const auto lines = fuzz::parts_of(text, '\n');
    const cg::scenario::Scenario scenario = cg::scenario::parse_scenario("file", text);
    std::string again;
    for (const auto &statement : scenario.statements) {
        require(statement.line >= 1 && statement.line <= lines.size(), "a statement is on a line");
        again += std::string(lines[statement.line - 1]) + '\n';
        if (const auto *expect = std::get_if<cg::scenario::Expect>(&statement.what)) {
            require(cg::visible(expect->text) == expect->text || expect->text.find('\t') != std::string::npos,
                    "an expectation drives no terminal", expect->text);
        }
    }
    for (const auto &problem : scenario.problems) {
        check_problem(lines, problem);
    }
    const auto second = cg::scenario::parse_scenario("file", again);
    require(second.statements.size() == scenario.statements.size(), "statements read again are as many",
            again);
    for (size_t i = 0; i < second.statements.size(); ++i) {
        require(second.statements[i].what.index() == scenario.statements[i].what.index(),
                "a statement read again is the same", lines[scenario.statements[i].line - 1]);
    }
    return 0;
}
