// Record content, both ways; see the header for the form. A record is decoded by putting the wire bytes of
// its fields one after the other and unpacking once, which is several times faster than setting members one
// by one and leaves all memory with protobuf-c.
#include "store/codec/value.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "store/codec/key.h"
#include "store/codec/number.h"
#include "store/codec/scalar.h"

namespace store
{

namespace
{

std::string packed(const ProtobufCMessage &message)
{
    std::string bytes(protobuf_c_message_get_packed_size(&message), '\0');
    protobuf_c_message_pack(&message, reinterpret_cast<uint8_t *>(bytes.data()));
    return bytes;
}

const ProtobufCMessage *sub_message(const ProtobufCMessage &record, const ProtobufCFieldDescriptor &field)
{
    return *static_cast<const ProtobufCMessage *const *>(member_of(record, field.offset));
}

// The wire bytes of one repeated field: packs a copy of the record that has only this field set.
std::string packed_alone(const ProtobufCMessage &record, const ProtobufCFieldDescriptor &field)
{
    const ProtobufCMessageDescriptor &type = *record.descriptor;
    const std::unique_ptr<char[]> storage(new char[type.sizeof_message]);
    auto *lone = reinterpret_cast<ProtobufCMessage *>(storage.get());
    type.message_init(lone);
    std::memcpy(storage.get() + field.offset, member_of(record, field.offset), sizeof(void *));
    std::memcpy(storage.get() + field.quantifier_offset, member_of(record, field.quantifier_offset),
                sizeof(size_t));
    return packed(*lone);
}

bool encode_field(const ProtobufCMessage &record, const ProtobufCFieldDescriptor &field, Content &content)
{
    std::string name = std::to_string(field.id);
    std::string value;
    bool present = false;
    if (is_scalar(field)) {
        present = !is_default_scalar(field, record);
        value = present ? scalar_text(field, record) : std::string();
    } else if (field.label == PROTOBUF_C_LABEL_REPEATED) {
        value = packed_alone(record, field);
        present = !value.empty();
    } else if (field.type == PROTOBUF_C_TYPE_MESSAGE) {
        const ProtobufCMessage *message = sub_message(record, field);
        present = message != nullptr;
        value = present ? packed(*message) : std::string();
    } else {
        return false;
    }
    if (present) {
        content.present.emplace_back(std::move(name), std::move(value));
    } else {
        content.absent.push_back(std::move(name));
    }
    return true;
}

bool skip_value(std::string_view &wire, uint64_t wire_type)
{
    uint64_t length = 0;
    switch (wire_type) {
    case 0:
        return parse_varint(wire, length);
    case 1:
        length = 8;
        break;
    case 2:
        if (!parse_varint(wire, length)) {
            return false;
        }
        break;
    case 5:
        length = 4;
        break;
    default:
        return false;
    }
    if (length > wire.size()) {
        return false;
    }
    wire.remove_prefix(length);
    return true;
}

// Whether these wire bytes hold nothing but values of the one field: others could overwrite their neighbours.
bool holds_only(const ProtobufCFieldDescriptor &field, std::string_view wire)
{
    while (!wire.empty()) {
        uint64_t tag = 0;
        if (!parse_varint(wire, tag) || tag >> 3U != field.id || !skip_value(wire, tag & 7U)) {
            return false;
        }
    }
    return true;
}

bool append_stored(const ProtobufCFieldDescriptor &field, const std::string &value, std::string &wire)
{
    if (is_scalar(field)) {
        return append_scalar(field, value, wire);
    }
    if (field.label == PROTOBUF_C_LABEL_REPEATED) {
        if (!holds_only(field, value)) {
            return false;
        }
        wire += value;
        return true;
    }
    if (field.type != PROTOBUF_C_TYPE_MESSAGE) {
        return false;
    }
    append_delimited(wire, field.id, value);
    return true;
}

// The field of the type that a hash field's name stands for; null for names that are no known number in the
// form that is written. With "06" beside "6" the order within the hash would decide what the record holds.
const ProtobufCFieldDescriptor *field_named(const ProtobufCMessageDescriptor &type, const std::string &name)
{
    unsigned number = 0;
    if (!parse_shortest(name, number)) {
        return nullptr;
    }
    return protobuf_c_message_descriptor_get_field(&type, number);
}

// What a record's wire bytes hardly ever exceed.
size_t room_for(std::string_view key, const Fields &fields)
{
    constexpr size_t number_and_length = 12;
    size_t room = key.size() + number_and_length;
    for (const auto &field : fields) {
        room += field.second.size() + number_and_length;
    }
    return room;
}

} // namespace

bool encode_record(const ProtobufCMessage &record, Content &content)
{
    bool known = false;
    const ProtobufCFieldDescriptor *index = index_field(*record.descriptor, known);
    content.present.reserve(record.descriptor->n_fields);
    content.absent.reserve(record.descriptor->n_fields);
    for (unsigned i = 0; i < record.descriptor->n_fields; i++) {
        const ProtobufCFieldDescriptor *field = &record.descriptor->fields[i];
        if (field != index && !encode_field(record, *field, content)) {
            return false;
        }
    }
    return known;
}

bool encode_fields(const ProtobufCMessage &record, const int32_t *numbers, int32_t count, Content &content)
{
    bool known = false;
    const ProtobufCFieldDescriptor *index = index_field(*record.descriptor, known);
    content.present.reserve(static_cast<size_t>(std::max(count, 0)));
    for (int32_t i = 0; i < count; i++) {
        if (std::find(numbers, numbers + i, numbers[i]) != numbers + i) {
            continue; // named before; the store's functions count on names that differ
        }
        const auto number = static_cast<unsigned>(numbers[i]);
        const ProtobufCFieldDescriptor *field =
            protobuf_c_message_descriptor_get_field(record.descriptor, number);
        if (field == nullptr || (field != index && !encode_field(record, *field, content))) {
            return false;
        }
    }
    return known;
}

MessagePtr decode_record(const ProtobufCMessageDescriptor &type, std::string_view key, const Fields &fields,
                         std::string &why)
{
    bool known = false;
    const ProtobufCFieldDescriptor *index = index_field(type, known);
    std::string wire;
    wire.reserve(room_for(key, fields));
    if (!decode_key(type, key, wire)) {
        why = "the key is not one of this type";
        return nullptr;
    }
    for (const auto &[name, value] : fields) {
        const ProtobufCFieldDescriptor *field = field_named(type, name);
        if (field == nullptr || field == index) {
            continue;
        }
        if (!append_stored(*field, value, wire)) {
            why = "field " + name + " (" + field->name + ") holds no value of its type";
            return nullptr;
        }
    }
    auto memory = std::make_unique_for_overwrite<MessageMemory>();
    ProtobufCMessage *made = protobuf_c_message_unpack(&type, &memory->allocator(), wire.size(),
                                                       reinterpret_cast<const uint8_t *>(wire.data()));
    MessagePtr message(made, FreeMessage{std::move(memory)});
    if (message == nullptr) {
        why = "a sub-message is cut short or malformed";
    }
    return message;
}

bool add_field(std::string_view name, std::string_view value, Stored &record)
{
    if (name == revision_field) {
        return parse_number(value, record.revision);
    }
    if (name == writer_field) {
        record.mark = value;
    } else {
        record.fields.emplace_back(name, value);
    }
    return true;
}

} // namespace store
