// Records as text, and text as records.
#include "records/record_text.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

#include "base/failure.h"
#include "base/text.h"
#include "p_dev.pb-c.h"

namespace cg
{

namespace
{

using Field = ProtobufCFieldDescriptor;
using Message = ProtobufCMessageDescriptor;

[[noreturn]] void refuse(const std::string &message)
{
    throw Failure(wrong_usage, message);
}

const Message &message_of(const Field &field)
{
    return *static_cast<const Message *>(field.descriptor);
}

// Fields that the schemas declare as numbers although they hold values of an enumeration.
const ProtobufCEnumDescriptor *enumeration_of(const Message &message, const Field &field)
{
    if (field.type == PROTOBUF_C_TYPE_ENUM) {
        return static_cast<const ProtobufCEnumDescriptor *>(field.descriptor);
    }
    const bool node_type = field.type == PROTOBUF_C_TYPE_INT32 &&
                           std::string_view(field.name) == "node_type" &&
                           std::string_view(message.package_name) != "s_dev";
    return node_type ? &p_dev__dm_node_type_e__descriptor : nullptr;
}

std::vector<std::string> field_names(const Message &message)
{
    std::vector<std::string> names;
    for (unsigned i = 0; i < message.n_fields; ++i) {
        names.emplace_back(message.fields[i].name);
    }
    return names;
}

const Field &field_of(const Message &message, const std::string &name)
{
    const Field *field = protobuf_c_message_descriptor_get_field_by_name(&message, name.c_str());
    if (field == nullptr) {
        refuse("unknown field " + in_quotes(name) + " of " + message.name + "; " +
               suggestion(name, field_names(message)));
    }
    return *field;
}

std::string path_of(const std::string &parent, const std::string &name)
{
    return parent.empty() ? name : parent + '.' + name;
}

// ---- message to JSON

template <typename T>
T read(const void *place)
{
    T value;
    std::memcpy(&value, place, sizeof(T));
    return value;
}

Json enum_json(const ProtobufCEnumDescriptor &enumeration, int32_t number)
{
    const ProtobufCEnumValue *value = protobuf_c_enum_descriptor_get_value(&enumeration, number);
    return value == nullptr ? Json(number) : Json(value->name);
}

Json value_json(const Message &message, const Field &field, const void *place)
{
    const ProtobufCEnumDescriptor *enumeration = enumeration_of(message, field);
    switch (field.type) {
    case PROTOBUF_C_TYPE_INT32:
    case PROTOBUF_C_TYPE_ENUM: {
        const auto number = read<int32_t>(place);
        return enumeration == nullptr ? Json(number) : enum_json(*enumeration, number);
    }
    case PROTOBUF_C_TYPE_BOOL:
        return read<protobuf_c_boolean>(place) != 0;
    case PROTOBUF_C_TYPE_STRING: {
        const auto *text = static_cast<const char *>(read<void *>(place));
        return text == nullptr ? "" : text;
    }
    case PROTOBUF_C_TYPE_BYTES: {
        const auto bytes = read<ProtobufCBinaryData>(place);
        return to_hex(bytes.data, bytes.len);
    }
    case PROTOBUF_C_TYPE_MESSAGE: {
        const auto *inner = static_cast<const ProtobufCMessage *>(read<void *>(place));
        return inner == nullptr ? Json(nullptr) : to_json(*inner);
    }
    default:
        throw std::logic_error(std::string("no text form for the type of ") + message.name + '.' +
                               field.name);
    }
}

Json repeated_json(const Message &message, const Field &field, const std::byte *base)
{
    if (field.type != PROTOBUF_C_TYPE_MESSAGE) {
        throw std::logic_error(std::string("no text form for the repeated ") + message.name + '.' +
                               field.name);
    }
    const auto count = read<std::size_t>(base + field.quantifier_offset);
    const auto *entries = static_cast<ProtobufCMessage *const *>(read<void *>(base + field.offset));
    Json array = Json::array();
    for (std::size_t i = 0; i < count; ++i) {
        array.push_back(to_json(*entries[i]));
    }
    return array;
}

// ---- text to value

int32_t enum_number(const ProtobufCEnumDescriptor &enumeration, const std::string &path,
                    const std::string &text)
{
    if (const ProtobufCEnumValue *value =
            protobuf_c_enum_descriptor_get_value_by_name(&enumeration, text.c_str())) {
        return value->value;
    }
    if (const auto number = to_number(text, INT32_MIN, INT32_MAX)) {
        return static_cast<int32_t>(*number);
    }
    std::vector<std::string> names;
    for (unsigned i = 0; i < enumeration.n_values; ++i) {
        names.emplace_back(enumeration.values[i].name);
    }
    refuse(path + '=' + visible(text) + ": no value of " + enumeration.name + "; " + suggestion(text, names) +
           ", or a number");
}

bool boolean(const std::string &path, const std::string &text)
{
    if (text == "true" || text == "1") {
        return true;
    }
    if (text == "false" || text == "0") {
        return false;
    }
    refuse(path + '=' + visible(text) + ": not a truth value; true, false, 1 or 0");
}

int32_t whole_number(const std::string &path, const std::string &text)
{
    const auto number = to_number(text, INT32_MIN, INT32_MAX);
    if (!number) {
        refuse(path + '=' + visible(text) + ": not a whole number from -2147483648 to 2147483647");
    }
    return static_cast<int32_t>(*number);
}

Json empty_message(const std::string &path, const std::string &text, const Field &field)
{
    if (text == "{}") {
        return Json::object();
    }
    refuse(path + '=' + visible(text) + ": a " + message_of(field).name + " has fields of its own; " + path +
           '.' + message_of(field).fields[0].name + "=..., or " + path + "={} for an empty one");
}

Json text_json(const std::string &path, const std::string &text)
{
    if (!is_utf8(text)) {
        refuse(path + '=' + visible(text) + ": not UTF-8; texts of records are");
    }
    return text;
}

Json bytes_json(const std::string &path, const std::string &text)
{
    const auto bytes = from_hex(text);
    if (!bytes) {
        refuse(path + '=' + visible(text) + ": not hexadecimal; two digits for each byte, as in 00e0fc01");
    }
    return to_hex(reinterpret_cast<const uint8_t *>(bytes->data()), bytes->size());
}

Json parse_value(const Message &message, const Field &field, const std::string &path, const std::string &text)
{
    if (const ProtobufCEnumDescriptor *enumeration = enumeration_of(message, field)) {
        return enum_json(*enumeration, enum_number(*enumeration, path, text));
    }
    switch (field.type) {
    case PROTOBUF_C_TYPE_BOOL:
        return boolean(path, text);
    case PROTOBUF_C_TYPE_STRING:
        return text_json(path, text);
    case PROTOBUF_C_TYPE_BYTES:
        return bytes_json(path, text);
    case PROTOBUF_C_TYPE_MESSAGE:
        return empty_message(path, text, field);
    default:
        return whole_number(path, text);
    }
}

// ---- JSON to wire form

constexpr uint32_t wire_varint = 0;
constexpr uint32_t wire_bytes = 2;

void put_varint(std::string &wire, uint64_t value)
{
    for (; value >= 0x80; value >>= 7U) {
        wire += static_cast<char>(value | 0x80U);
    }
    wire += static_cast<char>(value);
}

void put_number(std::string &wire, uint32_t field, int32_t value)
{
    put_varint(wire, (uint64_t{field} << 3U) | wire_varint);
    put_varint(wire, static_cast<uint64_t>(int64_t{value})); // negative ones are written with their sign
}

void put_bytes(std::string &wire, uint32_t field, std::string_view bytes)
{
    put_varint(wire, (uint64_t{field} << 3U) | wire_bytes);
    put_varint(wire, bytes.size());
    wire += bytes;
}

std::string encode(const Message &message, const Json &fields, const std::string &parent);

int32_t number_from(const Message &message, const Field &field, const Json &value, const std::string &path)
{
    if (value.is_string()) {
        const ProtobufCEnumDescriptor *enumeration = enumeration_of(message, field);
        return enumeration == nullptr ? whole_number(path, value) : enum_number(*enumeration, path, value);
    }
    return whole_number(path, dump(value));
}

void encode_value(std::string &wire, const Message &message, const Field &field, const Json &value,
                  const std::string &path)
{
    switch (field.type) {
    case PROTOBUF_C_TYPE_BOOL:
        put_number(wire, field.id, boolean(path, value.is_string() ? value.get<std::string>() : dump(value)));
        return;
    case PROTOBUF_C_TYPE_STRING:
    case PROTOBUF_C_TYPE_BYTES: {
        if (!value.is_string()) {
            refuse(path + '=' + dump(value) + ": not a text");
        }
        const auto text = value.get<std::string>();
        put_bytes(wire, field.id,
                  field.type == PROTOBUF_C_TYPE_STRING
                      ? text
                      : *from_hex(bytes_json(path, text).get<std::string>()));
        return;
    }
    case PROTOBUF_C_TYPE_MESSAGE:
        put_bytes(wire, field.id, encode(message_of(field), value, path));
        return;
    default:
        put_number(wire, field.id, number_from(message, field, value, path));
    }
}

std::string encode(const Message &message, const Json &fields, const std::string &parent)
{
    if (!fields.is_object()) {
        refuse((parent.empty() ? "the record" : parent) + ": not an object with the fields of " +
               message.name);
    }
    std::string wire;
    for (const auto &[name, value] : fields.items()) {
        const Field &field = field_of(message, name);
        const std::string path = path_of(parent, name);
        if (value.is_null()) {
            continue;
        }
        if (field.label != PROTOBUF_C_LABEL_REPEATED) {
            encode_value(wire, message, field, value, path);
            continue;
        }
        if (!value.is_array()) {
            refuse(path + ": not a list");
        }
        for (const Json &entry : value) {
            encode_value(wire, message, field, entry, path);
        }
    }
    return wire;
}

// ---- assignments

struct Assignment {
    std::vector<std::string> path;
    std::string path_text; // for messages
    std::string value;
};

// Parts the text, and puts "index." before a key field.
Assignment parse_assignment(const RecordType &type, const std::string &text)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        refuse(in_quotes(text) + " is not an assignment; FIELD=VALUE with a field of " + type.name());
    }
    Assignment result{split(text.substr(0, equals), '.'), visible(text.substr(0, equals)),
                      text.substr(equals + 1)};
    const std::string &first = result.path.front();
    const bool own =
        protobuf_c_message_descriptor_get_field_by_name(type.descriptor, first.c_str()) != nullptr;
    if (own || type.key() == nullptr) {
        return result;
    }
    if (protobuf_c_message_descriptor_get_field_by_name(type.key(), first.c_str()) == nullptr) {
        std::vector<std::string> names = field_names(*type.key());
        for (const std::string &name : field_names(*type.descriptor)) {
            if (name != type.index->name) {
                names.push_back(name);
            }
        }
        refuse("unknown field " + in_quotes(first) + " of " + type.name() + "; " + suggestion(first, names));
    }
    result.path.insert(result.path.begin(), type.index->name);
    return result;
}

