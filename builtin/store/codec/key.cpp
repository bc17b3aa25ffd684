// Record keys, both ways; see the header for the form. Decoding is strict: a second spelling of the same
// index would be a second record for the server and the same one for the reader.
#include "store/codec/key.h"

#include <memory>
#include <vector>

#include "store/codec/names.h"
#include "store/codec/scalar.h"
#include "vx_mom_schema.h"

namespace store
{

namespace
{

constexpr int32_t key_attribute = 2;

const ProtobufCMessage *index_of(const ProtobufCMessage &record, const ProtobufCFieldDescriptor &field)
{
    return *static_cast<const ProtobufCMessage *const *>(member_of(record, field.offset));
}

bool is_text(const ProtobufCFieldDescriptor &field)
{
    return field.label != PROTOBUF_C_LABEL_REPEATED &&
           (field.type == PROTOBUF_C_TYPE_STRING || field.type == PROTOBUF_C_TYPE_BYTES);
}

// One field of the index as it stands in the key; `index` may be null.
void append_part(std::string &key, const ProtobufCFieldDescriptor &field, const ProtobufCMessage *index)
{
    key += ':';
    if (is_text(field)) {
        key += index == nullptr ? std::string() : key_part(scalar_text(field, *index));
    } else {
        key += index == nullptr ? "0" : scalar_text(field, *index);
    }
}

bool append_index_field(const ProtobufCFieldDescriptor &field, std::string_view part, std::string &wire)
{
    if (!is_text(field)) {
        return is_scalar(field) && append_scalar(field, part, wire); // nothing in a number is escaped
    }
    std::string text;
    return parse_key_part(part, text) && append_scalar(field, text, wire);
}

// The parts between the colons that follow the type's name; false when the key is not of the type.
bool split(const ProtobufCMessageDescriptor &type, std::string_view key, std::vector<std::string_view> &parts)
{
    const std::string_view name = type.name;
    if (key.substr(0, name.size()) != name) {
        return false;
    }
    key.remove_prefix(name.size());
    while (!key.empty()) {
        if (key.front() != ':') {
            return false;
        }
        key.remove_prefix(1);
        const size_t end = std::min(key.find(':'), key.size());
        parts.push_back(key.substr(0, end));
        key.remove_prefix(end);
    }
    return true;
}

} // namespace

const ProtobufCFieldDescriptor *index_field(const ProtobufCMessageDescriptor &type, bool &known)
{
    known = true;
    for (unsigned i = 0; i < type.n_fields; i++) {
        const int32_t attribute = vx_mom_key_attribute(&type, type.fields[i].id);
        known = known && attribute >= 0;
        if (attribute == key_attribute && type.fields[i].type == PROTOBUF_C_TYPE_MESSAGE &&
            type.fields[i].label != PROTOBUF_C_LABEL_REPEATED) {
            return &type.fields[i];
        }
    }
    return nullptr;
}

size_t key_field_count(const ProtobufCMessageDescriptor &type)
{
    bool known = false;
    const ProtobufCFieldDescriptor *index = index_field(type, known);
    return index == nullptr ? 0
                            : static_cast<const ProtobufCMessageDescriptor *>(index->descriptor)->n_fields;
}

std::string encode_key(const ProtobufCMessage &record)
{
    return encode_key_prefix(record, key_field_count(*record.descriptor));
}

std::string encode_key_prefix(const ProtobufCMessage &record, size_t count)
{
    std::string key = record.descriptor->name;
    bool known = false;
    const ProtobufCFieldDescriptor *field = index_field(*record.descriptor, known);
    if (field == nullptr) {
        return key;
    }
    const auto *type = static_cast<const ProtobufCMessageDescriptor *>(field->descriptor);
    const ProtobufCMessage *index = index_of(record, *field);
    for (unsigned i = 0; i < type->n_fields && i < count; i++) {
        append_part(key, type->fields[i], index);
    }
    if (count < type->n_fields) {
        key += ':';
    }
    return key;
}

bool decode_key(const ProtobufCMessageDescriptor &type, std::string_view key, std::string &wire)
{
    bool known = false;
    const ProtobufCFieldDescriptor *field = index_field(type, known);
    if (field == nullptr) {
        return key == type.name;
    }
    const auto *index_type = static_cast<const ProtobufCMessageDescriptor *>(field->descriptor);
    std::vector<std::string_view> parts;
    parts.reserve(index_type->n_fields);
    if (!split(type, key, parts) || parts.size() != index_type->n_fields) {
        return false;
    }
    std::string index;
    for (unsigned i = 0; i < index_type->n_fields; i++) {
        if (!append_index_field(index_type->fields[i], parts[i], index)) {
            return false;
        }
    }
    append_delimited(wire, field->id, index);
    return true;
}

} // namespace store
