// What the recorder's file holds, as its writer and its readers exchange it.
//
// Times are kept in whole milliseconds, so what is read back may differ from what was written by less than
// one.
#ifndef HISTORY_HISTORY_H
#define HISTORY_HISTORY_H

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "admission/decision.h"

namespace history
{

using admission::Answer;
using admission::CardFacts;
using admission::Decision;
using admission::OpenCheck;
using admission::Outcome;
using admission::Position;
using admission::Time;

inline constexpr const char *default_path = "/var/lib/cg_recorder/history.sqlite";
inline constexpr const char *path_setting = "CG_HISTORY"; // environment: where it is instead

// Returns `given` when it is not empty, else what the environment says, else the default.
std::string path_or_default(const std::string &given);

// The file cannot be used. what() is one line that names the file, what is wrong, and how to fix it.
class Error : public std::runtime_error
{
public:
    enum class Kind {
        refused, // it stays so until an operator changes something
        damaged, // not a database, or not one any more
        passing, // a full disk, or another process that holds the file
    };

    // `message` as above.
    explicit Error(const std::string &message, Kind kind = Kind::refused)
        : std::runtime_error(message), kind_(kind)
    {
    }
    // Whether the file is damaged: opening it for writing again would move it aside.
    [[nodiscard]] bool is_damaged() const noexcept { return kind_ == Kind::damaged; }
    // Whether trying again later may help.
    [[nodiscard]] bool will_pass() const noexcept { return kind_ == Kind::passing; }

private:
    Kind kind_;
};

// Which decisions are wanted: those for which all that is given here holds.
struct Filter {
    std::optional<Position> position{};
    std::optional<Time> from{};  // decided then or later
    std::optional<Time> until{}; // decided before
    std::optional<Outcome> outcome{};
    std::string module{};                // it answered, or was silent; empty: any
    std::optional<std::size_t> newest{}; // at most so many, the newest ones
};

// How much is kept. The last decision of each position stays beyond the age, since cards stand for years.
struct Limits {
    std::chrono::hours age{24 * 365};
    int64_t bytes = int64_t{256} << 20U;
};

// A time in which nothing was received, so decisions may be missing.
struct Gap {
    Time from{};
    std::optional<Time> until{}; // nothing: it lasts
    std::string why{};           // "the recorder was not running", ...
};

// How a module answers.
struct ModuleStatistics {
    std::string module{};
    int64_t answers = 0; // in the time asked for, as all that follows but the last three
    int64_t passes = 0;
    int64_t denials = 0;
    int64_t unregistered = 0; // answers that the daemon ignored, since it does not know the module
    int64_t silences = 0;     // checks that ended by the time, waiting for it
    std::optional<std::chrono::milliseconds> median{}; // of the time to answer; nothing without a known one
    std::optional<std::chrono::milliseconds> percentile_95{};
    int64_t waited_for = 0;       // checks that stand and wait for it
    std::optional<Answer> last{}; // of all times
    int64_t silences_since = 0;   // checks that ended by the time, waiting for it, since `last`, or ever
};

// The check modules that were registered, by name, in the folder's order.
struct Modules {
    std::vector<std::string> names{};
    std::string daemon{}; // the instance of the daemon whose list that is for certain; empty: not known

    friend bool operator==(const Modules &, const Modules &) = default;
};

// The daemon's service started, or ended.
struct LifeEvent {
    Time at{};
    bool is_start = true;
    int64_t pid = 0;      // of a start
    std::string code{};   // of an end: "exited", "killed", "dumped"
    std::string status{}; // of an end: "0", "77", "TERM", ...
};

} // namespace history

#endif
