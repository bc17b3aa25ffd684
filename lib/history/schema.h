// The file's form, in versions.
#ifndef HISTORY_SCHEMA_H
#define HISTORY_SCHEMA_H

#include <span>

#include "database.h"

namespace history
{

// SQL that brings a file from one version to the next; the first one makes the tables.
using Migration = const char *;

// All of them: as many as the present version's number.
std::span<const Migration> migrations();

// Throws Error when a file is newer than that, or another program's database. Changes nothing.
void require_writable_version(const Database &database, std::span<const Migration> steps = migrations());

// Brings a file that is open for writing to the newest version, step by step, each in one transaction.
// Throws Error as above.
void bring_up_to_date(const Database &database, std::span<const Migration> steps = migrations());

// Throws Error when a file cannot be read by this program: another version, or not a history at all.
void require_present_version(const Database &database);

} // namespace history

#endif
