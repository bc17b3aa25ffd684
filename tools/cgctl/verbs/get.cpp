// cgctl get: one record, or all of a type.
#include <algorithm>

#include "access/store.h"
#include "base/failure.h"
#include "command_line/named_record.h"
#include "forms/forms.h"

namespace cg
{

namespace
{

// Sorted by key.
std::vector<FoundRecord> stored_records(Store &store, const NamedRecord &named)
{
    const RecordType &type = *named.type;
    std::vector<FoundRecord> records;
    for (const store::Record &record : store.scan(*type.descriptor, named.db)) {
        records.push_back({&type, named.db, to_json(*record.message)});
    }
    std::sort(records.begin(), records.end(), [&](const FoundRecord &a, const FoundRecord &b) {
        // ordered_json compares objects by their values in the order of the fields.
        return key_part(type, a.record) < key_part(type, b.record);
    });
    return records;
}

int list_records(const Session &session, const NamedRecord &named)
{
    Store store(session);
    const std::vector<FoundRecord> records = stored_records(store, named);
    form_of(session).records({session}, records, store.left_out());
    return store.report_left_out();
}

int get_record(const Session &session, const NamedRecord &named)
{
    const auto stored = Store(session).read(named.db, *named.record);
    const FoundRecord found{named.type, named.db, to_json(stored ? *stored->message : *named.record)};
    if (!stored) {
        throw Failure(failed, "no " + title(found) + " in database " + std::to_string(named.db));
    }
    form_of(session).record({session}, found);
    return done;
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
