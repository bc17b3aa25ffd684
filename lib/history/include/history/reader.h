// The history as everybody else sees it: read-only, beside the recorder or without it.
//
// Whoever has the right to read the file can: also after the recorder was killed, and when the file was
// copied away from its companions.
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
    // Throws Error that names the file: missing (and who writes it), unreadable, no history, or of another
    // version. Never is such a file taken for an empty one.
    explicit Reader(const std::string &path);
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // Everything below throws Error.

    // In the order in which they were decided, the oldest one first.
    [[nodiscard]] std::vector<Decision> decisions(const Filter &filter = {}) const;
    // The newest one of each position.
    [[nodiscard]] std::vector<Decision> last_decisions() const;
    // The checks that stood when the recorder last wrote, by position.
    [[nodiscard]] std::vector<OpenCheck> open_checks() const;
    // Those that touch the time span, the oldest one first.
    [[nodiscard]] std::vector<Gap> gaps(std::optional<Time> from, std::optional<Time> until) const;
    // Within the time span, the oldest one first.
    [[nodiscard]] std::vector<LifeEvent> life(std::optional<Time> from, std::optional<Time> until) const;
    // Every module that answered, was silent or is waited for, by name.
    [[nodiscard]] std::vector<ModuleStatistics> module_statistics(std::optional<Time> from) const;

    // When the recorder last said that it runs; it does so every ten seconds. Nothing: not yet.
    [[nodiscard]] std::optional<Time> alive_at() const;
    // When the file was made.
    [[nodiscard]] std::optional<Time> begun_at() const;
    [[nodiscard]] const std::string &path() const { return path_; }

private:
    [[nodiscard]] std::optional<Time> noted_time(const char *name) const;

    std::string path_;
    std::unique_ptr<Database> database_;
};

} // namespace history

#endif