// The entry of a repeated field that a path names; the one behind the last is made.
Json &entry_at(Json &array, const std::string &path, const std::string &position_text)
{
    if (!array.is_array()) {
        array = Json::array();
    }
    const auto position = to_number(position_text, 0, static_cast<int64_t>(array.size()));
    if (!position) {
        refuse(path + '.' + visible(position_text) + ": no entry there; a position from 0 to " +
               std::to_string(array.size()));
    }
    if (static_cast<std::size_t>(*position) == array.size()) {
        array.push_back(Json::object());
    }
    return array[static_cast<std::size_t>(*position)];
}

void assign_at(const Message &message, Json &fields, const Assignment &assignment, std::size_t depth,
               const std::string &parent)
{
    const Field &field = field_of(message, assignment.path[depth]);
    const std::string path = path_of(parent, field.name);
    Json *place = &fields[field.name];
    std::size_t next = depth + 1;
    if (field.label == PROTOBUF_C_LABEL_REPEATED) {
        if (next == assignment.path.size()) {
            refuse(assignment.path_text + ": a list; say which entry, as in " + assignment.path_text + ".0." +
                   message_of(field).fields[0].name + "=...");
        }
        place = &entry_at(*place, path, assignment.path[next++]);
    }
    if (next == assignment.path.size()) {
        *place = parse_value(message, field, assignment.path_text, assignment.value);
        return;
    }
    if (field.type != PROTOBUF_C_TYPE_MESSAGE) {
        refuse(assignment.path_text + ": " + path + " is a single value and has no fields");
    }
    if (!place->is_object()) {
        *place = Json::object();
    }
    assign_at(message_of(field), *place, assignment, next, path);
}

