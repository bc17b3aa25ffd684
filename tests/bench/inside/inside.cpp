// What is inside one process, in nanoseconds, by Google Benchmark: log messages, the walk of the card table,
// records to text and back.
//
// The daemon's own objects are measured. Only vxcg_zlog() is another one here, which takes the record and
// does nothing: what the library does with it is the library's.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdint>
#include <vector>

#include "app_cg/app_cg.h"
#include "app_cg/card_nodes.h"
#include "app_cg_dbg/logging.h"
#include "p_dev.pb-c.h"
#include "store/codec/key.h"
#include "store/codec/value.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's name for it
extern "C" void __wrap_vxcg_zlog(vx_zlog_category_t * /*category*/, const char *file, size_t /*file_len*/,
                                 const char * /*func*/, size_t /*func_len*/, long /*line*/, int32_t /*level*/,
                                 const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const char *text = va_arg(values, const char *);
    benchmark::DoNotOptimize(file);
    benchmark::DoNotOptimize(text);
    va_end(values);
}

namespace
{

constexpr uint32_t quiet = 1;
constexpr uint32_t talkative = 4;

int evaluated = 0; // arguments of messages

int32_t argument()
{
    evaluated++;
    return evaluated;
}

[[gnu::noinline]] void take(int32_t first, int32_t second, int32_t third)
{
    benchmark::DoNotOptimize(first + second + third);
}

// An empty loop plus one compare. What it guards is a call with three arguments, as in a message: the
// compiler then lays the loop out as it does there.
void one_compare(benchmark::State &state)
{
    app_cg_verbosity = quiet;
    for (auto unused : state) {
        (void)unused;
        if (app_cg_verbosity > 3U) {
            take(argument(), argument(), argument());
        }
        benchmark::ClobberMemory(); // the next turn reads it again
    }
}

void disabled_message(benchmark::State &state)
{
    app_cg_verbosity = quiet;
    evaluated = 0;
    for (auto unused : state) {
        (void)unused;
        APP_CG_INFO("devid[%d] slotid[%d] sslotid[%d]", argument(), argument(), argument());
        benchmark::ClobberMemory();
    }
    if (evaluated != 0) {
        state.SkipWithError("arguments of a disabled message were evaluated");
    }
}

// The daemon's commonest form: three numbers of a position.
void enabled_message(benchmark::State &state)
{
    app_cg_verbosity = talkative;
    static int category = 0; // is only compared with null here
    g_app_cg_global.zlog_handle = reinterpret_cast<vx_zlog_category_t *>(&category);
    int32_t slot = 0;
    for (auto unused : state) {
        (void)unused;
        slot = (slot + 1) % 64;
        APP_CG_INFO("devid[%d] slotid[%d] sslotid[%d]", 1, slot, 0);
    }
    app_cg_verbosity = 0;
}

// Finding the card that is farthest from the list's head.
void table_walk(benchmark::State &state)
{
    app_cg_verbosity = 0;
    app_cg_node_list_init(&g_app_cg_global.card_nodes);
    const auto cards = static_cast<int32_t>(state.range(0));
    for (int32_t slot = 0; slot < cards; slot++) {
        CardNode card{};
        card.slotid = slot;
        (void)app_cg_node_init(card, &g_app_cg_global.card_nodes);
    }
    for (auto unused : state) {
        (void)unused;
        benchmark::DoNotOptimize(app_cg_node_pos_search(0, cards - 1, 0));
    }
    for (int32_t slot = 0; slot < cards; slot++) {
        (void)app_cg_node_del(0, slot, 0);
    }
}

struct Card {
    Card()
    {
        index.devid = 1;
        index.slotid = 3;
        record.index = &index;
        record.config_dev_type = 200;
        record.name = name;
        record.user_slot = 3;
        record.card_nodeid = 103;
        record.card_tipc_nodeid = 1003;
    }
    char name[16] = "line card 48x10";
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    PDev__CardInfo record = P_DEV__CARD_INFO__INIT;
};

void encode(benchmark::State &state)
{
    const Card card;
    for (auto unused : state) {
        (void)unused;
        store::Content content;
        benchmark::DoNotOptimize(store::encode_record(card.record.base, content));
        benchmark::DoNotOptimize(store::encode_key(card.record.base));
    }
}

void decode(benchmark::State &state)
{
    const Card card;
    store::Content content;
    (void)store::encode_record(card.record.base, content);
    const std::string key = store::encode_key(card.record.base);
    for (auto unused : state) {
        (void)unused;
        std::string why;
        benchmark::DoNotOptimize(
            store::decode_record(p_dev__card_info__descriptor, key, content.present, why));
    }
}

BENCHMARK(one_compare);
BENCHMARK(disabled_message);
BENCHMARK(enabled_message);
BENCHMARK(encode);
BENCHMARK(decode);
BENCHMARK(table_walk)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);

} // namespace

BENCHMARK_MAIN();
