// What get, set and del share: a record named on the command line.
#ifndef COMMAND_LINE_NAMED_RECORD_H
#define COMMAND_LINE_NAMED_RECORD_H

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "command_line/session.h"
#include "command_line/verb.h"
#include "records/record_text.h"

namespace cg
{

// The arguments TYPE [FIELD=VALUE ...] [--db N].
struct RecordArguments {
    std::string type;
    std::vector<std::string> assignments;
    std::optional<int32_t> db;
};

// Adds them to a verb.
void add_record_arguments(CLI::App &verb, RecordArguments &arguments, const char *assignments_help);

// What the arguments name.
struct NamedRecord {
    const RecordType *type;
    int32_t db;
    MessagePtr record;        // key and payload fields as assigned, the key always there
    bool has_key;             // at least one key field was given
    std::set<int32_t> fields; // numbers of the payload fields that were given
};

// Which assignments are carried out on the record.
enum class Assigned { all, key_only };

// Reads the arguments. Throws Failure (wrong usage) for an unknown type, field or value, a field given more
// than once, and a type without a usual database when none is given. With Assigned::key_only payload fields
// are only counted; their values are for the caller.
NamedRecord named_record(const RecordArguments &arguments, Assigned assigned = Assigned::all);

// Throws Failure (wrong usage) when a payload field was given to a verb that accepts key fields only.
void require_key_only(const NamedRecord &named, const char *verb);

// A record in its text form (records/record_text.h), and where it was found.
struct FoundRecord {
    const RecordType *type = nullptr;
    int32_t db = 0;
    Json record{};
};

// "p_dev.card_info devid=1 slotid=3 sslotid=0 t_mod=0".
std::string title(const FoundRecord &record);

} // namespace cg

#endif
