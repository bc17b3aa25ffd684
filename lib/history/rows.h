// Decisions and open checks as rows. The writer reads them too: it continues where it ended.
#ifndef HISTORY_ROWS_H
#define HISTORY_ROWS_H

#include "database.h"

namespace history
{

// Each throws Error.

// Those that pass the filter, in the order in which they were decided.
std::vector<Decision> read_decisions(const Database &database, const Filter &filter);
// The newest one of each position.
std::vector<Decision> read_last_decisions(const Database &database);
// All of them, by position.
std::vector<OpenCheck> read_open_checks(const Database &database);

// Inserts a decision as its position's last one. Returns the id of the row.
int64_t write_decision(const Database &database, const Decision &decision);
// Adds an answer to the position's last decision. There may be none, or one that has as many answers as are
// kept: then nothing is written.
void write_late_answer(const Database &database, const Position &position, const Answer &answer);
// Writes a check in place of what was known of its position's.
void write_open_check(const Database &database, const OpenCheck &check);
// Deletes a position's open check, if there is one.
void erase_open_check(const Database &database, const Position &position);

} // namespace history

#endif
