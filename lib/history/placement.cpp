// Whether the file that is written is still the one at its path.
#include "placement.h"

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "notes.h"

namespace history
{

Placement::Placement(const Database &database)
    : database_(database), log_(sqlite3_filename_wal(sqlite3_db_filename(database.handle(), "main"))),
      file_identity_(identity_of(database.path())), log_identity_(identity_of(log_))
{
    const int64_t whole = bytes();
    least_ = std::min(size().value_or(whole), whole);
}

Placement::Identity Placement::identity_of(const std::string &path)
{
    struct stat status {
    };
    return stat(path.c_str(), &status) == 0 ? Identity{status.st_dev, status.st_ino} : Identity{};
}

std::optional<int64_t> Placement::size() const
{
    struct stat status {
    };
    return stat(database_.path().c_str(), &status) == 0 ? std::optional(int64_t{status.st_size})
                                                        : std::nullopt;
}

// As SQLite knows it, what is still in its log included.
int64_t Placement::bytes() const
{
    return database_.number("PRAGMA page_count") * database_.number("PRAGMA page_size");
}

// What was written stands in the log at first, so the file may be smaller than what it holds. It grows with
// each transfer from there, and shrinks with one only to what it holds then. One that is smaller than that
// was cut, which is not to be forgotten.
void Placement::note_size()
{
    const int64_t whole = bytes();
    const int64_t now = size().value_or(0);
    if (now >= std::min(least_, whole)) {
        least_ = std::min(now, whole);
    }
}

// Another program may have made the file smaller through SQLite, which knows that.
bool Placement::is_cut(int64_t size) const
{
    if (size >= least_) {
        return false;
    }
    try {
        return size == 0 || size < bytes();
    } catch (const Error &error) {
        return error.is_damaged();
    }
}

std::optional<std::string> Placement::displacement()
{
    if (auto what = file_displacement()) {
        return what;
    }
    if (identity_of(log_) != log_identity_) {
        return "lost its log";
    }
    note_growth();
    return std::nullopt;
}

// A file that grew is cut also where it keeps more than it had before.
void Placement::note_growth()
{
    const int64_t now = size().value_or(0);
    if (now <= least_) {
        return;
    }
    try {
        least_ = std::max(least_, std::min(now, bytes()));
    } catch (const Error &) {
        return; // it is looked at again
    }
}

std::optional<std::string> Placement::file_displacement() const
{
    struct stat status {
    };
    if (stat(database_.path().c_str(), &status) != 0) {
        return errno == ENOENT || errno == ENOTDIR ? std::optional("was deleted or moved") : std::nullopt;
    }
    if (Identity{status.st_dev, status.st_ino} != file_identity_) {
        return "was replaced";
    }
    return is_cut(status.st_size) ? std::optional("was cut") : std::nullopt;
}

// A file that only lost its log is completed when it is closed. A log that came with the file that is there
// now is that one's.
std::string Placement::leave(Time now) const
{
    if (!file_displacement()) {
        return {};
    }
    (void)sqlite3_db_config(database_.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    if (log_identity_ == Identity{} || identity_of(log_) != log_identity_) {
        return {};
    }
    constexpr std::string_view log_suffix = "-wal";
    const std::string file = log_.substr(0, log_.size() - log_suffix.size());
    const std::string aside = file + ".left-" + milliseconds_text(now);
    for (const char *companion : {"-wal", "-shm"}) {
        if (std::rename((file + companion).c_str(), (aside + companion).c_str()) != 0 && errno != ENOENT) {
            throw Error("cannot move " + file + companion + " aside: " + std::strerror(errno));
        }
    }
    return aside + "-wal";
}

} // namespace history
