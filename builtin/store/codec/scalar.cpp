// Values as text and as wire bytes; see the header. The wire bytes are made here and not by packing a record
// with one field set because the way back would then need a second, hand-filled record.
#include "store/codec/scalar.h"

#include <array>
#include <cstring>

#include "store/codec/number.h"

namespace store
{

namespace
{

enum WireType : uint64_t { wire_varint = 0, wire_64_bit = 1, wire_delimited = 2, wire_32_bit = 5 };

void append_tag(std::string &wire, uint32_t field_number, WireType type)
{
    append_varint(wire, (static_cast<uint64_t>(field_number) << 3U) | type);
}

template <typename Number>
Number number_at(const void *place)
{
    Number number{};
    std::memcpy(&number, place, sizeof number);
    return number;
}

template <typename Number>
bool append_number_varint(std::string_view text, std::string &wire)
{
    Number number{};
    if (!parse_shortest(text, number)) {
        return false;
    }
    // Negative numbers go sign-extended to 64 bits.
    append_varint(wire, static_cast<uint64_t>(static_cast<int64_t>(number)));
    return true;
}

template <typename Number>
bool append_zigzag(std::string_view text, std::string &wire)
{
    Number number{};
    if (!parse_shortest(text, number)) {
        return false;
    }
    const auto wide = static_cast<int64_t>(number);
    append_varint(wire, (static_cast<uint64_t>(wide) << 1U) ^ static_cast<uint64_t>(wide >> 63));
    return true;
}

template <typename Number>
bool append_fixed(std::string_view text, std::string &wire)
{
    Number number{};
    if (!parse_shortest(text, number)) {
        return false;
    }
    auto rest = static_cast<uint64_t>(number);
    for (size_t i = 0; i < sizeof number; i++) {
        wire += static_cast<char>(rest & 0xffU);
        rest >>= 8U;
    }
    return true;
}

WireType wire_type_of(ProtobufCType type)
{
    switch (type) {
    case PROTOBUF_C_TYPE_SFIXED32:
    case PROTOBUF_C_TYPE_FIXED32:
        return wire_32_bit;
    case PROTOBUF_C_TYPE_SFIXED64:
    case PROTOBUF_C_TYPE_FIXED64:
        return wire_64_bit;
    case PROTOBUF_C_TYPE_STRING:
    case PROTOBUF_C_TYPE_BYTES:
        return wire_delimited;
    default:
        return wire_varint;
    }
}

bool append_bytes(const ProtobufCFieldDescriptor &field, std::string_view text, std::string &wire)
{
    if (field.type == PROTOBUF_C_TYPE_STRING && text.find('\0') != std::string_view::npos) {
        return false;
    }
    append_varint(wire, text.size());
    wire += text;
    return true;
}

bool append_value(const ProtobufCFieldDescriptor &field, std::string_view text, std::string &wire)
{
    switch (field.type) {
    case PROTOBUF_C_TYPE_INT32:
    case PROTOBUF_C_TYPE_ENUM:
        return append_number_varint<int32_t>(text, wire);
    case PROTOBUF_C_TYPE_INT64:
        return append_number_varint<int64_t>(text, wire);
    case PROTOBUF_C_TYPE_UINT32:
        return append_number_varint<uint32_t>(text, wire);
    case PROTOBUF_C_TYPE_UINT64:
        return append_number_varint<uint64_t>(text, wire);
    case PROTOBUF_C_TYPE_SINT32:
        return append_zigzag<int32_t>(text, wire);
    case PROTOBUF_C_TYPE_SINT64:
        return append_zigzag<int64_t>(text, wire);
    case PROTOBUF_C_TYPE_SFIXED32:
        return append_fixed<int32_t>(text, wire);
    case PROTOBUF_C_TYPE_SFIXED64:
        return append_fixed<int64_t>(text, wire);
    case PROTOBUF_C_TYPE_FIXED32:
        return append_fixed<uint32_t>(text, wire);
    case PROTOBUF_C_TYPE_FIXED64:
        return append_fixed<uint64_t>(text, wire);
    case PROTOBUF_C_TYPE_BOOL:
        return (text == "0" || text == "1") && append_number_varint<uint32_t>(text, wire);
    case PROTOBUF_C_TYPE_STRING:
    case PROTOBUF_C_TYPE_BYTES:
        return append_bytes(field, text, wire);
    default:
        return false;
    }
}

std::string bytes_text(const void *place)
{
    const auto bytes = number_at<ProtobufCBinaryData>(place);
    if (bytes.data == nullptr) {
        return {};
    }
    std::string text(bytes.len, '\0');
    std::memcpy(text.data(), bytes.data, bytes.len);
    return text;
}

} // namespace

void append_varint(std::string &wire, uint64_t value)
{
    std::array<char, 10> bytes;
    size_t count = 0;
    while (value >= 0x80U) {
        bytes[count++] = static_cast<char>((value & 0x7fU) | 0x80U);
        value >>= 7U;
    }
    bytes[count++] = static_cast<char>(value);
    wire.append(bytes.data(), count);
}

void append_delimited(std::string &wire, uint32_t field_number, std::string_view bytes)
{
    append_tag(wire, field_number, wire_delimited);
    append_varint(wire, bytes.size());
    wire += bytes;
}

bool parse_varint(std::string_view &wire, uint64_t &value)
{
    value = 0;
    for (unsigned shift = 0; shift < 64 && !wire.empty(); shift += 7) {
        const auto byte = static_cast<unsigned char>(wire.front());
        wire.remove_prefix(1);
        value |= static_cast<uint64_t>(byte & 0x7fU) << shift;
        if (byte < 0x80U) {
            return true;
        }
    }
    return false;
}

bool is_scalar(const ProtobufCFieldDescriptor &field)
{
    return field.label != PROTOBUF_C_LABEL_REPEATED && field.type != PROTOBUF_C_TYPE_MESSAGE &&
           field.type != PROTOBUF_C_TYPE_FLOAT && field.type != PROTOBUF_C_TYPE_DOUBLE;
}

std::string scalar_text(const ProtobufCFieldDescriptor &field, const ProtobufCMessage &record)
{
    const void *place = member_of(record, field.offset);
    switch (field.type) {
    case PROTOBUF_C_TYPE_INT32:
    case PROTOBUF_C_TYPE_SINT32:
    case PROTOBUF_C_TYPE_SFIXED32:
    case PROTOBUF_C_TYPE_ENUM:
        return std::to_string(number_at<int32_t>(place));
    case PROTOBUF_C_TYPE_INT64:
    case PROTOBUF_C_TYPE_SINT64:
    case PROTOBUF_C_TYPE_SFIXED64:
        return std::to_string(number_at<int64_t>(place));
    case PROTOBUF_C_TYPE_UINT32:
    case PROTOBUF_C_TYPE_FIXED32:
        return std::to_string(number_at<uint32_t>(place));
    case PROTOBUF_C_TYPE_UINT64:
    case PROTOBUF_C_TYPE_FIXED64:
        return std::to_string(number_at<uint64_t>(place));
    case PROTOBUF_C_TYPE_BOOL:
        return number_at<protobuf_c_boolean>(place) != 0 ? "1" : "0";
    case PROTOBUF_C_TYPE_STRING: {
        const char *text = number_at<const char *>(place);
        return text == nullptr ? std::string() : std::string(text);
    }
    case PROTOBUF_C_TYPE_BYTES:
        return bytes_text(place);
    default:
        return {};
    }
}

bool is_default_scalar(const ProtobufCFieldDescriptor &field, const ProtobufCMessage &record)
{
    const void *place = member_of(record, field.offset);
    switch (field.type) {
    case PROTOBUF_C_TYPE_STRING: {
        const char *text = number_at<const char *>(place);
        return text == nullptr || *text == '\0';
    }
    case PROTOBUF_C_TYPE_BYTES: {
        const auto bytes = number_at<ProtobufCBinaryData>(place);
        return bytes.data == nullptr || bytes.len == 0;
    }
    case PROTOBUF_C_TYPE_INT64:
    case PROTOBUF_C_TYPE_SINT64:
    case PROTOBUF_C_TYPE_SFIXED64:
    case PROTOBUF_C_TYPE_UINT64:
    case PROTOBUF_C_TYPE_FIXED64:
        return number_at<uint64_t>(place) == 0;
    case PROTOBUF_C_TYPE_BOOL:
        return number_at<protobuf_c_boolean>(place) == 0;
    default:
        return number_at<uint32_t>(place) == 0;
    }
}

bool append_scalar(const ProtobufCFieldDescriptor &field, std::string_view text, std::string &wire)
{
    append_tag(wire, field.id, wire_type_of(field.type));
    return append_value(field, text, wire);
}

const void *member_of(const ProtobufCMessage &record, unsigned offset)
{
    return reinterpret_cast<const char *>(&record) + offset;
}

} // namespace store
