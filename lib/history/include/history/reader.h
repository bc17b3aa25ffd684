// The history for its readers: read-only, beside the recorder or without it.
//
// The right to read the file is enough, also after the recorder was killed, and when the file was copied away
// from its companions.
#ifndef HISTORY_READER_H
#define HISTORY_READER_H

#include <memory>

#include "history/history.h"

namespace history
{

class Database;

class Reader
{
public:
    // Throws Error that names the file when it is missing (and which program writes it), unreadable, not a
    // history, or of another version. Such a file is never treated as an empty one.
    explicit Reader(const std::string &path);
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // Everything below throws Error.

    // Those that pass the filter, in the order in which they were decided, the oldest one first.
    [[nodiscard]] std::vector<Decision> decisions(const Filter &filter = {}) const;
    // The newest one of each position.
    [[nodiscard]] std::vector<Decision> last_decisions() const;
    // The checks that stood when the recorder last wrote, by position.
    [[nodiscard]] std::vector<OpenCheck> open_checks() const;
    // Those that touch the time span, the oldest one first.
    [[nodiscard]] std::vector<Gap> gaps(std::optional<Time> from, std::optional<Time> until) const;
    // Within the time span, the oldest one first.
    [[nodiscard]] std::vector<LifeEvent> life(std::optional<Time> from, std::optional<Time> until) const;
    // Each module that answered, was silent or is waited for, by name; of answers and decisions since `from`,
    // or of all.
    [[nodiscard]] std::vector<ModuleStatistics> module_statistics(std::optional<Time> from) const;

    // The modules that were registered when there last were some; empty when there never were.
    [[nodiscard]] std::vector<std::string> registered_before() const;
    // The recorder's last heartbeat; there is one every ten seconds. Nothing: none yet.
    [[nodiscard]] std::optional<Time> alive_at() const;
    // When the file was made.
    [[nodiscard]] std::optional<Time> begun_at() const;
    // The file's path.
    [[nodiscard]] const std::string &path() const { return path_; }

private:
    std::string path_;
    std::unique_ptr<Database> database_;
};

} // namespace history

#endif
