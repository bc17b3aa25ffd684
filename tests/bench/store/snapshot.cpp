// Subscribing when there are records already; see the header.
#include "snapshot.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <stdexcept>
#include <thread>

#include "store/codec/value.h"

namespace bench
{

namespace
{

constexpr int32_t records = 10000;
constexpr size_t pipeline_depth = 100;

void fill(const std::string &socket)
{
    const Context loads_the_functions = client(socket, "bench_fill");
    Raw raw(socket, host);
    std::vector<Prepared> calls;
    for (int32_t slot = 0; slot < records; slot++) {
        calls.emplace_back(card_call(slot, "m.1"));
    }
    raw.pipeline(calls, pipeline_depth);
}

void decode(const std::string &key, const redisReply &content)
{
    store::Fields fields;
    for (size_t i = 0; i + 1 < content.elements; i += 2) {
        fields.emplace_back(text_of(*content.element[i]), text_of(*content.element[i + 1]));
    }
    std::string why;
    if (store::decode_record(p_dev__card_info__descriptor, key, fields, why) == nullptr) {
        throw std::runtime_error("a record does not decode: " + why);
    }
}

double read_one_by_one(const std::string &socket)
{
    Raw raw(socket, host);
    const double began = now_us();
    const RawReply keys = raw.run({"SMEMBERS", "@idx:p_dev.card_info"});
    for (size_t i = 0; i < keys->elements; i++) {
        const std::string key = text_of(*keys->element[i]);
        decode(key, *raw.run({"HGETALL", key}));
    }
    return now_us() - began;
}

struct Taken {
    int32_t count = 0;
    double began = 0;
    double finished = 0;
};

int32_t on_existing(void *arg, vx_mom_pmsg_t *pmsg)
{
    auto *taken = static_cast<Taken *>(arg);
    taken->count += pmsg->cmd == VX_MOM_CMD_SET ? 1 : 0;
    if (pmsg->cmd == VX_MOM_CMD_SUBSCRIBED) {
        taken->finished = now_us();
        (void)raise(SIGTERM); // ends the loop
    }
    return 0;
}

int32_t on_connected(void *first, void *second)
{
    auto *taken = static_cast<Taken *>(second);
    const Card pattern(0);
    taken->began = now_us();
    return vx_mom_subscribe(static_cast<vx_global_t *>(first), host, &pattern.record.base, 0, on_existing,
                            taken);
}

double subscribe(const std::string &socket)
{
    const Context context = client(socket, "bench_snapshot");
    Taken taken;
    check(vx_mom_client_connect(context.get(), host, on_connected, &taken), "connection");
    check(vx_global_run(context.get()), "loop");
    if (taken.count != records) {
        throw std::runtime_error("not all records were delivered");
    }
    return taken.finished - taken.began;
}

// Pings every tenth of a millisecond and notes the longest wait.
class Prober
{
public:
    explicit Prober(const std::string &socket) : raw_(socket, host), thread_([this] { probe(); }) {}
    Prober(const Prober &) = delete;
    Prober &operator=(const Prober &) = delete;
    ~Prober() { finish(); }
    double longest()
    {
        finish();
        return longest_;
    }

private:
    void finish()
    {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    void probe()
    {
        const sched_param first{10};
        (void)sched_setscheduler(0, SCHED_FIFO,
                                 &first); // where that is allowed: what waits is to be the server
        const Prepared ping({"PING"});
        const timespec pause{0, 100000}; // or nobody else would be served on a machine with one processor
        while (!stop_) {
            const double began = now_us();
            (void)raw_.run(ping);
            longest_ = std::max(longest_, now_us() - began);
            (void)nanosleep(&pause, nullptr);
        }
    }

    Raw raw_;
    double longest_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

} // namespace

Rounds measure_snapshot(const std::string &socket, int rounds)
{
    fill(socket);
    Rounds taken = alternate(
        rounds, [&] { return read_one_by_one(socket); }, [&] { return subscribe(socket); });
    Raw raw(socket, host);
    remove_cards(raw, records); // others measure on this server too
    return taken;
}

Rounds measure_stall(const std::string &socket, int rounds)
{
    fill(socket);
    double last = 20000;
    return alternate(
        rounds,
        [&] {
            Prober prober(socket);
            const timespec span{0, static_cast<long>(last * 1000)};
            (void)nanosleep(&span, nullptr);
            return prober.longest();
        },
        [&] {
            Prober prober(socket);
            last = subscribe(socket);
            return prober.longest();
        });
}

} // namespace bench
