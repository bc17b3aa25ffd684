// What get, set and del share.
#include "command_line/named_record.h"

#include "base/failure.h"
#include "base/text.h"

namespace cg
{

namespace
{

constexpr int32_t most_db = 1 << 20;

int32_t database(const RecordType &type, const std::optional<int32_t> &given)
{
    if (given) {
        return *given;
    }
    if (type.db < 0) {
        throw Failure(wrong_usage, std::string(type.name()) + " has no usual database; give one with --db N");
    }
    return type.db;
}

} // namespace

void add_record_arguments(CLI::App &verb, RecordArguments &arguments, const char *assignments_help)
{
    verb.add_option("TYPE", arguments.type, "Record type: p_dev.card_info, or card_info")->required();
    verb.add_option("FIELD=VALUE", arguments.assignments, assignments_help);
    verb.add_option("--db", arguments.db, "Database (default: the type's usual one)")
        ->type_name("N")
        ->check(CLI::Range(0, most_db));
}

NamedRecord named_record(const RecordArguments &arguments, Assigned assigned)
{
    const RecordType &type = record_type(arguments.type);
    NamedRecord named{&type, database(type, arguments.db), nullptr, false, {}};
    Json record = type.index == nullptr ? Json::object() : Json{{type.index->name, Json::object()}};
    std::set<std::string> seen;
    for (const std::string &assignment : arguments.assignments) {
        const uint32_t number = field_number(type, assignment);
        const bool of_key = type.index != nullptr && number == type.index->id;
        if (of_key || assigned == Assigned::all) {
            assign(type, record, assignment);
        }
        const std::string path = assignment.substr(0, assignment.find('='));
        if (!seen.insert(path).second) {
            throw Failure(wrong_usage, path + " is given more than once");
        }
        named.has_key = named.has_key || of_key;
        if (!of_key) {
            named.fields.insert(static_cast<int32_t>(number));
        }
    }
    named.record = from_json(*type.descriptor, record);
    return named;
}

void require_key_only(const NamedRecord &named, const char *verb)
{
    if (!named.fields.empty()) {
        const ProtobufCFieldDescriptor *field = protobuf_c_message_descriptor_get_field(
            named.type->descriptor, static_cast<unsigned>(*named.fields.begin()));
        throw Failure(wrong_usage,
                      std::string(field->name) + " is not a key field of " + named.type->name() + "; " +
                          verb + " accepts " +
                          (named.type->key() == nullptr ? "none for this type" : "key fields only"));
    }
}

std::string title(const FoundRecord &record)
{
    const RecordType &type = *record.type;
    std::string result = type.name();
    if (type.key() != nullptr) {
        for (const std::string &line : to_lines(*type.key(), key_part(type, record.record), Shown::all)) {
            result += ' ' + line;
        }
    }
    return result;
}

} // namespace cg
