// Reading a type's records in slices, by the order of their last changes.
//
// Reading all at once was rejected: a server is blocked for tens of milliseconds by ten thousand records.
#ifndef VX_MOM_SNAPSHOT_H
#define VX_MOM_SNAPSHOT_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "value.h"

namespace vx_mom
{

class Database;

struct StoredRecord {
    std::string key;
    uint64_t revision = 0; // of its content
    Fields fields;
};

struct Slice {
    std::vector<StoredRecord> records;
    std::vector<std::string> left_out; // keys of what is no readable record
    bool done = false;                 // there are no more slices
};

inline constexpr uint64_t no_fence = UINT64_MAX;

// Reads the records of the next slice whose revision is above `after` and, unless `fence` is no_fence, at
// most `fence`; moves `after` behind the slice. Records for which `wanted(key, revision)` is false are not
// read. What cannot be read as a record is logged and left out. Returns ok or an error.
int32_t read_slice(Database &database, const std::string &type, uint64_t &after, uint64_t fence,
                   const std::function<bool(const std::string &, uint64_t)> &wanted, Slice &slice);

// Reads the revision of the type's last change; 0 before the first. Returns ok or an error.
int32_t read_revision(Database &database, const std::string &type, uint64_t &revision);

// Reads one record's hash; empty when there is none. Returns ok or an error.
int32_t read_record(Database &database, const std::string &key, Fields &fields);

// Decodes a record; when it does not decode, logs that with its key and returns null.
MessagePtr decode_or_log(const ProtobufCMessageDescriptor &type, const std::string &key,
                         const Fields &fields);

} // namespace vx_mom

#endif