// ---- lines

bool is_default(const Message &message, const Field &field, const Json &value)
{
    if (const ProtobufCEnumDescriptor *enumeration = enumeration_of(message, field)) {
        return value == enum_json(*enumeration, 0);
    }
    return value == Json(0) || value == Json(false) || value == Json("");
}

void add_lines(std::vector<std::string> &lines, const Message &message, const Json &fields, Shown shown,
               const std::string &parent);

void add_value(std::vector<std::string> &lines, const Message &message, const Field &field, const Json &value,
               Shown shown, const std::string &path)
{
    if (field.type == PROTOBUF_C_TYPE_MESSAGE) {
        if (value.is_object()) {
            add_lines(lines, message_of(field), value, shown, path);
        }
        return;
    }
    if (shown == Shown::set && is_default(message, field, value)) {
        return;
    }
    if (field.type == PROTOBUF_C_TYPE_STRING) {
        lines.push_back(path + '=' + in_quotes(value.get<std::string>()));
        return;
    }
    lines.push_back(path + '=' + (value.is_string() ? value.get<std::string>() : dump(value)));
}

void add_lines(std::vector<std::string> &lines, const Message &message, const Json &fields, Shown shown,
               const std::string &parent)
{
    for (const auto &[name, value] : fields.items()) {
        const Field &field = field_of(message, name);
        const std::string path = path_of(parent, name);
        if (!value.is_array()) {
            add_value(lines, message, field, value, shown, path);
            continue;
        }
        for (std::size_t i = 0; i < value.size(); ++i) {
            add_value(lines, message, field, value[i], shown, path_of(path, std::to_string(i)));
        }
    }
}

} // namespace

