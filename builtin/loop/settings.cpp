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
#include <vector>

#include <unistd.h>

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

std::string environment(const std::string &name)
{
    const char *value = getenv(name.c_str());
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

std::string in_file(const std::string &name)
{
    const std::string file = environment("VX_PLATFORM_CONF");
    return value_in_file(file.empty() ? default_file : file, name);
}

// The first of these names that is set, where the environment has all of them before the file; under the last
// name, `fallback`.
platform::Setting first_set(const std::vector<std::string> &names, const std::string &fallback)
{
    for (const auto layer : {environment, in_file}) {
        for (const std::string &name : names) {
            if (std::string value = layer(name); !value.empty()) {
                return {name, std::move(value)};
            }
        }
    }
    return {names.back(), fallback};
}

// Whether it is the name of a setting for one database: NAME_<number>.
bool is_numbered(std::string_view variable, std::string_view name)
{
    if (!variable.starts_with(name) || variable.size() < name.size() + 2 || variable[name.size()] != '_') {
        return false;
    }
    const std::string_view number = variable.substr(name.size() + 1);
    return number.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string no_number(const platform::Setting &given, platform::Bounds bounds)
{
    return given.name + "=" + given.value + ": not a whole number from " + std::to_string(bounds.least) +
           " to " + std::to_string(bounds.most);
}

} // namespace

namespace platform
{

std::string setting(const char *name, const std::string &fallback)
{
    return first_set({name}, fallback).value;
}

Setting numbered_setting(const char *name, int32_t number, const std::string &fallback)
{
    return first_set({std::string(name) + '_' + std::to_string(number), name}, fallback);
}

void replace_setting(const char *name, const std::string &value)
{
    std::vector<std::string> numbered;
    for (char **place = environ; place != nullptr && *place != nullptr; ++place) {
        const std::string_view variable(*place);
        const std::string_view its_name = variable.substr(0, variable.find('='));
        if (is_numbered(its_name, name)) {
            numbered.emplace_back(its_name);
        }
    }
    for (const std::string &each : numbered) {
        (void)unsetenv(each.c_str());
    }
    (void)setenv(name, value.c_str(), 1);
}

int64_t setting_number(const Setting &given, int64_t fallback, Bounds bounds)
{
    if (given.value.empty()) {
        return fallback;
    }
    const std::optional<int64_t> number = whole_number(given.value, bounds.least, bounds.most);
    if (!number) {
        report_once("platform: " + no_number(given, bounds) + ", " + std::to_string(fallback) + " is used");
    }
    return number.value_or(fallback);
}

int64_t setting_number(const char *name, int64_t fallback, int64_t least, int64_t most)
{
    return setting_number({name, setting(name, "")}, fallback, {least, most});
}

std::string number_problem(const Setting &given, Bounds bounds)
{
    return given.value.empty() || whole_number(given.value, bounds.least, bounds.most)
               ? ""
               : no_number(given, bounds);
}

void on_setting_mistake(std::function<void(const std::string &)> new_listener)
{
    listener() = std::move(new_listener);
}

} // namespace platform
