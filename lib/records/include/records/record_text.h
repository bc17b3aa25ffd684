// Records as text, and text as records.
//
// In between stands JSON, because it is what most verbs print and because its tree is easy to change by field
// names. Values in it: whole numbers; booleans; enumerations by name, or by number where they have none;
// texts; bytes as hexadecimal digits; sub-messages as objects, null when absent; repeated ones as arrays.
//
// Walking protobuf-c's structures and filling them in place was the alternative for the way back. Here the
// wire form is written and unpacked instead: then one library allocates what it later frees.
#ifndef RECORDS_RECORD_TEXT_H
#define RECORDS_RECORD_TEXT_H

#include <protobuf-c/protobuf-c.h>

#include <memory>
#include <string>

#include "base/json.h"
#include "records/record_types.h"

namespace cg
{

struct FreeMessage {
    void operator()(ProtobufCMessage *message) const noexcept
    {
        protobuf_c_message_free_unpacked(message, nullptr);
    }
};
using MessagePtr = std::unique_ptr<ProtobufCMessage, FreeMessage>;

// The name of an enumeration's value; its number where it has none.
std::string enum_text(const ProtobufCEnumDescriptor &enumeration, int32_t number);

// All fields of a message, defaults included.
Json to_json(const ProtobufCMessage &message);

// The message that has these fields; fields that are missing or null are at their defaults. Throws Failure
// (wrong usage) for an unknown field or a value that does not fit.
MessagePtr from_json(const ProtobufCMessageDescriptor &type, const Json &fields);

// Carries out "PATH=VALUE" on the fields of a record. PATH is a field's name; dots lead into sub-messages
// (static_info.node_type) and to the entries of repeated ones by position, counted from 0
// (card_role.0.devid). A key field needs no "index." before it. "PATH={}" makes a sub-message present and
// empty. Throws Failure (wrong usage) that names what is wrong and what would be right.
void assign(const RecordType &type, Json &fields, const std::string &assignment);

// The number of the record's field that an assignment's path begins with; that of the index for a key field.
uint32_t field_number(const RecordType &type, const std::string &assignment);

// The key of a record's JSON: the fields of its index; an empty object for a type without one.
Json key_part(const RecordType &type, const Json &fields);

// A record's JSON without its key.
Json payload_part(const RecordType &type, const Json &fields);

// Which fields a text shows.
enum class Shown { all, set };

// One line for each value, "path=value", texts in quotes, control characters made visible. With Shown::set
// those at their defaults are left out.
std::vector<std::string> to_lines(const ProtobufCMessageDescriptor &type, const Json &fields, Shown shown);

} // namespace cg

#endif
