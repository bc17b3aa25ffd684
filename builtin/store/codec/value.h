// A record's content in the store: one hash field per protobuf field that is not at its default.
//
// The hash field is named by the field's number. Scalars and texts are stored readable; a sub-message packed;
// a repeated field as its wire bytes, tags included. Two more hash fields belong to the writing: `rev`, the
// revision of the record's last change, makes a record with all fields at their defaults exist as a hash, and
// one read tells how new its content is; `by` is the mark that the last write bore. The whole record packed
// into one value was rejected: writing single fields would then mean read, change, write.
#ifndef CODEC_VALUE_H
#define CODEC_VALUE_H

#include <protobuf-c/protobuf-c.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "store/codec/message.h"

namespace store
{

// Hash fields with their values, in no particular order.
using Fields = std::vector<std::pair<std::string, std::string>>;

// The hash fields that belong to the writing.
inline constexpr std::string_view revision_field = "rev";
inline constexpr std::string_view writer_field = "by";
inline constexpr size_t writing_fields = 2;

// What a write stores and what it removes.
struct Content {
    Fields present;
    std::vector<std::string> absent; // names of fields at their default
};

// The content of a whole record, without its index, which is in the key. Returns false when the record has a
// field of a type that cannot be stored.
bool encode_record(const ProtobufCMessage &record, Content &content);

// The content of the fields with the given numbers; the index' number is passed over. Returns false when the
// record's type has no such field, or it cannot be stored.
bool encode_fields(const ProtobufCMessage &record, const int32_t *numbers, int32_t count, Content &content);

// Makes a record from its key and its hash. Hash fields that the type does not know are passed over.
// Returns null when it does not decode, and says in `why` what is wrong.
MessagePtr decode_record(const ProtobufCMessageDescriptor &type, std::string_view key, const Fields &fields,
                         std::string &why);

// A record's content as it is stored, and what belongs to the writing.
struct Stored {
    uint64_t revision = 0; // of its last change
    std::string mark;      // who made that, and why; see store/origin.h
    Fields fields;
};

// Adds one field of a record's hash as it was read. Returns false when it is a revision that is no number.
bool add_field(std::string_view name, std::string_view value, Stored &record);

} // namespace store

#endif
