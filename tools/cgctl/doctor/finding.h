// What a check of the doctor found.
#ifndef DOCTOR_FINDING_H
#define DOCTOR_FINDING_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "loop/settings.h"
#include "store/inspect/inspection.h"

namespace cg
{

enum class Severity { ok, warn, fail, skipped };

// All is well when there is nothing to fix: a check that could not be made for want of rights asks to be made
// by another user.
struct Finding {
    Severity severity = Severity::ok;
    std::string found{};
    std::string fix{};   // what to do about it, commands in backticks; empty when there is nothing to do
    std::string check{}; // which check it is of, for programs: stable
    // Of a check of one of several servers: its endpoint, and the databases that it has.
    std::string server{};
    std::set<int32_t> databases{};

    // Skipped, because what it is about is not there: nothing can rest on it.
    bool is_missing = false;

    [[nodiscard]] bool is_well() const { return fix.empty() && severity != Severity::fail; }
};

// The fix for what the user has no right to inspect.
inline constexpr const char *as_administrator =
    "examine it as an administrator: VX_MOM_AUTH_FILE names the file with user and password";

// The finding that stands for an error of the server: skipped for want of rights, else a failure.
Finding refused(const store::Inspected &error, const std::string &fix);

// "a, b, c", or "a, b, c and 4 more" when there are more than a reader wants to see.
std::string listed(const std::vector<std::string> &texts);

// "database 1", or "databases 28 and 33".
std::string databases_text(const std::set<int32_t> &databases);

// The names of the settings that count for these databases, each once: "A", "A and B".
std::string setting_names(const std::set<int32_t> &databases,
                          platform::Setting (*setting_of)(int32_t database));

} // namespace cg

#endif
