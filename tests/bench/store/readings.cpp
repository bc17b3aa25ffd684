// From one process into another; see the header. The server and both processes are on one processor, so a
// figure is the work of all three and no waiting for a processor to wake.
#include "readings.h"

#include <algorithm>
#include <memory>

#include "reader.h"

namespace bench
{

namespace
{

constexpr int32_t slots = 100;
constexpr int records_per_round = 500;
constexpr int32_t burst = 10000;
constexpr size_t pipeline_depth = 100;

Words bare_write(int32_t slot)
{
    Words words{"HSET", card_key(slot)};
    words.insert(words.end(), card_fields().begin(), card_fields().end());
    return words;
}

std::vector<Prepared> bare_writes(int32_t count)
{
    std::vector<Prepared> commands;
    for (int32_t slot = 0; slot < count; slot++) {
        commands.emplace_back(bare_write(slot));
    }
    return commands;
}

// The server tells of changes the bare way or not at all.
void set_notifications(Raw &raw, Way way)
{
    (void)raw.run({"CONFIG", "SET", "notify-keyspace-events", way == Way::notified ? "Kh" : ""});
}

// An empty database. No client of ours may be connected: it would take it for another one.
void begin_afresh(Raw &raw, Way way)
{
    (void)raw.run({"FLUSHDB"});
    set_notifications(raw, way);
}

// No cards; what else is in the database stays there.
void begin_without_cards(Raw &raw, Way way)
{
    remove_cards(raw, slots);
    set_notifications(raw, way);
}

// Lets whoever has something left to do, do it, so that the next figure begins with everybody idle: on one
// processor they run while this process waits. A sleep would have the processor asleep too.
void let_others_finish(Raw &raw)
{
    static const Prepared ping({"PING"});
    for (int i = 0; i < 3; i++) {
        (void)raw.run(ping);
    }
}

double deliver_singly(Raw &raw, Reader &reader, const std::function<void(int32_t)> &write)
{
    double spent = 0;
    for (int i = 0; i < records_per_round; i++) {
        let_others_finish(raw);
        const double began = now_us();
        write(i % slots);
        spent += reader.wait() - began;
    }
    return spent / records_per_round;
}

// Several readers, that are waited for together.
class Readers
{
public:
    Readers(const std::string &socket, int count, int group)
    {
        for (int i = 0; i < count; i++) {
            readers_.push_back(std::make_unique<Reader>(socket, Way::ours, group));
        }
    }
    // Returns when the last of them held its records.
    double wait()
    {
        double last = 0;
        for (const auto &reader : readers_) {
            last = std::max(last, reader->wait());
        }
        return last;
    }

private:
    std::vector<std::unique_ptr<Reader>> readers_;
};

} // namespace

Rounds measure_delivery(const std::string &socket, int rounds)
{
    Raw raw(socket, host);
    const std::vector<Prepared> commands = bare_writes(slots);
    return alternate(
        rounds,
        [&] {
            begin_without_cards(raw, Way::notified);
            Reader reader(socket, Way::notified, 1);
            return deliver_singly(raw, reader,
                                  [&](int32_t slot) { (void)raw.run(commands[static_cast<size_t>(slot)]); });
        },
        [&] {
            begin_without_cards(raw, Way::ours);
            Reader reader(socket, Way::ours, 1);
            const Context writer = client(socket, "bench_delivery");
            Card card(0);
            return deliver_singly(raw, reader, [&](int32_t slot) {
                card.index.slotid = slot;
                check(vx_mom_set_sync(writer.get(), host, &card.record.base), "write");
            });
        });
}

Rounds measure_burst(const std::string &socket, int rounds)
{
    Raw raw(socket, host);
    const std::vector<Prepared> bare = bare_writes(burst);
    std::vector<Prepared> calls;
    for (int32_t slot = 0; slot < burst; slot++) {
        calls.emplace_back(card_call(slot, "m." + std::to_string(slot)));
    }
    const auto take = [&](Way way, const std::vector<Prepared> &commands) {
        begin_afresh(raw, way);
        Reader reader(socket, way, burst);
        let_others_finish(raw);
        const double began = now_us();
        raw.pipeline(commands, pipeline_depth);
        return reader.wait() - began;
    };
    return alternate(
        rounds, [&] { return take(Way::notified, bare); }, [&] { return take(Way::ours, calls); });
}

Rounds measure_fan_out(const std::string &socket, int rounds, int subscribers)
{
    Raw raw(socket, host);
    Readers readers(socket, subscribers, 1);
    const Context writer = client(socket, "bench_fan_out");
    Card card(0);
    const auto take = [&] {
        double spent = 0;
        for (int i = 0; i < records_per_round; i++) {
            let_others_finish(raw);
            card.index.slotid = i % slots;
            const double began = now_us();
            check(vx_mom_set_sync(writer.get(), host, &card.record.base), "write");
            spent += readers.wait() - began;
        }
        return spent / records_per_round;
    };
    return alone(rounds, take);
}

Rounds measure_fan_out_burst(const std::string &socket, int rounds, int subscribers)
{
    Raw raw(socket, host);
    Readers readers(socket, subscribers, burst);
    std::vector<Prepared> calls;
    int written = 0;
    const auto take = [&] {
        calls.clear();
        for (int32_t slot = 0; slot < burst; slot++) {
            calls.emplace_back(card_call(slot, "m." + std::to_string(written++)));
        }
        const double began = now_us();
        raw.pipeline(calls, pipeline_depth);
        return readers.wait() - began;
    };
    return alone(rounds, take);
}

} // namespace bench
