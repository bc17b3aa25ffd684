// Single values of a record as text, and back as wire bytes.
//
// Scalars are stored as readable text, so that an operator can read and write them with the server's own
// command-line tool; packed values throughout would have been one call less but unreadable.
#ifndef CODEC_SCALAR_H
#define CODEC_SCALAR_H

#include <protobuf-c/protobuf-c.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace store
{

// Appends a variable-length integer of the wire format.
void append_varint(std::string &wire, uint64_t value);

// Appends a length-delimited field of the wire format: tag, length, bytes.
void append_delimited(std::string &wire, uint32_t field_number, std::string_view bytes);

// Reads a variable-length integer at the front of `wire` and cuts it off. Returns false when it is cut short
// or longer than 64 bits.
bool parse_varint(std::string_view &wire, uint64_t &value);

// Whether a field of this type is stored as text (integers, booleans, enumerations, texts, bytes); messages
// and repeated fields are not.
bool is_scalar(const ProtobufCFieldDescriptor &field);

// The value of a scalar field in a record as text: numbers in decimal, booleans 0 or 1, texts and bytes as
// they are.
std::string scalar_text(const ProtobufCFieldDescriptor &field, const ProtobufCMessage &record);

// Whether a scalar field of a record is at its default: 0, false, or no bytes.
bool is_default_scalar(const ProtobufCFieldDescriptor &field, const ProtobufCMessage &record);

// Appends the wire bytes of a scalar field whose value is given as text. Returns false when the text is no
// value of the field's type: a number in any but the shortest decimal form or out of range, a boolean other
// than 0 and 1, a text with a zero byte.
bool append_scalar(const ProtobufCFieldDescriptor &field, std::string_view text, std::string &wire);

// The place of a field's value inside a record.
const void *member_of(const ProtobufCMessage &record, unsigned offset);

} // namespace store

#endif
