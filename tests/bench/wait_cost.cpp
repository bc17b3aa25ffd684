// What it costs that a write waits for replicas: VX_MOM_WAIT_REPLICAS of 0, 1 and 2 against a master with two
// replicas on this machine.
//
// The three are measured in turn, round after round, so that whatever else the machine does meets all of them
// alike; what counts is the ratio to a write that does not wait.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "p_dev.pb-c.h"
#include "unit/builtin/store/sentinel_group.h"
#include "vx_mom.h"

namespace
{

constexpr size_t rounds = 9;
constexpr int writes_per_round = 2000;
constexpr int32_t host_database = 1;

struct FinishContext {
    void operator()(vx_global_t *global) const { vx_global_finish(global); }
};
using Context = std::unique_ptr<vx_global_t, FinishContext>;

void set(const char *name, const std::string &value)
{
    (void)setenv(name, value.c_str(), 1);
}

// A client whose writes wait for so many replicas.
Context client(int replicas)
{
    set("VX_MOM_WAIT_REPLICAS", std::to_string(replicas));
    Context context(vx_global_init("wait_cost", nullptr));
    if (vx_mom_client_connect_sync(context.get(), host_database) != 0) {
        throw std::runtime_error("the store does not answer");
    }
    return context;
}

// Microseconds per write.
double measure(vx_global_t *global)
{
    PDev__CardInfoIndex index;
    p_dev__card_info_index__init(&index);
    PDev__CardInfo card;
    p_dev__card_info__init(&card);
    card.index = &index;
    const auto began = std::chrono::steady_clock::now();
    for (int i = 0; i < writes_per_round; i++) {
        index.slotid = i % 100;
        card.config_dev_type = i;
        if (vx_mom_set_sync(global, host_database, &card.base) != 0) {
            throw std::runtime_error("a write failed");
        }
    }
    const std::chrono::duration<double, std::micro> spent = std::chrono::steady_clock::now() - began;
    return spent.count() / writes_per_round;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void run()
{
    store_test::SentinelGroup::Options options;
    options.down_after = std::chrono::milliseconds(60000); // nothing is to be replaced here
    const store_test::SentinelGroup group(options);
    set("VX_MOM_ENDPOINT", group.endpoint());
    set("VX_MOM_WAIT_MS", "1000");
    set("VX_ZLOG", "stderr");
    const std::array<Context, 3> clients{client(0), client(1), client(2)};
    std::array<std::vector<double>, 3> spent;
    for (size_t round = 0; round < rounds; round++) {
        for (size_t i = 0; i < clients.size(); i++) {
            spent.at(i).push_back(measure(clients.at(i).get()));
        }
        (void)std::fprintf(stderr, "round %zu of %zu\r", round + 1, rounds);
    }
    (void)std::fprintf(stderr, "\n");
    (void)std::printf("replicas waited for   µs per write (median of %zu rounds of %d)   ratio\n", rounds,
                      writes_per_round);
    for (size_t i = 0; i < spent.size(); i++) {
        (void)std::printf("%20zu   %42.1f   %5.2f\n", i, median(spent.at(i)),
                          median(spent.at(i)) / median(spent.at(0)));
    }
}

} // namespace

int main()
{
    try {
        run();
        return 0;
    } catch (const std::exception &failure) {
        (void)std::fprintf(stderr, "wait_cost: %s\n", failure.what());
        return 1;
    }
}
