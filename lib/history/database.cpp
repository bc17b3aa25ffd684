// SQLite with lifetimes and exceptions.
#include "database.h"

#include <sqlite3.h>

#include <sys/statvfs.h>
#include <unistd.h>

namespace history
{

namespace
{

using std::chrono::duration_cast;
using std::chrono::milliseconds;

// Writers hold the file for moments only. One that holds it longer is not waited for, since notifications
// have to be handled meanwhile.
constexpr int patience_ms = 500;

Error::Kind kind_of(int code)
{
    switch (code & 0xFF) { // the rest of the bits say more
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return Error::Kind::damaged;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_FULL:
    case SQLITE_IOERR:
        return Error::Kind::passing;
    default:
        return Error::Kind::refused;
    }
}

// Whether no file can be made beside this one for lack of room: of blocks, or of file nodes where those are
// counted.
bool is_disk_full(const std::string &path)
{
    const std::size_t end = path.rfind('/');
    const std::string folder = end == std::string::npos ? "." : path.substr(0, end + 1);
    struct statvfs room {
    };
    return statvfs(folder.c_str(), &room) == 0 && (room.f_flag & ST_RDONLY) == 0 &&
           access(folder.c_str(), W_OK) == 0 &&
           (room.f_bavail == 0 || (room.f_files > 0 && room.f_favail == 0));
}

// As a file: address, in which all but plain characters are written %XX.
std::string address_of(const std::string &path, const char *options)
{
    constexpr const char *plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-";
    constexpr const char *digits = "0123456789ABCDEF";
    std::string address = "file:";
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::string_view(plain).find(c) != std::string_view::npos) {
            address += c;
        } else {
            address += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
        }
    }
    return address + options;
}

} // namespace

void Statement::Finalize::operator()(sqlite3_stmt *statement) const noexcept
{
    (void)sqlite3_finalize(statement); // repeats the failure of the last step, which was reported
}

Statement::Statement(const Database &database, const char *sql) : database_(database)
{
    sqlite3_stmt *statement = nullptr;
    const int result = sqlite3_prepare_v2(database.handle(), sql, -1, &statement, nullptr);
    statement_.reset(statement);
    if (result != SQLITE_OK) {
        database.fail(result, "read");
    }
}

bool Statement::step()
{
    const int result = sqlite3_step(statement_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        database_.fail(result, sqlite3_stmt_readonly(statement_.get()) != 0 ? "read" : "write");
    }
    return result == SQLITE_ROW;
}

void Statement::run()
{
    while (step()) {
    }
    reset();
}

void Statement::reset()
{
    (void)sqlite3_reset(statement_.get()); // as above
}

bool Statement::is_null(int column) const
{
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

int64_t Statement::number(int column) const
{
    return sqlite3_column_int64(statement_.get(), column);
}

std::string Statement::text(int column) const
{
    const unsigned char *text = sqlite3_column_text(statement_.get(), column);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char *>(text), size);
}

Time Statement::time(int column) const
{
    return Time(milliseconds(number(column)));
}

void Statement::bind(int place, int64_t value)
{
    if (const int result = sqlite3_bind_int64(statement_.get(), place + 1, value); result != SQLITE_OK) {
        database_.fail(result, "use");
    }
}

void Statement::bind(int place, const std::string &value)
{
    const int result = sqlite3_bind_text64(statement_.get(), place + 1, value.data(), value.size(),
                                           SQLITE_TRANSIENT, SQLITE_UTF8);
    if (result != SQLITE_OK) {
        database_.fail(result, "use");
    }
}

void Statement::bind(int place, Time value)
{
    bind(place, int64_t{duration_cast<milliseconds>(value.time_since_epoch()).count()});
}

void Statement::bind_null(int place)
{
    if (const int result = sqlite3_bind_null(statement_.get(), place + 1); result != SQLITE_OK) {
        database_.fail(result, "use");
    }
}

void Database::Close::operator()(sqlite3 *handle) const noexcept
{
    (void)sqlite3_close_v2(handle);
}

Database::Database(const std::string &path, Access access) : path_(path)
{
    const bool writes = access == Access::write;
    const int flags = (writes ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY) |
                      SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
    const std::string address = address_of(path, access == Access::immutable ? "?immutable=1" : "");
    sqlite3 *handle = nullptr;
    const int result = sqlite3_open_v2(address.c_str(), &handle, flags, nullptr);
    handle_.reset(handle);
    if (result != SQLITE_OK) {
        fail(result, "open");
    }
    (void)sqlite3_extended_result_codes(handle, 1); // of a good handle: cannot fail
    (void)sqlite3_busy_timeout(handle, patience_ms);
}

// Where no file can be made since the disk is full, SQLite says only that it cannot open one.
void Database::fail(int code, const char *doing) const
{
    if ((code & 0xFF) == SQLITE_CANTOPEN && is_disk_full(path_)) {
        code = SQLITE_FULL;
    }
    const bool has_words = handle_ && code == sqlite3_extended_errcode(handle_.get());
    const std::string reason = has_words ? sqlite3_errmsg(handle_.get()) : sqlite3_errstr(code);
    throw Error("cannot " + std::string(doing) + " the history " + path_ + ": " + reason, kind_of(code));
}

void Database::run(const char *sql) const
{
    if (const int result = sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr); result != SQLITE_OK) {
        fail(result, "write");
    }
}

int64_t Database::number(const char *sql) const
{
    Statement statement(*this, sql);
    return statement.step() ? statement.number(0) : 0;
}

int64_t Database::last_id() const
{
    return sqlite3_last_insert_rowid(handle_.get());
}

void Database::keep_log() const
{
    int keep = 1;
    (void)sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_PERSIST_WAL, &keep);
}

Transaction::Transaction(const Database &database) : database_(&database)
{
    database.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction()
{
    if (database_ != nullptr) {
        (void)sqlite3_exec(database_->handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Transaction::commit()
{
    database_->run("COMMIT");
    database_ = nullptr;
}

} // namespace history
