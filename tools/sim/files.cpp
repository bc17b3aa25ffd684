// Scenario files.
#include "files.h"

#include <fstream>
#include <iostream>

#include "base/failure.h"
#include "base/text.h"
#include "report.h"

namespace cg
{

namespace
{

constexpr std::size_t largest_file = std::size_t{1} << 20U;

std::string text_of_file(const std::string &name)
{
    const bool is_input = name == "-";
    const std::string shown_name = is_input ? "standard input" : visible(name);
    std::ifstream file;
    if (!is_input) {
        file.open(name);
    }
    std::istream &input = is_input ? std::cin : file;
    std::string text(largest_file + 1, '\0');
    input.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(input.gcount()));
    if (input.bad() || (!is_input && !file.is_open())) {
        throw Failure(failed, shown_name + ": cannot be read");
    }
    if (text.size() > largest_file) {
        throw Failure(wrong_usage, shown_name + ": too long for a scenario; up to a megabyte");
    }
    if (text.empty() && !is_input) {
        throw Failure(failed, shown_name + ": there is nothing in it");
    }
    return text;
}

} // namespace

std::vector<scenario::Scenario> read_files(const Output &output, const std::vector<std::string> &files)
{
    std::vector<scenario::Scenario> scenarios;
    bool right = true;
    for (const std::string &file : files) {
        const std::string text = text_of_file(file);
        scenarios.push_back(scenario::read_scenario(file == "-" ? "standard input" : file, text));
        if (!scenarios.back().problems.empty()) {
            report_mistakes(output, scenarios.back(), text);
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
        output.notice(visible(scenario.file) + " is right: " + std::to_string(scenario.statements.size()) +
                      " statements");
    }
    return done;
}

} // namespace cg
