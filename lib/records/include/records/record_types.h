// The record types by name, with the database that each lives in.
//
// Names and fields come from the schemas; only the database is known here, since no schema says it.
#ifndef RECORDS_RECORD_TYPES_H
#define RECORDS_RECORD_TYPES_H

#include <protobuf-c/protobuf-c.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace cg
{

// A message that is kept in the store as a record of its own.
struct RecordType {
    const ProtobufCMessageDescriptor *descriptor = nullptr;
    const ProtobufCFieldDescriptor *index = nullptr; // the key sub-message; null for a type with one record
    int32_t db = -1;                                 // the usual database; -1 when there is none

    // The full name, as in "p_dev.card_info".
    [[nodiscard]] const char *name() const { return descriptor->name; }
    // The key's message, or null.
    [[nodiscard]] const ProtobufCMessageDescriptor *key() const;
};

// The usual database of a type; -1 when there is none.
int32_t home_of(const ProtobufCMessageDescriptor &type);

// The databases that record types live in.
const std::set<int32_t> &databases();

// Every record type, in the order of the schemas.
const std::vector<RecordType> &record_types();

// Finds a record type by its full name, or by the part after the last dot where that is unique. Throws
// Failure (wrong usage) with the nearest names.
const RecordType &record_type(const std::string &name);

} // namespace cg

#endif
