// The recorder's end of the history.
#include "history/writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "rows.h"
#include "schema.h"

namespace history
{

namespace
{

constexpr const char *alive_note = "alive_at";
constexpr const char *begun_note = "begun_at";
constexpr const char *life_note_name = "life";
constexpr const char *modules_note_name = "modules";

constexpr mode_t for_owner_and_group = 0640;

std::string milliseconds_text(Time time)
{
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    return std::to_string(duration_cast<milliseconds>(time.time_since_epoch()).count());
}

std::optional<Time> noted_time(const Database &database, const char *name)
{
    const std::string text = read_note(database, name);
    return text.empty() ? std::nullopt : std::optional(Time(std::chrono::milliseconds(std::stoll(text))));
}

bool is_there(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

// Throws Error when the path leads to a file of somebody else, before anything is done to it or beside it: a
// path that is mistyped must cost nobody his file. One that is no database, or no longer one, is ours when
// our lock file lies beside it.
void require_ours(const std::string &path, const std::string &lock)
{
    struct stat status {
    };
    if (stat(path.c_str(), &status) != 0 || (S_ISREG(status.st_mode) && status.st_size == 0)) {
        return; // a new one; if something else is wrong, opening it tells
    }
    try {
        const bool has_log = is_there(path + "-wal");
        require_writable_version(
            Database(path, has_log ? Database::Access::read : Database::Access::immutable));
    } catch (const Error &error) {
        if (error.is_damaged() && !is_there(lock)) {
            throw Error(path +
                        " is there, and is no history; it is left alone: name another file, or move it away");
        }
        if (!error.is_damaged()) {
            throw;
        }
    }
}

} // namespace

// A file of its own: to close another descriptor of the database would take SQLite's locks away.
class Writer::Lock
{
public:
    explicit Lock(const std::string &path)
        : number_(::open(place(path).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, for_owner_and_group))
    {
        if (number_ < 0) {
            const int error = errno;
            throw error == ENOSPC || error == EDQUOT
                ? Error("cannot make " + place(path) + ": " + std::strerror(error), Error::Kind::passing)
                : Error("cannot open " + place(path) + ": " + std::strerror(error) +
                        "; its folder must be there and be writable");
        }
        if (flock(number_, LOCK_EX | LOCK_NB) != 0) {
            const std::string why = errno == EWOULDBLOCK ? "another process does so" : std::strerror(errno);
            close(number_);
            throw Error("cannot write the history " + path + ": " + why);
        }
    }
    ~Lock() { close(number_); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

    static std::string place(const std::string &path) { return path + ".lock"; }

private:
    int number_;
};

Writer::Writer(std::string path, Time now, const Teller &tell) : path_(std::move(path))
{
    require_ours(path_, Lock::place(path_));
    lock_ = std::make_unique<Lock>(path_);
    try {
        open(now);
    } catch (const Error &error) {
        if (!error.is_damaged()) {
            throw;
        }
        database_.reset();
        move_aside(now, error.what(), tell);
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
    last_alive_ = noted_time(*database_, alive_note);
    if (!noted_time(*database_, begun_note)) {
        write_note(*database_, begun_note, milliseconds_text(now));
    }
    Statement(*database_, "UPDATE gaps SET until_at = max(from_at, ?) WHERE until_at IS NULL")
        .with(last_alive_.value_or(now))
        .run();
}

void Writer::move_aside(Time now, const std::string &why, const Teller &tell)
{
    const std::string aside = path_ + ".damaged-" + milliseconds_text(now);
    if (std::rename(path_.c_str(), aside.c_str()) != 0) {
        throw Error(why + "; it cannot be moved aside: " + std::strerror(errno));
    }
    for (const char *companion : {"-wal", "-shm"}) {
        (void)std::rename((path_ + companion).c_str(), (aside + companion).c_str()); // there may be none
    }
    tell(why + "; it was moved to " + aside + " and a new history begins");
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
    Statement(*database_, "UPDATE gaps SET until_at = max(from_at, ?) WHERE id = ?").with(until, gap).run();
}

void Writer::add_life(const LifeEvent &event, const std::string &note)
{
    Transaction transaction(*database_);
    Statement(*database_, "INSERT INTO daemon_life (at, is_start, pid, code, status) VALUES (?, ?, ?, ?, ?)")
        .with(event.at, event.is_start, event.pid, event.code, event.status)
        .run();
    write_note(*database_, life_note_name, note);
    transaction.commit();
}

std::string Writer::life_note() const
{
    return read_note(*database_, life_note_name);
}

void Writer::set_life_note(const std::string &note)
{
    write_note(*database_, life_note_name, note);
}

// "/m1/m2": the names are those of files, so no other character parts them for sure; "/" is none at all.
std::optional<std::vector<std::string>> Writer::modules_note() const
{
    std::string text = read_note(*database_, modules_note_name);
    if (text.empty()) {
        return std::nullopt;
    }
    std::vector<std::string> modules;
    while (text.size() > 1) {
        const std::size_t end = std::min(text.find('/', 1), text.size());
        modules.push_back(text.substr(1, end - 1));
        text.erase(0, end);
    }
    return modules;
}

void Writer::set_modules_note(const std::vector<std::string> &modules)
{
    std::string text = modules.empty() ? "/" : "";
    for (const std::string &module : modules) {
        text += '/' + module;
    }
    write_note(*database_, modules_note_name, text);
}

void Writer::alive(Time now)
{
    write_note(*database_, alive_note, milliseconds_text(now));
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

} // namespace history
