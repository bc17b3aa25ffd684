// Subscriptions on the event loop.
#include "access/live.h"

#include <csignal>
#include <utility>

#include "base/failure.h"
#include "store/silence.h"

namespace cg
{

namespace
{

// Who is told of a loss and a return.
Live *current = nullptr;

constexpr int32_t same_data = 2;

} // namespace

Live::Live(const Output &output, Store &store) : output_(output), store_(store)
{
    current = this;
}

Live::~Live()
{
    for (const Delay &delay : delays_) {
        vx_thread_cancel(delay.timer);
    }
    current = nullptr;
}

void Live::subscribe(const RecordType &type, int32_t db, Handler handler, Absent absent)
{
    subscriptions_.push_back({this, &type, db, std::move(handler)});
    if (databases_.insert(db).second) {
        connect(db, absent);
    }
}

// The first answer is waited for, so that a wrong endpoint is told at once instead of being tried for ever;
// unless that is wanted.
void Live::connect(int32_t db, Absent absent)
{
    if (absent == Absent::failure) {
        store_.connect(db);
    }
    vx_global_t *context = store_.context();
    if (vx_mom_client_connect(context, db, on_connected,
                              reinterpret_cast<void *>(static_cast<intptr_t>(db))) != 0 ||
        vx_mom_client_set_disconnect_cb(context, db, on_lost, nullptr) != 0 ||
        vx_mom_client_set_reconnect_cb(context, db, on_return, nullptr) != 0) {
        throw Failure(failed, "no lasting connection to database " + std::to_string(db) + " can be made");
    }
}

void Live::after(int64_t milliseconds, std::function<void()> tick)
{
    const timeval delay{milliseconds / 1000, (milliseconds % 1000) * 1000};
    delays_.push_back({this, std::move(tick), {}});
    delays_.back().place = std::prev(delays_.end());
    delays_.back().timer = vx_thread_add_timer_timeval(store_.context(), on_timer, &delays_.back(), delay);
    if (delays_.back().timer == nullptr) {
        delays_.pop_back();
        throw Failure(failed, "no timer can be armed");
    }
}

std::optional<std::chrono::milliseconds> Live::silent_for(int32_t db) const
{
    return vx_mom::silent_for(store_.context(), db);
}

void Live::run()
{
    const int32_t result = vx_global_run(store_.context());
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    if (result != 0) {
        throw Failure(failed, "the event loop could not run (result " + std::to_string(result) + ")");
    }
}

// The platform's loop ends at a signal and by nothing else; this one goes to ourselves.
void Live::stop()
{
    if (!std::exchange(stopping_, true) && raise(SIGTERM) != 0) {
        throw Failure(failed, "the event loop cannot be ended");
    }
}

int32_t Live::on_connected(void * /*first*/, void *second)
{
    if (current != nullptr) {
        const auto db = static_cast<int32_t>(reinterpret_cast<intptr_t>(second));
        current->guard([db] { current->subscribe_all(db); });
    }
    return 0;
}

int32_t Live::on_lost(void * /*first*/, int32_t db)
{
    if (current != nullptr) {
        current->guard([db] { current->tell_outage({db, true, false}); });
    }
    return 0;
}

int32_t Live::on_return(void * /*first*/, int32_t db, int32_t change)
{
    if (current != nullptr) {
        current->guard([db, change] {
            current->tell_outage({db, false, change == same_data});
            current->subscribe_all(db);
        });
    }
    return 0;
}

int32_t Live::on_message(void *arg, vx_mom_pmsg_t *pmsg)
{
    auto &subscription = *static_cast<Subscription *>(arg);
    subscription.owner->guard([&] { subscription.owner->deliver(subscription, *pmsg); });
    return 0;
}

int32_t Live::on_timer(vx_thread_t *timer)
{
    const auto *delay = static_cast<const Delay *>(timer->arg);
    Live &owner = *delay->owner;
    std::list<Delay> due; // out of the list of armed ones before it runs, since it may arm anew
    due.splice(due.begin(), owner.delays_, delay->place);
    owner.guard(due.front().tick);
    return 0;
}

void Live::tell_outage(const Outage &outage)
{
    const std::string db = std::to_string(outage.db);
    if (outages_ == Told::alone) {
        // who is told says it
    } else if (outage.lost) {
        output_.notice("lost the store, database " + db + "; connecting again");
    } else {
        output_.notice("the store is back, database " + db +
                       (outage.same_data ? "" : ", with other data than before"));
    }
    if (outage_) {
        outage_(outage);
    }
}

void Live::subscribe_all(int32_t db)
{
    for (Subscription &subscription : subscriptions_) {
        if (subscription.db != db) {
            continue;
        }
        const RecordType &type = *subscription.type;
        const MessagePtr pattern = from_json(*type.descriptor, record_with_key(type, Json::object()));
        subscription.in_place = false;
        if (vx_mom_subscribe(store_.context(), db, pattern.get(), 0, on_message, &subscription) != 0) {
            throw Failure(failed, std::string("cannot subscribe to ") + type.name() + " in database " +
                                      std::to_string(db));
        }
    }
}

void Live::deliver(Subscription &subscription, const vx_mom_pmsg_t &pmsg)
{
    Change change{pmsg.cmd, *subscription.type, subscription.db, std::nullopt, 0, !subscription.in_place};
    const ProtobufCMessage *record = nullptr;
    switch (pmsg.cmd) {
    case VX_MOM_CMD_SUBSCRIBED:
        subscription.in_place = true;
        break;
    case VX_MOM_CMD_DELETED:
        record = pmsg.record;
        break;
    case VX_MOM_CMD_SET:
    case VX_MOM_CMD_HMSET:
        record = pmsg.result == nullptr ? nullptr : pmsg.result->record;
        change.error_code = pmsg.result == nullptr ? -1 : pmsg.result->error_code;
        break;
    default:
        return;
    }
    if (record != nullptr) {
        change.record = to_json(*record);
        change.message = record;
    } else if (pmsg.cmd != VX_MOM_CMD_SUBSCRIBED && change.error_code == 0) {
        return; // nothing to tell of
    }
    subscription.handler(change);
}

// Nothing may leave a callback of the platform by an exception; the first one ends the loop instead. Once the
// loop is to end, nothing more is delivered.
void Live::guard(const std::function<void()> &action) noexcept
{
    if (stopping_) {
        return;
    }
    try {
        action();
    } catch (...) {
        failure_ = std::current_exception();
        stopping_ = true;
        static_cast<void>(raise(SIGTERM));
    }
}

} // namespace cg
