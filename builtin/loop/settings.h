// Configuration of the built-in platform: environment variables, or a file of NAME=VALUE lines.
//
// The daemon has no arguments, so what belongs to the platform is set for the platform. The environment
// wins over the file; the file is the one named by VX_PLATFORM_CONF, else /etc/app_cg/platform.conf, and may
// be missing. Lines that are empty or begin with `#` are passed over.
//
// Some settings may be given for one database too, by its number: NAME_28 in place of NAME. The environment
// still wins as a whole, NAME in it over NAME_28 in the file: what somebody sets for one command, and what a
// service's unit sets for the service, holds whatever the file has.
#ifndef LOOP_SETTINGS_H
#define LOOP_SETTINGS_H

#include <cstdint>
#include <functional>
#include <string>

namespace platform
{

// Returns the value of a setting, or `fallback` when it is set nowhere or empty.
std::string setting(const char *name, const std::string &fallback);

// A setting's value, and the name that gave it.
struct Setting {
    std::string name;
    std::string value;
};

// Returns the setting `name` as it is for a database: NAME_<number> or NAME. Where neither is set, or both
// are empty, `fallback`, under `name`.
Setting numbered_setting(const char *name, int32_t number, const std::string &fallback);

// Sets `name` for this process and the children that inherit its environment, for every database: no other
// value, numbered or not, counts any more.
void replace_setting(const char *name, const std::string &value);

// The least and the most that a number may be.
struct Bounds {
    int64_t least;
    int64_t most;
};

// Returns a whole number within the bounds, or `fallback` when the setting is empty; any other value is
// reported on standard error and `fallback` is used.
int64_t setting_number(const Setting &given, int64_t fallback, Bounds bounds);
int64_t setting_number(const char *name, int64_t fallback, int64_t least, int64_t most);

// Returns one line that says what is wrong with a setting that is to be a whole number, and what would be
// right; empty when it is one, or is not set.
std::string number_problem(const Setting &given, Bounds bounds);

// Has mistakes in the settings reported to a listener in place of standard error, each one once; an empty
// function gives that back. For a tool whose messages have a form of their own.
void on_setting_mistake(std::function<void(const std::string &)> listener);

} // namespace platform

#endif
