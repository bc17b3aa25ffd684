// Scenario files.
#include "files.h"

#include <algorithm>
#include <fstream>
#include <iostream>

#include "base/failure.h"
#include "base/json.h"
#include "base/text.h"

namespace cg
{

namespace
{

constexpr std::size_t largest_file = std::size_t{1} << 20U;
constexpr std::size_t most_mistakes = 20;

std::string text_of_file(const std::string &name)
{
    const bool is_input = name == "-";
    const std::string shown_name = is_input ? "standard input" : visible(name);
    std::ifstream file(name);
    std::istream &input = is_input ? std::cin : file;
    std::string text(largest_file + 1, '\0');
    input.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(input.gcount()));
    if (input.bad() || (!is_input && !file.is_open())) {
        throw Failure(failed, shown_name + ": cannot be read");
    }
    if (text.size() > largest_file) {
        throw Failure(wrong_usage, shown_name + ": longer than a megabyte");
    }
    if (text.empty() && !is_input) {
        throw Failure(failed, shown_name + ": it is empty");
    }
    return text;
}

// Each mistake with its line and a caret, or with --json in one object.
void report_mistakes(const Output &output, const scenario::Scenario &scenario)
{
    const std::string file = visible(scenario.file);
    const std::size_t count = scenario.problems.size();
    const std::string summary =
        file + ": " + std::to_string(count) + (count == 1 ? " mistake" : " mistakes") + "; nothing is played";
    Json mistakes = Json::array();
    for (const scenario::Problem &problem : scenario.problems) {
        mistakes.push_back({{"file", scenario.file},
                            {"line", problem.line},
                            {"column", problem.column},
                            {"message", problem.message}});
        if (!output.json && mistakes.size() <= most_mistakes) {
            output.err << file << ':' << problem.line << ':' << problem.column << ": " << problem.message
                       << '\n'
                       << problem.excerpt << '\n';
        }
    }
    if (output.json) {
        output.err << dump(Json{{"error", summary}, {"mistakes", mistakes}}) << std::endl;
    } else {
        output.error(summary);
    }
}

} // namespace

std::vector<scenario::Scenario> read_files(const Output &output, const std::vector<std::string> &files)
{
    std::vector<scenario::Scenario> scenarios;
    bool right = true;
    for (const std::string &file : files) {
        const std::string name = file == "-" ? "standard input" : file;
        scenarios.push_back(scenario::parse_scenario(name, text_of_file(file)));
        if (!scenarios.back().problems.empty()) {
            report_mistakes(output, scenarios.back());
            right = false;
        }
    }
    if (!right) {
        throw Failure(wrong_usage, "");
    }
    return scenarios;
}

int confirm(const Output &output, const std::vector<scenario::Scenario> &scenarios)
{
    for (const scenario::Scenario &scenario : scenarios) {
        const std::size_t count = scenario.statements.size();
        output.notice(visible(scenario.file) + ": syntax OK, " + std::to_string(count) +
                      (count == 1 ? " statement" : " statements"));
    }
    return done;
}

} // namespace cg
