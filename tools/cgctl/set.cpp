// cgctl set: writes a record, or some of its fields.
#include "failure.h"
#include "records.h"
#include "store.h"
#include "text.h"

namespace cgctl
{

namespace
{

// A field write replaces a whole sub-message. Where only a part of one is named, its other parts are taken
// from the stored record, so that they keep their values.
Json completed(Store &store, const NamedRecord &named, const RecordArguments &arguments)
{
    Json record = named.record;
    const std::optional<Json> stored = store.read(*named.type, named.db, key_part(*named.type, named.record));
    if (!stored) {
        return record;
    }
    record = *stored;
    for (const std::string &assignment : arguments.assignments) {
        assign(*named.type, record, assignment);
    }
    return record;
}

bool names_a_part(const RecordArguments &arguments)
{
    bool part = false;
    for (const std::string &assignment : arguments.assignments) {
        part = part || assignment.find('.') < assignment.find('=');
    }
    return part;
}

int set_fields(const Session &session, const RecordArguments &arguments, const NamedRecord &named)
{
    if (named.fields.empty()) {
        throw Failure(wrong_usage,
                      "--fields without a field to write; name at least one that is not of the key");
    }
    Store store(session);
    const Json record = names_a_part(arguments) ? completed(store, named, arguments) : named.record;
    store.set_fields(*named.type, named.db, record, named.fields);
    return 0;
}

int set(const Session &session, const RecordArguments &arguments, bool only_fields)
{
    const NamedRecord named = named_record(arguments);
    if (only_fields) {
        return set_fields(session, arguments, named);
    }
    Store store(session);
    store.set(*named.type, named.db, named.record);
    return 0;
}

} // namespace

void add_set(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "set", "Write a record, in place of an earlier one",
                              "  cgctl set card_info devid=1 slotid=3 is_online=true "
                              "static_info.node_type=DM_TYPE_LC\n"
                              "  cgctl set --fields card_info devid=1 slotid=3 is_online=false\n"
                              "  cgctl set dp_lib_grole my_grole=DM_ROLE_MASTER card_role.0.devid=1");
    auto arguments = std::make_shared<RecordArguments>();
    auto only_fields = std::make_shared<bool>(false);
    add_record_arguments(
        *verb, *arguments,
        "Key and payload fields; dots lead into sub-messages; enumerations by name or number, "
        "bytes hexadecimal");
    verb->add_flag("--fields", *only_fields,
                   "Write only the payload fields named, leave the others as they are");
    verb->callback([arguments, only_fields, &session] {
        session.action = [arguments, only_fields, &session] {
            return set(session, *arguments, *only_fields);
        };
    });
}

} // namespace cgctl
