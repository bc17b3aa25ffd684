// Writes one after the other; see the header. The baseline's commands lie ready before the clock starts; ours
// are made from a record each time, as the daemon makes them.
#include "writes.h"

namespace bench
{

namespace
{

constexpr int32_t slots = 100;
constexpr int writes_per_round = 2000;

Words bare_write(const char *kind, int32_t slot, const Words &fields)
{
    Words words{"HSET", kind + std::to_string(slot)};
    words.insert(words.end(), fields.begin(), fields.end());
    return words;
}

std::vector<Prepared> for_slots(int32_t count, const std::function<Words(int32_t)> &words)
{
    std::vector<Prepared> commands;
    for (int32_t slot = 0; slot < count; slot++) {
        commands.emplace_back(words(slot));
    }
    return commands;
}

double per_write(double began)
{
    return (now_us() - began) / writes_per_round;
}

double write_bare(Raw &raw, const std::vector<Prepared> &commands)
{
    const double began = now_us();
    for (int i = 0; i < writes_per_round; i++) {
        (void)raw.run(commands[static_cast<size_t>(i) % commands.size()]);
    }
    return per_write(began);
}

// What functions can leave out, to see what it costs.
constexpr const char *other_functions = R"lua(#!lua name=bench
local beginnings = {}
for length = 0, 99 do
    beginnings[length] = length .. ':'
end
local function content(args)
    local joined = ''
    for i = 3, #args, 2 do
        joined = joined .. beginnings[#args[i]] .. args[i] .. beginnings[#args[i + 1]] .. args[i + 1]
    end
    return joined
end
redis.register_function('bench_nothing', function(keys, args)
    return '1'
end)
redis.register_function('bench_hset', function(keys, args)
    redis.call('HSET', keys[1], 'rev', '1', 'by', args[2], unpack(args, 3))
    return '1'
end)
redis.register_function('bench_publish', function(keys, args)
    redis.call('HSET', keys[1], 'rev', '1', 'by', args[2], unpack(args, 3))
    redis.call('PUBLISH', args[1] .. keys[1], content(args))
    return '1'
end)
redis.register_function('bench_unchecked', function(keys, args)
    redis.call('SADD', keys[3], keys[1])
    local revision = string.format('%d', redis.call('INCR', keys[2]))
    redis.call('HSET', keys[1], 'rev', revision, 'by', args[2], unpack(args, 3))
    redis.call('PUBLISH', args[1] .. keys[1], revision .. content(args))
    return revision
end)
)lua";

const char *function_of(Trip trip)
{
    switch (trip) {
    case Trip::nothing:
        return "bench_nothing";
    case Trip::hset:
        return "bench_hset";
    case Trip::publish:
        return "bench_publish";
    default:
        return "bench_unchecked";
    }
}

// The commands of a trip that goes without a function.
std::vector<Words> commands_of(Trip trip, int32_t slot)
{
    const std::string key = "other:0:1:" + std::to_string(slot);
    Words write{"HSET", key, "rev", "1", "by", "m.1"};
    Words told{"PUBLISH", "@chg:1:" + key, ""};
    for (const std::string &text : card_fields()) {
        write.push_back(text);
        told.back() += std::to_string(text.size()) + ":" + text;
    }
    if (trip == Trip::pipeline) {
        return {write, told};
    }
    return {{"MULTI"}, {"SADD", "@idx:other", key}, {"INCR", "@rev:other"}, write, told, {"EXEC"}};
}

// Of each slot all commands in one pipeline, and then the replies to all of them.
double write_together(Raw &raw, const std::vector<std::vector<Prepared>> &slots_commands)
{
    const double began = now_us();
    for (int i = 0; i < writes_per_round; i++) {
        const auto &commands = slots_commands[static_cast<size_t>(i) % slots_commands.size()];
        raw.pipeline(commands, commands.size());
    }
    return per_write(began);
}

std::vector<std::vector<Prepared>> prepared_trips(Trip trip)
{
    std::vector<std::vector<Prepared>> all;
    for (int32_t slot = 0; slot < slots; slot++) {
        std::vector<Prepared> commands;
        for (Words &words : commands_of(trip, slot)) {
            commands.emplace_back(std::move(words));
        }
        all.push_back(std::move(commands));
    }
    return all;
}

// The call of ours, of another function.
Words other_call(const char *function, int32_t slot)
{
    Words words = card_call(slot, "m.1");
    words[1] = function;
    return words;
}

} // namespace

Rounds measure_written(const std::string &socket, int rounds)
{
    Raw raw(socket, host);
    const Context ours = client(socket, "bench_written");
    const auto commands =
        for_slots(slots, [](int32_t slot) { return bare_write("bare:0:1:", slot, card_fields()); });
    Card card(0);
    return alternate(
        rounds, [&] { return write_bare(raw, commands); },
        [&] {
            const double began = now_us();
            for (int i = 0; i < writes_per_round; i++) {
                card.index.slotid = i % slots;
                check(vx_mom_set_sync(ours.get(), host, &card.record.base), "write");
            }
            return per_write(began);
        });
}

Rounds measure_call(const std::string &socket, int rounds)
{
    Raw raw(socket, host);
    (void)client(socket, "bench_call"); // loads the functions
    const auto commands =
        for_slots(slots, [](int32_t slot) { return bare_write("bare:0:1:", slot, card_fields()); });
    // Each with a mark of its own: a repeated one would not be carried out.
    const auto calls =
        for_slots(writes_per_round, [](int32_t i) { return card_call(i % slots, "m." + std::to_string(i)); });
    return alternate(
        rounds, [&] { return write_bare(raw, commands); }, [&] { return write_bare(raw, calls); });
}

Rounds measure_trip(const std::string &socket, int rounds, Trip trip)
{
    Raw raw(socket, host);
    const auto bare =
        for_slots(slots, [](int32_t slot) { return bare_write("bare:0:1:", slot, card_fields()); });
    const auto baseline = [&] { return write_bare(raw, bare); };
    if (trip == Trip::transaction || trip == Trip::pipeline) {
        const auto together = prepared_trips(trip);
        return alternate(rounds, baseline, [&] { return write_together(raw, together); });
    }
    (void)raw.run({"FUNCTION", "LOAD", "REPLACE", other_functions});
    const auto calls = for_slots(slots, [&](int32_t slot) { return other_call(function_of(trip), slot); });
    return alternate(rounds, baseline, [&] { return write_bare(raw, calls); });
}

Rounds measure_deleted(const std::string &socket, int rounds)
{
    Raw raw(socket, host);
    const Context ours = client(socket, "bench_deleted");
    const auto writes = for_slots(writes_per_round,
                                  [](int32_t slot) { return bare_write("bare:0:1:", slot, card_fields()); });
    const auto deletions = for_slots(writes_per_round, [](int32_t slot) {
        return Words{"DEL", "bare:0:1:" + std::to_string(slot)};
    });
    const auto calls = for_slots(writes_per_round, [](int32_t slot) { return card_call(slot, "m.1"); });
    Card card(0);
    return alternate(
        rounds,
        [&] {
            raw.pipeline(writes, 100);
            return write_bare(raw, deletions);
        },
        [&] {
            raw.pipeline(calls, 100);
            const double began = now_us();
            for (int i = 0; i < writes_per_round; i++) {
                card.index.slotid = i;
                check(vx_mom_del(ours.get(), host, &card.record.base, nullptr, nullptr), "deletion");
            }
            return per_write(began);
        });
}

Rounds measure_fields(const std::string &socket, int rounds)
{
    Raw raw(socket, host);
    const Context ours = client(socket, "bench_fields");
    const Words fields{"6", "200", "7", "3", "8", "103"};
    const auto commands =
        for_slots(slots, [&](int32_t slot) { return bare_write("bare:0:2:", slot, fields); });
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    PLibpub__AppCgCardCheckInfo request = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    request.index = &index;
    request.type = 200;
    request.node_type = P_DEV__DM_NODE_TYPE_E__DM_TYPE_LC;
    request.card_nodeid = 103;
    static constexpr int32_t numbers[] = {6, 7, 8};
    return alternate(
        rounds, [&] { return write_bare(raw, commands); },
        [&] {
            const double began = now_us();
            for (int i = 0; i < writes_per_round; i++) {
                index.slotid = i % slots;
                check(vx_mom_hmset(ours.get(), host, &request.base, numbers, 3, nullptr, nullptr), "write");
            }
            return per_write(began);
        });
}

} // namespace bench
