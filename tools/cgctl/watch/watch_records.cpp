// cgctl watch with record types: what changes in the store, as it happens.
//
// After the store was away the platform delivers every record again. The last known content is kept, so that
// only what really changed meanwhile is printed then.
#include "watch/watch_records.h"

#include <algorithm>
#include <chrono>
#include <map>

#include "access/live.h"
#include "admission/card_text.h"
#include "base/failure.h"
#include "base/text.h"
#include "command_line/named_record.h"

namespace cg
{

namespace
{

const char *command_word(int32_t cmd)
{
    switch (cmd) {
    case VX_MOM_CMD_DELETED:
        return "deleted";
    case VX_MOM_CMD_HMSET:
        return "fields";
    default:
        return "set";
    }
}

class RecordWatch
{
public:
    RecordWatch(const Session &session, Store &store, const WatchOptions &options)
        : session_(session), live_(session, store), show_existing_(options.existing), left_(options.count)
    {
        for (const RecordType *type : chosen_types(options)) {
            live_.subscribe(*type, type->db, [this](const Change &change) { handle(change); });
        }
    }

    void run() { live_.run(); }

private:
    // What is known of a type.
    struct Known {
        bool complete = false; // the first list of existing records has come
        std::map<std::string, Json> records{};
    };

    static std::vector<const RecordType *> chosen_types(const WatchOptions &options)
    {
        std::vector<const RecordType *> types;
        for (const std::string &name : options.types) {
            const RecordType &type = record_type(name);
            if (type.db < 0) {
                throw Failure(wrong_usage,
                              std::string(type.name()) + " has no usual database to watch it in");
            }
            if (std::find(types.begin(), types.end(), &type) == types.end()) {
                types.push_back(&type);
            }
        }
        for (const RecordType &type : record_types()) {
            if (options.types.empty() && type.db >= 0) {
                types.push_back(&type);
            }
        }
        return types;
    }

    void handle(const Change &change)
    {
        Known &known = known_[&change.type];
        if (change.cmd == VX_MOM_CMD_SUBSCRIBED) {
            known.complete = true;
            print_subscribed(change);
        } else if (change.error_code != 0) {
            session_.error(std::string("a record of ") + change.type.name() + " could not be read (result " +
                           std::to_string(change.error_code) + ")");
        } else {
            handle_record(known, change);
        }
    }

    // Remembers the record, and prints it when it is news.
    void handle_record(Known &known, const Change &change)
    {
        const Json record = to_json(*change.message);
        const std::string key = dump(key_part(change.type, record));
        const auto found = known.records.find(key);
        const Json before = found == known.records.end() ? Json() : found->second;
        if (change.cmd == VX_MOM_CMD_DELETED) {
            known.records.erase(key);
        } else {
            known.records.insert_or_assign(key, record);
        }
        const bool live = !change.existing || change.cmd == VX_MOM_CMD_DELETED;
        if (live || (known.complete ? before != record : show_existing_)) {
            print(change, record, before);
        }
    }

    void print_subscribed(const Change &change) const
    {
        if (session_.json) {
            session_.line(dump(Json{{"time", utc_text(std::chrono::system_clock::now())},
                                    {"cmd", "subscribed"},
                                    {"db", change.db},
                                    {"type", change.type.name()}}));
        } else {
            session_.notice(std::string("subscribed to ") + change.type.name() + " in database " +
                            std::to_string(change.db));
        }
    }

    void print(const Change &change, const Json &record, const Json &before)
    {
        if (session_.json) {
            Json object{{"time", utc_text(std::chrono::system_clock::now())},
                        {"cmd", command_word(change.cmd)}};
            object.update(record_json(change.type, change.db, record));
            session_.line(dump(object));
        } else {
            session_.line(utc_text(std::chrono::system_clock::now()) + ' ' + command_word(change.cmd) + ' ' +
                          title(change.type, record) + ':' + content(change, record, before));
        }
        if (left_ > 0 && --left_ == 0) {
            live_.stop();
        }
    }

    // The fields that are not at their defaults, and those that have just become so.
    static std::string content(const Change &change, const Json &record, const Json &before)
    {
        const ProtobufCMessageDescriptor &type = *change.type.descriptor;
        const Json payload = payload_part(change.type, record);
        const std::vector<std::string> set = to_lines(type, payload, Shown::set);
        const std::vector<std::string> known =
            before.is_object() ? to_lines(type, before, Shown::all) : std::vector<std::string>{};
        std::string text;
        for (const std::string &field : to_lines(type, payload, Shown::all)) {
            const bool changed =
                !known.empty() && std::find(known.begin(), known.end(), field) == known.end();
            if (changed || std::find(set.begin(), set.end(), field) != set.end()) {
                text += ' ' + field;
            }
        }
        return text;
    }

    const Session &session_;
    Live live_;
    bool show_existing_;
    int64_t left_; // changes still to print; 0 for no end
    std::map<const RecordType *, Known> known_;
};

} // namespace

int watch_records(const Session &session, const WatchOptions &options)
{
    for (const std::string &name : options.types) {
        record_type(name); // refuses an unknown one before the store is asked
    }
    Store store(session);
    RecordWatch(session, store, options).run();
    return done;
}

} // namespace cg
