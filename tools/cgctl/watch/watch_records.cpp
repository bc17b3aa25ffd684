// cgctl watch with record types: what changes in the store, as it happens.
//
// After the store was away every record is delivered again. The last known content is kept, so that only what
// really changed meanwhile is printed then.
#include "watch/watch_records.h"

#include <algorithm>
#include <chrono>
#include <map>

#include "access/store.h"
#include "admission/follower.h"
#include "base/failure.h"
#include "base/text.h"
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
        : page_{session}, store_(store), show_existing_(options.existing), left_(options.count)
    {
        for (const RecordType *type : chosen_types(options)) {
            known_[type].type = type;
            follow(type->db);
        }
    }

    void run() { store_.loop().run(); }

private:
    // What is known of a type.
    struct Known {
        const RecordType *type = nullptr;
        bool complete = false; // the first list of existing records has come
        std::map<std::string, Json> records{};
        store::Subscription subscription{};
    };

    // Waits for the store's first answer, so that a wrong endpoint is an error at once.
    void follow(int32_t db)
    {
        store_.connect(db);
        (void)store_.client().on_connection(db,
                                            [this](const store::ConnectionEvent &event) { handle(event); });
        require(store_.client().open(db));
    }

    static void require(const store::Status &status)
    {
        if (!status) {
            throw Failure(failed, "cannot subscribe: " + visible(status.reason));
        }
    }

    // All records are wanted again after an outage, since nothing says which of them were missed.
    void handle(const store::ConnectionEvent &event)
    {
        using Kind = store::ConnectionEvent::Kind;
        if (event.kind != Kind::connected) {
            page_.session.notice(admission::text_of(event));
        }
        for (auto &[type, known] : known_) {
            if (type->db == event.database && event.kind != Kind::lost) {
                auto made = store_.client().subscribe(
                    type->db, *type->descriptor,
                    [this, &known = known](const store::Change &change) { handle(known, change); });
                require(made);
                known.subscription = std::move(made.value);
            }
        }
    }

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

    void handle(Known &known, const store::Change &change)
    {
        if (change.command == VX_MOM_CMD_SUBSCRIBED) {
            known.complete = true;
            form_of(page_.session).subscribed(page_, *known.type);
        } else if (change.error != 0) {
            page_.session.error("record " + visible(change.key) +
                                " does not decode: " + visible(change.reason));
        } else {
            handle_record(known, change);
        }
    }

    // Remembers the record, and prints it when it is news.
    void handle_record(Known &known, const store::Change &change)
    {
        const std::string key(change.key);
        RecordChange news{std::chrono::system_clock::now(),
                          command_word(change.command),
                          {known.type, known.type->db, to_json(*change.record)}};
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
        const bool is_news = is_live || (known.complete ? news.before != news.found.record : show_existing_);
        if (is_news && !store_.loop().is_stopping()) { // several changes are received at a time
            form_of(page_.session).record_change(page_, news);
            if (--left_ == 0) {
                store_.loop().stop();
            }
        }
    }

    Page page_;
    Store &store_;
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
