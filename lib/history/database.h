// SQLite with lifetimes and exceptions.
//
// Only what the history needs: statements are prepared where they are used, since a few decisions a minute
// are not worth a cache of prepared ones.
#ifndef HISTORY_DATABASE_H
#define HISTORY_DATABASE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "history/history.h"

struct sqlite3;
struct sqlite3_stmt;

namespace history
{

class Database;

// One statement. Columns and parameters count from 0.
class Statement
{
public:
    // Prepares it. The database outlives this. Throws Error.
    Statement(const Database &database, const char *sql);

    // Binds the values to the parameters, in order: whole numbers, texts, times, and nothing for null.
    template <typename... Values>
    Statement &with(const Values &...values)
    {
        reset();
        int place = 0;
        (bind(place++, values), ...);
        return *this;
    }
    // Goes to the next row; false behind the last one. Throws Error.
    bool step();
    // Carries it out to its end. Throws Error.
    void run();

    // The columns of the present row; a null is 0, an empty text, or the time 0.
    [[nodiscard]] bool is_null(int column) const;
    [[nodiscard]] int64_t number(int column) const;
    [[nodiscard]] int32_t small(int column) const { return static_cast<int32_t>(number(column)); }
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] Time time(int column) const;

    // Binds a value to the parameter at `place`, for what with() cannot say. Throws Error.
    void bind(int place, int64_t value);
    void bind(int place, int32_t value) { bind(place, int64_t{value}); }
    void bind(int place, bool value) { bind(place, int64_t{value ? 1 : 0}); }
    void bind(int place, const std::string &value);
    void bind(int place, const char *value) { bind(place, std::string(value)); }
    void bind(int place, Time value);
    template <typename Value>
    void bind(int place, const std::optional<Value> &value)
    {
        value ? bind(place, *value) : bind_null(place);
    }

private:
    struct Finalize {
        void operator()(sqlite3_stmt *statement) const noexcept;
    };

    void reset();
    void bind_null(int place);

    const Database &database_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

class Database
{
public:
    enum class Access {
        read,      // beside a writer or not
        write,     // made when there is none
        immutable, // no process writes it, and its folder need not be writable
    };

    // Opens the file. Throws Error.
    Database(const std::string &path, Access access);

    // Carries out statements without parameters. Throws Error.
    void run(const char *sql) const;
    // The number in the first column of the first row; 0 without one. Throws Error.
    [[nodiscard]] int64_t number(const char *sql) const;
    // The id of the row that was inserted last.
    [[nodiscard]] int64_t last_id() const;
    // Keeps the log beside the file when the last one closes, for readers who may not make it.
    void keep_log() const;

    // Throws Error: SQLite's result `code` came from `doing` something ("read", "write", ...) with this file.
    [[noreturn]] void fail(int code, const char *doing) const;
    // The file's path.
    [[nodiscard]] const std::string &path() const { return path_; }
    // SQLite's own, which this keeps.
    [[nodiscard]] sqlite3 *handle() const { return handle_.get(); }

private:
    struct Close {
        void operator()(sqlite3 *handle) const noexcept;
    };

    std::string path_;
    std::unique_ptr<sqlite3, Close> handle_;
};

// All or nothing: what is not committed when this dies is undone.
class Transaction
{
public:
    // Begins one. Throws Error, also when another process writes.
    explicit Transaction(const Database &database);
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    // Makes it permanent; to be called at most once. Throws Error.
    void commit();

private:
    const Database *database_;
};

} // namespace history

#endif
