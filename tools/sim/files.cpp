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

std::string read_all(std::istream &input, const std::string &name)
{
    std::string text;
    char character = 0;
    while (input.get(character)) {
        text += character;
        if (text.size() > largest_file) {
            throw Failure(wrong_usage, visible(name) + ": too long for a scenario; up to a megabyte");
        }
    }
    if (input.bad()) {
        throw Failure(failed, visible(name) + ": cannot be read");
    }
    return text;
}

std::string text_of_file(const std::string &name)
{
    if (name == "-") {
        return read_all(std::cin, "standard input");
    }
    std::ifstream file(name);
    if (!file || file.peek() == std::ifstream::traits_type::eof()) {
        const bool is_empty = file.eof() && !file.bad();
        throw Failure(failed, visible(name) + (is_empty ? ": there is nothing in it" : ": cannot be read"));
    }
    return read_all(file, name);
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
