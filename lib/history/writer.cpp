// The recorder's end of the history.
#include "history/writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "file_lock.h"
#include "notes.h"
#include "placement.h"
#include "retention.h"
#include "rows.h"
#include "schema.h"

namespace history
{

namespace
{

bool is_there(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

// Throws Error when the path leads to another program's file, before anything is done to it or beside it: a
// mistyped path must not cost anybody a file. One that is not a database, or no longer one, is ours when our
// lock file lies beside it.
void require_ours(const std::string &path, const std::string &lock)
{
    struct stat status {
    };
    if (stat(path.c_str(), &status) != 0 || (S_ISREG(status.st_mode) && status.st_size == 0)) {
        return; // a new one; if something else is wrong, opening it fails
    }
    try {
        const bool has_log = is_there(path + "-wal");
        require_writable_version(
            Database(path, has_log ? Database::Access::read : Database::Access::immutable));
    } catch (const Error &error) {
        if (error.is_damaged() && !is_there(lock)) {
            throw Error(path +
                        " exists and is not a history; left alone: name another file, or move it away");
        }
        if (!error.is_damaged()) {
            throw;
        }
    }
}

} // namespace

Writer::Writer(std::string path, Time now, const Log &log) : path_(std::move(path))
{
    require_ours(path_, FileLock::place(path_));
    lock_ = std::make_unique<FileLock>(path_);
    try {
        open(now);
    } catch (const Error &error) {
        if (!error.is_damaged()) {
            throw;
        }
        database_.reset();
        move_aside(now, error.what(), log);
        open(now);
    }
}

Writer::~Writer() = default;

void Writer::open(Time now)
{
    database_ = std::make_unique<Database>(path_, Database::Access::write);
    database_->run("PRAGMA auto_vacuum = INCREMENTAL; PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
                   "PRAGMA foreign_keys = ON; PRAGMA journal_size_limit = 4194304");
    database_->keep_log();
    bring_up_to_date(*database_);
    Statement check(*database_, "PRAGMA quick_check(1)");
    if (check.step() && check.text(0) != "ok") {
        throw Error(path_ + " is damaged: " + check.text(0), Error::Kind::damaged);
    }
    last_alive_ = read_time_note(*database_, alive_note);
    if (!read_time_note(*database_, begun_note)) {
        write_time_note(*database_, begun_note, now);
    }
    Statement(*database_, "UPDATE gaps SET until_at = max(from_at, ?) WHERE until_at IS NULL")
        .with(last_alive_.value_or(now))
        .run();
    placement_ = std::make_unique<Placement>(*database_);
}

void Writer::move_aside(Time now, const std::string &why, const Log &log)
{
    const std::string aside = path_ + ".damaged-" + milliseconds_text(now);
    if (std::rename(path_.c_str(), aside.c_str()) != 0) {
        throw Error(why + "; it cannot be moved aside: " + std::strerror(errno));
    }
    for (const char *companion : {"-wal", "-shm"}) {
        (void)std::rename((path_ + companion).c_str(), (aside + companion).c_str()); // there may be none
    }
    log(why + "; it was moved to " + aside + " and a new history begins");
}

void Writer::add(const Decision &decision)
{
    Transaction transaction(*database_);
    write_decision(*database_, decision);
    erase_open_check(*database_, decision.card.position);
    transaction.commit();
}

void Writer::add_late_answer(const Position &position, const Answer &answer)
{
    Transaction transaction(*database_);
    write_late_answer(*database_, position, answer);
    transaction.commit();
}

void Writer::set_open(const OpenCheck &check)
{
    Transaction transaction(*database_);
    write_open_check(*database_, check);
    transaction.commit();
}

void Writer::close_open(const Position &position)
{
    erase_open_check(*database_, position);
}

void Writer::add_gap(Gap gap)
{
    if (gap.until) {
        gap.until = std::max(gap.from, *gap.until);
    }
    Statement(*database_, "INSERT INTO gaps (from_at, until_at, why) VALUES (?, ?, ?)")
        .with(gap.from, gap.until, gap.why)
        .run();
}

int64_t Writer::begin_gap(Time from, const std::string &why)
{
    add_gap({from, std::nullopt, why});
    return database_->last_id();
}

void Writer::end_gap(int64_t gap, Time until)
{
    Statement(*database_, "UPDATE gaps SET until_at = max(from_at, ?) WHERE id = ? AND until_at IS NULL")
        .with(until, gap)
        .run();
}

void Writer::add_life(const LifeEvent &event, const std::string &note)
{
    Transaction transaction(*database_);
    Statement(*database_, "INSERT INTO daemon_life (at, is_start, pid, code, status) VALUES (?, ?, ?, ?, ?)")
        .with(event.at, event.is_start, event.pid, event.code, event.status)
        .run();
    write_note(*database_, service_note, note);
    transaction.commit();
}

std::string Writer::life_note() const
{
    return read_note(*database_, service_note);
}

std::optional<Modules> Writer::modules_note() const
{
    const std::string text = read_note(*database_, modules_note_name);
    return text.empty()
               ? std::nullopt
               : std::optional(Modules{parse_names(text), read_note(*database_, modules_daemon_note)});
}

void Writer::set_modules_note(const Modules &modules)
{
    Transaction transaction(*database_);
    if (const auto before = read_registered_before(*database_); modules.names.empty() && !before.empty()) {
        write_note(*database_, modules_before_note, names_text(before));
    }
    write_note(*database_, modules_note_name, names_text(modules.names));
    write_note(*database_, modules_daemon_note, modules.daemon);
    transaction.commit();
}

std::vector<std::string> Writer::registered_before() const
{
    return read_registered_before(*database_);
}

void Writer::alive(Time now)
{
    write_time_note(*database_, alive_note, now);
}

std::optional<Time> Writer::last_gap_end() const
{
    Statement row(*database_, "SELECT max(until_at) FROM gaps");
    return row.step() && !row.is_null(0) ? std::optional(row.time(0)) : std::nullopt;
}

std::vector<OpenCheck> Writer::open_checks() const
{
    return read_open_checks(*database_);
}

std::vector<Decision> Writer::last_decisions() const
{
    return read_last_decisions(*database_);
}

bool Writer::trim(const Limits &limits, Time now)
{
    try {
        const bool more = trim_step(*database_, limits, now);
        placement_->note_size();
        return more;
    } catch (const Error &) {
        placement_->note_size(); // a part may be done
        throw;
    }
}

std::optional<std::string> Writer::displacement()
{
    return placement_->displacement();
}

std::string Writer::leave(Time now)
{
    return placement_->leave(now);
}

} // namespace history
