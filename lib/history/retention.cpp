// Keeping the file within its limits, in steps so small that notifications can be handled between them.
#include "retention.h"

namespace history
{

namespace
{

constexpr int64_t rows_a_step = 50;
constexpr int64_t most_rows_beside = 10000; // of gaps and of the service's events, each

int64_t used_bytes(const Database &database)
{
    return (database.number("PRAGMA page_count") - database.number("PRAGMA freelist_count")) *
           database.number("PRAGMA page_size");
}

// Each returns how many rows were deleted.

int64_t erase_decisions_before(const Database &database, Time time)
{
    Statement(database, "DELETE FROM decisions WHERE id IN (SELECT id FROM decisions WHERE decided_at < ?"
                        " AND id NOT IN (SELECT decision_id FROM last_decisions)"
                        " ORDER BY decided_at LIMIT ?)")
        .with(time, rows_a_step)
        .run();
    return database.number("SELECT changes()");
}

int64_t erase_oldest_decisions(const Database &database)
{
    for (const char *sql : {"DELETE FROM decisions WHERE id IN (SELECT id FROM decisions"
                            " WHERE id NOT IN (SELECT decision_id FROM last_decisions)"
                            " ORDER BY decided_at LIMIT ?)",
                            "DELETE FROM decisions WHERE id IN (SELECT id FROM decisions"
                            " ORDER BY decided_at LIMIT ?)"}) {
        Statement(database, sql).with(rows_a_step).run();
        if (const int64_t erased = database.number("SELECT changes()"); erased > 0) {
            return erased;
        }
    }
    return 0;
}

void erase_beside(const Database &database, Time time)
{
    Statement(database, "DELETE FROM gaps WHERE until_at < ?1"
                        " OR id <= (SELECT max(id) FROM gaps) - ?2")
        .with(time, most_rows_beside)
        .run();
    Statement(database, "DELETE FROM daemon_life WHERE at < ?1"
                        " OR id <= (SELECT max(id) FROM daemon_life) - ?2")
        .with(time, most_rows_beside)
        .run();
}

} // namespace

bool trim_step(const Database &database, const Limits &limits, Time now)
{
    Transaction transaction(database);
    int64_t erased = erase_decisions_before(database, now - limits.age);
    if (erased < rows_a_step && used_bytes(database) > limits.bytes) {
        erased = erase_oldest_decisions(database) > 0 ? rows_a_step : 0;
    }
    erase_beside(database, now - limits.age);
    transaction.commit();
    database.run("PRAGMA incremental_vacuum(64)");
    return erased == rows_a_step || database.number("PRAGMA freelist_count") > 0;
}

} // namespace history
