// cgctl get: one record, or all of a type.
#include "access/store.h"
#include "base/failure.h"
#include "command_line/named_record.h"

namespace cg
{

namespace
{

void print_record(const Session &session, const NamedRecord &named, const Json &record)
{
    session.line(title(*named.type, record));
    for (const std::string &line :
         to_lines(*named.type->descriptor, payload_part(*named.type, record), Shown::all)) {
        session.line("  " + line);
    }
}

int list_records(const Session &session, const NamedRecord &named)
{
    Store store(session);
    Json array = Json::array();
    for (const Json &record : store.scan(*named.type, named.db)) {
        if (session.json) {
            array.push_back(record_json(*named.type, named.db, record));
        } else {
            print_record(session, named, record);
        }
    }
    if (session.json) {
        session.line(dump(store.with_left_out({{"records", array}})));
    }
    return store.tell_left_out();
}

int get_record(const Session &session, const NamedRecord &named)
{
    Store store(session);
    const Json key = key_part(*named.type, named.record);
    const std::optional<Json> record = store.read(*named.type, named.db, key);
    if (!record) {
        throw Failure(failed,
                      "no " + title(*named.type, named.record) + " in database " + std::to_string(named.db));
    }
    if (session.json) {
        session.line(dump(record_json(*named.type, named.db, *record)));
    } else {
        print_record(session, named, *record);
    }
    return 0;
}

int get(const Session &session, const RecordArguments &arguments)
{
    const NamedRecord named = named_record(arguments);
    require_key_only(named, "get");
    const bool all = named.type->index != nullptr && !named.has_key;
    return all ? list_records(session, named) : get_record(session, named);
}

} // namespace

void add_get(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "get", "Print a record, or all records of a type",
                              "  cgctl get card_info devid=1 slotid=3\n"
                              "  cgctl get app_cg_card_check_ack --json\n"
                              "  cgctl get dp_lib_grole");
    auto arguments = std::make_shared<RecordArguments>();
    add_record_arguments(*verb, *arguments,
                         "Key fields; those not given are 0 or empty; without any, all records are printed");
    set_action(*verb, session, arguments, get);
}

} // namespace cg
