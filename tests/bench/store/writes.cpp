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
