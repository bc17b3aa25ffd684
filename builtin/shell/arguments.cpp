// Arguments of debug commands. scanf with the template as its format was the alternative: it would read "7x"
// as 7 and let a number out of range pass as another one.
#include "shell/arguments.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

#include "log/text.h"

namespace ssat
{
namespace
{

constexpr std::string_view placeholder = "=%d";

bool is_name(std::string_view text)
{
    const auto fits = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               c == '-';
    };
    return !text.empty() && std::all_of(text.begin(), text.end(), fits);
}

std::optional<int32_t> number_in(std::string_view text)
{
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hexadecimal ? 2 : 0);

    uint32_t magnitude = 0; // unsigned, so that a second sign is no number
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
    const int64_t value = negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
    if (error != std::errc{} || stopped != end || value < std::numeric_limits<int32_t>::min() ||
        value > std::numeric_limits<int32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<int32_t>(value);
}

UsageError fault(std::string_view what, std::string_view fault_of_it)
{
    return {"'" + platform::visible(what) + "' " + std::string(fault_of_it)};
}

} // namespace

std::optional<Names> parse_template(const std::string &text)
{
    Names names;
    if (text == "void") {
        return names;
    }
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view part = rest.substr(0, rest.find(' '));
        rest.remove_prefix(std::min(part.size() + 1, rest.size()));
        if (part.empty()) {
            continue; // more than one blank
        }
        const std::string_view name = part.substr(0, part.find('='));
        if (!is_name(name) || part.substr(name.size()) != placeholder || names.size() == max_arguments ||
            std::find(names.begin(), names.end(), name) != names.end()) {
            return std::nullopt;
        }
        names.emplace_back(name);
    }
    if (names.empty()) {
        return std::nullopt;
    }
    return names;
}

std::variant<Values, UsageError> check_arguments(const Names &names, std::span<const std::string> arguments)
{
    std::vector<std::optional<int32_t>> found(names.size());
    for (const std::string &argument : arguments) {
        const size_t equals = argument.find('=');
        if (equals == std::string::npos) {
            return fault(argument, "is not of the form NAME=NUMBER");
        }
        const std::string name = argument.substr(0, equals);
        const auto place = std::find(names.begin(), names.end(), name);
        if (place == names.end()) {
            return fault(name, "is not an argument of this command");
        }
        auto &value = found[static_cast<size_t>(place - names.begin())];
        if (value) {
            return fault(name, "is given twice");
        }
        value = number_in(std::string_view(argument).substr(equals + 1));
        if (!value) {
            return fault(argument, "is not a number from -2147483648 to 2147483647 (decimal, or 0x...)");
        }
    }
    Values values;
    for (size_t i = 0; i < names.size(); ++i) {
        if (!found[i]) {
            return fault(names[i], "is missing");
        }
        values.push_back(*found[i]);
    }
    return values;
}

std::string usage(const std::string &command, const Names &names)
{
    if (names.empty()) {
        return command + " (no arguments)";
    }
    std::string text = command;
    for (const std::string &name : names) {
        text += " " + name + "=NUMBER";
    }
    return text;
}

} // namespace ssat
