// Configuration of the built-in platform.
//
// The file is read again at each question: there are a dozen of them, all at start-up, and a copy kept in
// memory would need a rule for when it is stale. No shell syntax (quotes, variables) is understood, so that
// nobody expects all of it.
#include "loop/settings.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "loop/number.h"
#include "loop/standard_error.h"

namespace
{

constexpr const char *default_file = "/etc/app_cg/platform.conf";

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string environment(const char *name)
{
    const char *value = getenv(name);
    return value == nullptr ? "" : value;
}

std::function<void(const std::string &)> &listener()
{
    static std::function<void(const std::string &)> present;
    return present;
}

// The file is read once per setting, but an operator wants to read of a mistake only once.
void report_once(const std::string &message)
{
    static std::set<std::string> reported;
    if (!reported.insert(message).second) {
        return;
    }
    if (listener()) {
        listener()(message);
    } else {
        platform::print_on_standard_error(message + '\n');
    }
}

std::string value_in_file(const std::string &path, std::string_view name)
{
    errno = 0;
    std::ifstream file(path);
    if (!file) {
        if (errno != ENOENT) {
            report_once("platform: cannot read " + path + ": " + strerror(errno));
        }
        return {};
    }
    std::string value;
    size_t number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        const std::string_view text = trimmed(line);
        if (text.empty() || text.front() == '#') {
            continue;
        }
        const size_t equals = text.find('=');
        if (equals == std::string_view::npos) {
            report_once("platform: " + path + ":" + std::to_string(number) + ": not of the form NAME=VALUE");
        } else if (trimmed(text.substr(0, equals)) == name) {
            value = trimmed(text.substr(equals + 1)); // the last one counts
        }
    }
    return value;
}

std::string no_number(const char *name, const std::string &text, platform::Bounds bounds)
{
    return std::string(name) + "=" + text + ": not a whole number from " + std::to_string(bounds.least) +
           " to " + std::to_string(bounds.most);
}

} // namespace

namespace platform
{

std::string setting(const char *name, const std::string &fallback)
{
    std::string value = environment(name);
    if (value.empty()) {
        const std::string file = environment("VX_PLATFORM_CONF");
        value = value_in_file(file.empty() ? default_file : file, name);
    }
    return value.empty() ? fallback : value;
}

int64_t setting_number(const char *name, int64_t fallback, int64_t least, int64_t most)
{
    const std::string text = setting(name, "");
    if (text.empty()) {
        return fallback;
    }
    const std::optional<int64_t> number = whole_number(text, least, most);
    if (!number) {
        report_once("platform: " + no_number(name, text, {least, most}) + ", " + std::to_string(fallback) +
                    " is used");
    }
    return number.value_or(fallback);
}

std::string number_problem(const char *name, Bounds bounds)
{
    const std::string text = setting(name, "");
    return text.empty() || whole_number(text, bounds.least, bounds.most) ? "" : no_number(name, text, bounds);
}

void on_setting_mistake(std::function<void(const std::string &)> new_listener)
{
    listener() = std::move(new_listener);
}

} // namespace platform
