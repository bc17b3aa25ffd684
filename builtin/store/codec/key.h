// A record's key in the store: its type's name, then each field of its index, joined by colons.
//
// `p_dev.card_info:0:1:3:0`, or `p_dev.dp_lib_grole` for a type without an index. Texts are escaped with
// percent signs, so that no value can hold a separator, a glob character or a control byte: access lists and
// prefixes then mean what they say. A packed index as the key was rejected; nobody could read or grant it.
#ifndef CODEC_KEY_H
#define CODEC_KEY_H

#include <protobuf-c/protobuf-c.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace store
{

// The field that holds the index of a record type, found by its key attribute. Null when the type has none.
// `known` tells whether the schemas know the type at all.
const ProtobufCFieldDescriptor *index_field(const ProtobufCMessageDescriptor &type, bool &known);

// How many fields the type's index has; 0 without an index.
size_t key_field_count(const ProtobufCMessageDescriptor &type);

// The key of a record. An absent index counts as one with every field at its default.
std::string encode_key(const ProtobufCMessage &record);

// What the keys of all records begin with whose first `count` index fields equal this record's: with a
// trailing colon unless all fields are given.
std::string encode_key_prefix(const ProtobufCMessage &record, size_t count);

// Turns a key back into the wire bytes of the record's index field and appends them to `wire`; appends
// nothing for a type without an index. Returns false when the text is not the key of such a record, in
// exactly the form that encode_key() gives it.
bool decode_key(const ProtobufCMessageDescriptor &type, std::string_view key, std::string &wire);

} // namespace store

#endif
