// cgctl del: deletes a record, or all with the same first key fields.
#include "access/store.h"
#include "base/failure.h"
#include "command_line/named_record.h"

namespace cg
{

namespace
{

int delete_one(const Session &session, const NamedRecord &named)
{
    Store store(session);
    if (!store.exists(named.db, *named.record)) {
        throw Failure(failed, "no " + title({named.type, named.db, to_json(*named.record)}) +
                                  " in database " + std::to_string(named.db) + "; nothing was deleted");
    }
    store.erase(named.db, *named.record);
    return done;
}

int delete_matching(const Session &session, const NamedRecord &named, int32_t key_count)
{
    const auto most = static_cast<int32_t>(named.type->key() == nullptr ? 0 : named.type->key()->n_fields);
    if (key_count < 0 || key_count > most) {
        throw Failure(wrong_usage, "--keys: " + std::to_string(key_count) + " key fields, use 0 to " +
                                       std::to_string(most) + " for " + named.type->name());
    }
    Store store(session);
    store.erase_matching(named.db, *named.record, key_count);
    return done;
}

int del(const Session &session, const RecordArguments &arguments, const std::optional<int32_t> &key_count)
{
    const NamedRecord named = named_record(arguments);
    require_key_only(named, "del");
    return key_count ? delete_matching(session, named, *key_count) : delete_one(session, named);
}

} // namespace

void add_del(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "del", "Delete a record, or those with the same first key fields",
                              "  cgctl del card_info devid=1 slotid=3\n"
                              "  cgctl del app_cg_card_check_ack devid=1 slotid=3 --keys 3");
    auto arguments = std::make_shared<RecordArguments>();
    auto key_count = std::make_shared<std::optional<int32_t>>();
    add_record_arguments(*verb, *arguments, "Key fields; those not given are 0 or empty");
    verb->add_option("--keys", *key_count,
                     "Delete every record whose first N key fields are these; 0 for all of the type")
        ->type_name("N");
    verb->callback([arguments, key_count, &session] {
        session.action = [arguments, key_count, &session] { return del(session, *arguments, *key_count); };
    });
}

} // namespace cg
