// cgctl set: writes a record, or some of its fields.
#include <algorithm>

#include "access/store.h"
#include "base/failure.h"
#include "base/text.h"
#include "command_line/named_record.h"

namespace cg
{

namespace
{

bool names_a_part(const std::vector<std::string> &assignments)
{
    return std::any_of(assignments.begin(), assignments.end(),
                       [](const std::string &text) { return text.find('.') < text.find('='); });
}

// A field write replaces a whole sub-message. Where only a part of one is named, its other parts come from
// the stored record, so that they keep their values.
MessagePtr completed(Store &store, const NamedRecord &named, const RecordArguments &arguments)
{
    const auto stored = store.read(named.db, *named.record);
    Json record = to_json(stored ? *stored->message : *named.record);
    for (const std::string &assignment : arguments.assignments) {
        assign(*named.type, record, assignment);
    }
    return from_json(*named.type->descriptor, record);
}

int set_fields(const Session &session, const RecordArguments &arguments)
{
    const bool part = names_a_part(arguments.assignments);
    NamedRecord named = named_record(arguments, part ? Assigned::key_only : Assigned::all);
    if (named.fields.empty()) {
        throw Failure(wrong_usage,
                      "--fields without a field to write; name at least one that is not of the key");
    }
    Store store(session);
    if (part) {
        named.record = completed(store, named, arguments);
    }
    store.set_fields(named.db, *named.record, std::vector<int32_t>(named.fields.begin(), named.fields.end()));
    return done;
}

int set_record(const Session &session, const RecordArguments &arguments)
{
    const NamedRecord named = named_record(arguments);
    // The record whose key fields are all 0 or empty is hardly ever meant.
    if (named.type->index != nullptr && arguments.assignments.empty()) {
        throw Failure(wrong_usage, std::string("nothing given to write; name at least one field of ") +
                                       named.type->name() + ", as in `cgctl set card_info slotid=3`");
    }
    Store store(session);
    store.set(named.db, *named.record);
    return done;
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
            return *only_fields ? set_fields(session, *arguments) : set_record(session, *arguments);
        };
    });
}

} // namespace cg
