// A debug command's arguments against its template. A command changes a running daemon, so what is let
// through must be exactly what was typed.
//
// Input: the template, then an argument on each line.
#include <algorithm>
#include <optional>

#include "shell/arguments.h"

#include "fuzz.h"

namespace
{

using fuzz::require;
using ssat::Names;
using ssat::Values;
using Arguments = std::vector<std::string>;

std::string template_of(const Names &names)
{
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : " ") + name + "=%d";
    }
    return text.empty() ? "void" : text;
}

// The number that a text is, read another way; nothing when it is none.
std::optional<int32_t> number_in(std::string text)
{
    const bool negative = !text.empty() && text.front() == '-';
    text.erase(0, negative ? 1 : 0);
    const bool hexadecimal = text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0;
    text.erase(0, hexadecimal ? 2 : 0);
    const char *digits = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    if (text.empty() || text.find_first_not_of(digits) != std::string::npos) {
        return std::nullopt;
    }
    const size_t first = std::min(text.find_first_not_of('0'), text.size() - 1);
    if (text.size() - first > 12) {
        return std::nullopt;
    }
    const long long size = std::strtoll(text.c_str() + first, nullptr, hexadecimal ? 16 : 10);
    const long long number = negative ? -size : size;
    const bool fits = number >= INT32_MIN && number <= INT32_MAX;
    return fits ? std::optional(static_cast<int32_t>(number)) : std::nullopt;
}

// The values that the arguments give, in the order of the names; nothing when one is wrong or missing.
std::optional<Values> expected_values(const Names &names, const Arguments &arguments)
{
    Values values;
    for (const std::string &name : names) {
        const auto is_for_it = [&name](const std::string &argument) {
            return argument.compare(0, name.size() + 1, name + '=') == 0;
        };
        const auto found = std::find_if(arguments.begin(), arguments.end(), is_for_it);
        const auto number =
            found == arguments.end() ? std::nullopt : number_in(found->substr(name.size() + 1));
        if (!number) {
            return std::nullopt;
        }
        values.push_back(*number);
    }
    // All names have one, so as many arguments as names means that none is there twice or for nothing.
    return arguments.size() == names.size() ? std::optional(values) : std::nullopt;
}

bool is_one_line(const std::string &text)
{
    return std::all_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x20 && byte != 0x7f;
    });
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Arguments arguments = fuzz::parts_of(fuzz::view_of(data, size), '\n');
    const auto names = ssat::parse_template(arguments.front());
    arguments.erase(arguments.begin());
    if (!names) {
        return 0;
    }
    require(names->size() <= ssat::max_arguments, "a template has at most eight arguments");
    require(ssat::parse_template(template_of(*names)) == names, "a template written down is the same one");

    const auto checked = ssat::check_arguments(*names, arguments);
    const auto expected = expected_values(*names, arguments);
    if (const auto *values = std::get_if<Values>(&checked)) {
        require(expected == *values, "the values are those that were given");
    } else {
        require(!expected, "arguments that are right are taken");
        const std::string message = std::get<ssat::UsageError>(checked).message;
        require(!message.empty() && is_one_line(message), "a refusal is one line", message);
    }
    require(is_one_line(ssat::usage("command", *names)), "the usage is one line");
    return 0;
}
