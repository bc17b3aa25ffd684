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

#include "store/change.h"
#include "store/codec/value.h"
#include "store/connection/reply.h"
#include "store/status.h"

namespace store
{

class Calls;

struct StoredRecord : Stored {
    std::string key;
};

// What was read up to now, and where to go on.
struct Snapshot {
    std::vector<StoredRecord> records;       // of the last slice
    std::unordered_set<std::string> present; // keys of all records met, readable or not
    std::vector<LeftOut> left_out;           // of the last slice: what is no readable record
    std::string cursor = "0";
    bool done = false;
};

// Reads the next slice.
Status read_slice(Calls &calls, const std::string &type, Snapshot &snapshot);

// Sorts records by the order of their last changes.
void sort_by_revision(std::vector<StoredRecord> &records);

// Reads the revision of the type's last change; 0 before the first.
Status read_revision(Calls &calls, const std::string &type, uint64_t &revision);

// Reads one record's hash; `is_there`: whether there is one.
Status read_record(Calls &calls, const std::string &key, Stored &record, bool &is_there);

// The failure of a call about a record that the server answered with something else than a record's content.
Status unreadable(const Calls &calls, const std::string &key, const redisReply *reply);

// Decodes a record. When it does not decode, says why in `why` and in the log, and returns null.
MessagePtr decode(const Calls &calls, const ProtobufCMessageDescriptor &type, const std::string &key,
                  const Fields &fields, std::string &why);

} // namespace store

#endif
