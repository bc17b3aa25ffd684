// The history for its readers.
#include "history/reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "notes.h"
#include "rows.h"
#include "schema.h"
#include "statistics.h"

namespace history
{

namespace
{

using Access = Database::Access;

// SQLite's own words for both are "unable to open database file".
void require_readable(const std::string &path)
{
    if (faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0) {
        return;
    }
    if (errno == ENOENT || errno == ENOTDIR) {
        throw Error("no history at " + path + "; cg_recorderd writes it");
    }
    throw Error("the history " + path + " cannot be read: " + std::strerror(errno) +
                "; cg_recorderd writes it, and its group may read it");
}

std::unique_ptr<Database> opened(const std::string &path, Access access)
{
    auto database = std::make_unique<Database>(path, access);
    require_present_version(*database);
    return database;
}

} // namespace

// Without its companions the file was closed, or copied while it was not written; in a folder that we may not
// write, SQLite reads it as immutable only.
Reader::Reader(const std::string &path) : path_(path)
{
    require_readable(path);
    try {
        database_ = opened(path, Access::read);
    } catch (const Error &) {
        if (access((path + "-wal").c_str(), F_OK) == 0) {
            throw;
        }
        database_ = opened(path, Access::immutable);
    }
}

Reader::~Reader() = default;

std::vector<Decision> Reader::decisions(const Filter &filter) const
{
    return read_decisions(*database_, filter);
}

std::vector<Decision> Reader::last_decisions() const
{
    return read_last_decisions(*database_);
}

std::vector<OpenCheck> Reader::open_checks() const
{
    return read_open_checks(*database_);
}

std::vector<Gap> Reader::gaps(std::optional<Time> from, std::optional<Time> until) const
{
    Statement rows(*database_, "SELECT from_at, until_at, why FROM gaps"
                               " WHERE (?1 IS NULL OR until_at IS NULL OR until_at >= ?1)"
                               " AND (?2 IS NULL OR from_at < ?2) ORDER BY from_at, id");
    rows.with(from, until);
    std::vector<Gap> gaps;
    while (rows.step()) {
        gaps.push_back({rows.time(0), std::nullopt, rows.text(2)});
        if (!rows.is_null(1)) {
            gaps.back().until = rows.time(1);
        }
    }
    return gaps;
}

std::vector<LifeEvent> Reader::life(std::optional<Time> from, std::optional<Time> until) const
{
    Statement rows(*database_, "SELECT at, is_start, pid, code, status FROM daemon_life"
                               " WHERE (?1 IS NULL OR at >= ?1) AND (?2 IS NULL OR at < ?2) ORDER BY id");
    rows.with(from, until);
    std::vector<LifeEvent> events;
    while (rows.step()) {
        events.push_back({rows.time(0), rows.number(1) != 0, rows.number(2), rows.text(3), rows.text(4)});
    }
    return events;
}

std::vector<ModuleStatistics> Reader::module_statistics(std::optional<Time> from) const
{
    return read_module_statistics(*database_, from);
}

std::vector<std::string> Reader::registered_before() const
{
    return read_registered_before(*database_);
}

std::optional<Time> Reader::alive_at() const
{
    return read_time_note(*database_, alive_note);
}

std::optional<Time> Reader::begun_at() const
{
    return read_time_note(*database_, begun_note);
}

} // namespace history
