// Scenario files: refused with a place in the text, or made of statements that read the same again.
#include "scenario.h"

#include "base/text.h"

#include "fuzz.h"

namespace
{

using fuzz::require;

void check_problem(const cg::scenario::Scenario &scenario, const std::string &text,
                   const cg::scenario::Problem &problem)
{
    const auto lines = fuzz::parts_of(text, '\n');
    require(cg::visible(problem.message) == problem.message, "a message is one line", problem.message);
    require(problem.line >= 1 && problem.line <= lines.size(), "a mistake is on a line");
    require(problem.column >= 1 && problem.column <= lines[problem.line - 1].size() + 2,
            "a mistake is on its line or just behind", lines[problem.line - 1]);
    require(fuzz::parts_of(shown(scenario, text, problem), '\n').size() == 3,
            "a mistake is shown in three lines");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(fuzz::view_of(data, size));
    const cg::scenario::Scenario scenario = cg::scenario::read_scenario("file", text);
    std::string again;
    for (const auto &statement : scenario.statements) {
        again += statement.text + '\n';
        require(cg::visible(statement.text) == statement.text ||
                    statement.text.find('\t') != std::string::npos,
                "a statement drives no terminal", statement.text);
    }
    for (const auto &problem : scenario.problems) {
        check_problem(scenario, text, problem);
    }
    const auto second = cg::scenario::read_scenario("file", again);
    require(second.statements.size() == scenario.statements.size(), "statements read again are as many",
            again);
    for (size_t i = 0; i < second.statements.size(); ++i) {
        require(second.statements[i].text == scenario.statements[i].text &&
                    second.statements[i].what.index() == scenario.statements[i].what.index(),
                "a statement read again is the same", scenario.statements[i].text);
    }
    return 0;
}
