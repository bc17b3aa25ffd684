// cgctl watch with record types: what changes in the store, as it happens.
//
// After the store was away every record is delivered again. The last known content is kept, so that only what
// really changed meanwhile is printed then.
#include "watch/watch_records.h"

#include <algorithm>
#include <chrono>
#include <map>

#include "access/live.h"
#include "base/failure.h"
#include "forms/forms.h"

namespace cg
{

namespace
{

const char *command_word(int32_t command)
{
    switch (command) {
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
        : page_{session}, live_(session, store), show_existing_(options.existing), left_(options.count)
    {
        for (const RecordType *type : chosen_types(options)) {
            live_.subscribe(*type, [this, type](const store::Change &change) { handle(*type, change); });
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

    void handle(const RecordType &type, const store::Change &change)
    {
        Known &known = known_[&type];
        if (change.command == VX_MOM_CMD_SUBSCRIBED) {
            known.complete = true;
            form_of(page_.session).subscribed(page_, type);
        } else if (change.error != 0) {
            page_.session.error(std::string("a record of ") + type.name() + " could not be read (result " +
                                std::to_string(change.error) + ")");
        } else {
            handle_record(type, known, change);
        }
    }

    // Remembers the record, and prints it when it is news.
    void handle_record(const RecordType &type, Known &known, const store::Change &change)
    {
        const std::string key(change.key);
        RecordChange news{std::chrono::system_clock::now(),
                          command_word(change.command),
                          {&type, type.db, to_json(*change.record)}};
        if (const auto found = known.records.find(key); found != known.records.end()) {
            news.before = found->second;
        }
        const bool is_deleted = change.command == VX_MOM_CMD_DELETED;
        if (is_deleted) {
            known.records.erase(key);
        } else {
            known.records.insert_or_assign(key, news.found.record);
        }
        const bool is_live = !change.existing || is_deleted;
        if (is_live || (known.complete ? news.before != news.found.record : show_existing_)) {
            form_of(page_.session).record_change(page_, news);
            if (left_ > 0 && --left_ == 0) {
                live_.stop();
            }
        }
    }

    Page page_;
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
