// A record's hash in the store. Anybody with rights can write a hash, so any names and values may stand
// there; what decodes must come back the same after it was encoded, or a record would change by being copied.
//
// Input: the key, then a line NAME=VALUE for each hash field.
#include "store/codec/value.h"

#include <algorithm>

#include "fuzz.h"
#include "schema_registry.h"
#include "store/codec/key.h"

namespace
{

using fuzz::require;
using store::Content;
using store::Fields;
using store::MessagePtr;
using Type = ProtobufCMessageDescriptor;

const Type *type_of_key(const std::string &key)
{
    const std::string name = key.substr(0, key.find(':'));
    for (size_t i = 0; i < schema_registry_count(); ++i) {
        if (schema_registry_at(i)->name == name) {
            return schema_registry_at(i);
        }
    }
    return nullptr;
}

Fields fields_in(const std::vector<std::string> &lines)
{
    Fields fields;
    for (size_t i = 1; i < lines.size(); ++i) {
        const size_t equals = lines[i].find('=');
        if (equals != std::string::npos) {
            fields.emplace_back(lines[i].substr(0, equals), fuzz::bytes_of(lines[i].substr(equals + 1)));
        }
    }
    return fields;
}

std::string packed(const ProtobufCMessage &record)
{
    std::string bytes(protobuf_c_message_get_packed_size(&record), '\0');
    protobuf_c_message_pack(&record, reinterpret_cast<uint8_t *>(bytes.data()));
    return bytes;
}

// Names that no writer gives a field mean nothing: with "06" beside "6" the order in the hash would decide.
Fields without_strange_names(const Type &type, Fields fields)
{
    std::erase_if(fields, [&type](const auto &field) {
        for (unsigned i = 0; i < type.n_fields; ++i) {
            if (field.first == std::to_string(type.fields[i].id)) {
                return false;
            }
        }
        return true;
    });
    return fields;
}

// Every field is either stored or removed, each once.
void check_complete(const Type &type, const Content &content)
{
    bool known = false;
    const size_t in_key = store::index_field(type, known) == nullptr ? 0 : 1;
    require(content.present.size() + content.absent.size() + in_key == type.n_fields,
            "each field is stored or removed");
}

void check_fields(const ProtobufCMessage &record, const Content &whole)
{
    std::vector<int32_t> numbers;
    for (unsigned i = 0; i < record.descriptor->n_fields; ++i) {
        numbers.push_back(static_cast<int32_t>(record.descriptor->fields[i].id));
    }
    Content content;
    require(store::encode_fields(record, numbers.data(), static_cast<int32_t>(numbers.size()), content),
            "all fields can be written");
    require(content.present == whole.present && content.absent == whole.absent,
            "all fields, written one by one, are the record");
}

// What stands in one hash field must not reach another field of the record.
void check_apart(const Fields &stored, const Content &content)
{
    for (const auto &[name, value] : content.present) {
        const auto has_its_name = [&name = name](const auto &field) { return field.first == name; };
        require(std::any_of(stored.begin(), stored.end(), has_its_name),
                "a field that the hash does not hold is at its default", name);
    }
}

void check_record(const Type &type, const std::string &key, const Fields &stored, const MessagePtr &record)
{
    Content content;
    require(store::encode_record(*record, content), "what was decoded can be encoded");
    require(store::encode_key(*record) == key, "the record has the key that it was read from", key);
    check_complete(type, content);
    check_apart(stored, content);
    check_fields(*record, content);

    std::string why;
    const MessagePtr again = store::decode_record(type, key, content.present, why);
    require(again != nullptr, "what was encoded decodes", why);
    require(packed(*again) == packed(*record), "a record is the same after a way through the store");
    Content content_again;
    require(store::encode_record(*again, content_again) && content_again.present == content.present,
            "a record is stored the same again");
}

void check_adding(const Fields &fields)
{
    store::Stored record;
    for (const auto &[name, value] : fields) {
        const bool is_content = name != store::revision_field && name != store::writer_field;
        record.revision = 7;
        const size_t before = record.fields.size();
        const bool good = store::add_field(name, value, record);
        require(good || name == store::revision_field, "only a revision can be wrong", name);
        require(record.fields.size() == before + (is_content ? 1 : 0),
                "what belongs to the writing is no content", name);
        require(!is_content || record.fields.back() == std::pair(name, value), "content is kept as it is",
                name);
        require(name == store::revision_field || record.revision == 7, "nothing else tells a revision", name);
        require(name != store::writer_field || record.mark == value, "the mark is kept as it is", name);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<std::string> lines = fuzz::parts_of(fuzz::view_of(data, size), '\n');
    const Type *type = type_of_key(lines.front());
    if (type == nullptr) {
        return 0;
    }
    const Fields fields = fields_in(lines);
    check_adding(fields);

    std::string why;
    const MessagePtr record = store::decode_record(*type, lines.front(), fields, why);
    require(record != nullptr || !why.empty(), "a refusal says why");
    const MessagePtr plain =
        store::decode_record(*type, lines.front(), without_strange_names(*type, fields), why);
    require((record == nullptr) == (plain == nullptr), "strange names change nothing");
    if (record != nullptr) {
        require(packed(*record) == packed(*plain), "strange names change no value");
        check_record(*type, lines.front(), fields, record);
    }
    return 0;
}
