// Reading a type's records in slices.
//
// The index is a set that may name more than there is: those who may add to it could otherwise hide what
// others have written. So what counts is each record's own hash. Reading all at once was rejected: a server
// is blocked for tens of milliseconds by ten thousand records.
#ifndef STORE_SNAPSHOT_H
#define STORE_SNAPSHOT_H

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "store/codec/value.h"

namespace vx_mom
{

class Database;

struct StoredRecord {
    std::string key;
    uint64_t revision = 0; // of its content
    Fields fields;         // without what belongs to the writing
};

// What was read up to now, and where to go on.
struct Snapshot {
    std::vector<StoredRecord> records;       // of the last slice
    std::unordered_set<std::string> present; // keys of all records met, readable or not
    std::vector<std::string> left_out;       // keys of what is no readable record
    std::string cursor = "0";
    bool done = false;
};

// Reads the next slice. What cannot be read as a record is logged and left out. Returns ok or an error.
int32_t read_slice(Database &database, const std::string &type, Snapshot &snapshot);

// Sorts records by the order of their last changes.
void sort_by_revision(std::vector<StoredRecord> &records);

// Reads the revision of the type's last change; 0 before the first. Returns ok or an error.
int32_t read_revision(Database &database, const std::string &type, uint64_t &revision);

// Reads one record's hash; empty when there is none. Returns ok or an error.
int32_t read_record(Database &database, const std::string &key, Fields &fields);

// Decodes a record; when it does not decode, logs that with its key and returns null.
MessagePtr decode_or_log(const ProtobufCMessageDescriptor &type, const std::string &key,
                         const Fields &fields);

} // namespace vx_mom

#endif