std::string enum_text(const ProtobufCEnumDescriptor &enumeration, int32_t number)
{
    const ProtobufCEnumValue *value = protobuf_c_enum_descriptor_get_value(&enumeration, number);
    return value == nullptr ? std::to_string(number) : value->name;
}

Json to_json(const ProtobufCMessage &message)
{
    const Message &type = *message.descriptor;
    const auto *base = reinterpret_cast<const std::byte *>(&message);
    Json fields = Json::object();
    for (unsigned i = 0; i < type.n_fields; ++i) {
        const Field &field = type.fields[i];
        fields[field.name] = field.label == PROTOBUF_C_LABEL_REPEATED
                                 ? repeated_json(type, field, base)
                                 : value_json(type, field, base + field.offset);
    }
    return fields;
}

MessagePtr from_json(const ProtobufCMessageDescriptor &type, const Json &fields)
{
    const std::string wire = encode(type, fields, "");
    MessagePtr message(protobuf_c_message_unpack(&type, nullptr, wire.size(),
                                                 reinterpret_cast<const uint8_t *>(wire.data())));
    if (!message) {
        throw Failure(failed, std::string("could not build a ") + type.name + ": memory ran out");
    }
    return message;
}

void assign(const RecordType &type, Json &fields, const std::string &assignment)
{
    assign_at(*type.descriptor, fields, parse_assignment(type, assignment), 0, "");
}

uint32_t field_number(const RecordType &type, const std::string &assignment)
{
    return field_of(*type.descriptor, parse_assignment(type, assignment).path.front()).id;
}

Json key_part(const RecordType &type, const Json &fields)
{
    if (type.index == nullptr || !fields.contains(type.index->name) || fields[type.index->name].is_null()) {
        return Json::object();
    }
    return fields[type.index->name];
}

Json payload_part(const RecordType &type, const Json &fields)
{
    Json payload = fields;
    if (type.index != nullptr) {
        payload.erase(type.index->name);
    }
    return payload;
}

std::vector<std::string> to_lines(const ProtobufCMessageDescriptor &type, const Json &fields, Shown shown)
{
    std::vector<std::string> lines;
    add_lines(lines, type, fields, shown, "");
    return lines;
}

} // namespace cg
