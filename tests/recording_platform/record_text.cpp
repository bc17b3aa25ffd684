// Records as text, and copies of records.
//
// Walks the descriptor rather than knowing the types, so that a new field of a schema shows up in every
// journal by itself.
#include <array>
#include <cstdio>
#include <cstring>

#include "state.h"

namespace recording
{

namespace
{

template <typename T>
T load(const void *at)
{
    T value;
    std::memcpy(&value, at, sizeof(T)); // NOLINT(bugprone-sizeof-expression): of the pointer itself
    return value;
}

std::size_t element_size(const ProtobufCFieldDescriptor &field)
{
    switch (field.type) {
    case PROTOBUF_C_TYPE_INT64:
    case PROTOBUF_C_TYPE_SINT64:
    case PROTOBUF_C_TYPE_SFIXED64:
    case PROTOBUF_C_TYPE_UINT64:
    case PROTOBUF_C_TYPE_FIXED64:
    case PROTOBUF_C_TYPE_DOUBLE:
        return sizeof(int64_t);
    case PROTOBUF_C_TYPE_BOOL:
        return sizeof(protobuf_c_boolean);
    case PROTOBUF_C_TYPE_STRING:
    case PROTOBUF_C_TYPE_MESSAGE:
        return sizeof(void *);
    case PROTOBUF_C_TYPE_BYTES:
        return sizeof(ProtobufCBinaryData);
    default:
        return sizeof(int32_t);
    }
}

std::string text_of_enum(const ProtobufCFieldDescriptor &field, const void *at)
{
    const int32_t number = load<int32_t>(at);
    const auto *type = static_cast<const ProtobufCEnumDescriptor *>(field.descriptor);
    const ProtobufCEnumValue *value = protobuf_c_enum_descriptor_get_value(type, number);
    return value == nullptr ? std::to_string(number) : value->name;
}

std::string text_of_bytes(const void *at)
{
    const auto bytes = load<ProtobufCBinaryData>(at);
    std::string text;
    for (std::size_t i = 0; i < bytes.len; i++) {
        std::array<char, 3> digits{};
        (void)std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(bytes.data[i]));
        text += digits.data();
    }
    return text;
}

std::string text_of_text(const void *at)
{
    const char *text = load<const char *>(at);
    return text == nullptr || *text == '\0' ? "" : "\"" + std::string(text) + "\"";
}

std::string fields_of(const ProtobufCMessage *record);

std::string text_of_message(const void *at)
{
    const auto *message = load<const ProtobufCMessage *>(at);
    return message == nullptr ? "" : "{" + fields_of(message) + "}";
}

// The value without its name; empty for an absent sub-message, an empty text and no bytes.
std::string text_of_value(const ProtobufCFieldDescriptor &field, const void *at)
{
    switch (field.type) {
    case PROTOBUF_C_TYPE_ENUM:
        return text_of_enum(field, at);
    case PROTOBUF_C_TYPE_STRING:
        return text_of_text(at);
    case PROTOBUF_C_TYPE_BYTES:
        return text_of_bytes(at);
    case PROTOBUF_C_TYPE_MESSAGE:
        return text_of_message(at);
    case PROTOBUF_C_TYPE_BOOL:
        return load<protobuf_c_boolean>(at) != 0 ? "true" : "false";
    case PROTOBUF_C_TYPE_UINT32:
    case PROTOBUF_C_TYPE_FIXED32:
        return std::to_string(load<uint32_t>(at));
    case PROTOBUF_C_TYPE_UINT64:
    case PROTOBUF_C_TYPE_FIXED64:
        return std::to_string(load<uint64_t>(at));
    case PROTOBUF_C_TYPE_INT64:
    case PROTOBUF_C_TYPE_SINT64:
    case PROTOBUF_C_TYPE_SFIXED64:
        return std::to_string(load<int64_t>(at));
    case PROTOBUF_C_TYPE_FLOAT:
        return std::to_string(load<float>(at));
    case PROTOBUF_C_TYPE_DOUBLE:
        return std::to_string(load<double>(at));
    default:
        return std::to_string(load<int32_t>(at));
    }
}

bool is_number(const ProtobufCFieldDescriptor &field)
{
    return field.type != PROTOBUF_C_TYPE_STRING && field.type != PROTOBUF_C_TYPE_BYTES &&
           field.type != PROTOBUF_C_TYPE_MESSAGE;
}

bool is_zero(const ProtobufCFieldDescriptor &field, const char *at)
{
    for (std::size_t i = 0; i < element_size(field); i++) {
        if (at[i] != 0) {
            return false;
        }
    }
    return true;
}

std::string text_of_repeated(const ProtobufCFieldDescriptor &field, const char *base)
{
    const auto count = load<std::size_t>(base + field.quantifier_offset);
    const char *elements = load<const char *>(base + field.offset);
    std::string text;
    for (std::size_t i = 0; i < count; i++) {
        text += (i == 0 ? "" : " ") + text_of_value(field, elements + i * element_size(field));
    }
    return count == 0 ? "" : "[" + text + "]";
}

// What stands behind the name; empty for a field at its default.
std::string text_of_field(const ProtobufCFieldDescriptor &field, const char *base)
{
    if (field.label == PROTOBUF_C_LABEL_REPEATED) {
        return text_of_repeated(field, base);
    }
    const char *at = base + field.offset;
    return is_number(field) && is_zero(field, at) ? "" : text_of_value(field, at);
}

std::string fields_of(const ProtobufCMessage *record)
{
    std::string text;
    for (unsigned i = 0; i < record->descriptor->n_fields; i++) {
        const ProtobufCFieldDescriptor &field = record->descriptor->fields[i];
        const std::string value = text_of_field(field, reinterpret_cast<const char *>(record));
        if (!value.empty()) {
            text += (text.empty() ? "" : " ") + std::string(field.name) + "=" + value;
        }
    }
    return text;
}

void free_record(ProtobufCMessage *record)
{
    protobuf_c_message_free_unpacked(record, nullptr);
}

} // namespace

std::string text_of(const ProtobufCMessage *record)
{
    return record == nullptr ? "null" : std::string(record->descriptor->name) + "{" + fields_of(record) + "}";
}

Record copy_of(const ProtobufCMessage *record)
{
    if (record == nullptr) {
        return nullptr;
    }
    std::vector<uint8_t> packed(protobuf_c_message_get_packed_size(record));
    protobuf_c_message_pack(record, packed.data());
    return {protobuf_c_message_unpack(record->descriptor, nullptr, packed.size(), packed.data()),
            free_record};
}

} // namespace recording
