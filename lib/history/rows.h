// Rows as what they stand for. The writer needs some of it too: it goes on where it ended.
#ifndef HISTORY_ROWS_H
#define HISTORY_ROWS_H

#include "database.h"

namespace history
{

// Each throws Error.

// In the order in which they were decided.
std::vector<Decision> read_decisions(const Database &database, const Filter &filter);
// One for each position.
std::vector<Decision> read_last_decisions(const Database &database);
std::vector<OpenCheck> read_open_checks(const Database &database);

// The id of the row.
int64_t write_decision(const Database &database, const Decision &decision);
// With the position's last decision; there may be none, or so many answers already that it is passed over.
void write_late_answer(const Database &database, const Position &position, const Answer &answer);
void write_open_check(const Database &database, const OpenCheck &check);
void erase_open_check(const Database &database, const Position &position);

std::string read_note(const Database &database, const std::string &name);
void write_note(const Database &database, const std::string &name, const std::string &value);

} // namespace history

#endif
