// What the measurements share; see the header.
#include "measure.h"

#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace bench
{

namespace
{

char card_name[] = "line card 48x10";
constexpr int32_t card_type = 200;

} // namespace

double now_us()
{
    const std::chrono::duration<double, std::micro> since =
        std::chrono::steady_clock::now().time_since_epoch();
    return since.count();
}

Rounds alternate(int rounds, const std::function<double()> &baseline, const std::function<double()> &ours)
{
    (void)baseline();
    (void)ours();
    Rounds taken;
    for (int round = 0; round < rounds; round++) {
        if (round % 2 == 0) {
            taken.baseline.push_back(baseline());
            taken.ours.push_back(ours());
        } else {
            taken.ours.push_back(ours());
            taken.baseline.push_back(baseline());
        }
    }
    return taken;
}

Context client(const std::string &socket, const char *name)
{
    (void)setenv("VX_MOM_ENDPOINT", ("unix:" + socket).c_str(), 1);
    Context context(vx_global_init(name, nullptr));
    check(vx_mom_client_connect_sync(context.get(), host), "connect");
    return context;
}

Card::Card(int32_t slot)
{
    p_dev__card_info_index__init(&index);
    p_dev__card_info__init(&record);
    index.devid = 1;
    index.slotid = slot;
    record.index = &index;
    record.config_dev_type = card_type;
    record.name = card_name;
    record.user_slot = 3;
    record.card_nodeid = 103;
    record.card_tipc_nodeid = 1003;
}

const Words &card_fields()
{
    static const Words fields{"6", "200", "12", card_name, "15", "3", "17", "103", "22", "1003"};
    return fields;
}

std::string card_key(int32_t slot)
{
    return "p_dev.card_info:0:1:" + std::to_string(slot) + ":0";
}

Words card_call(int32_t slot, const std::string &mark)
{
    Words words{"FCALL",   "vx_mom1_set", "3", card_key(slot), "@rev:p_dev.card_info", "@idx:p_dev.card_info",
                "@chg:1:", mark};
    words.insert(words.end(), card_fields().begin(), card_fields().end());
    return words;
}

void check(int32_t result, const char *what)
{
    if (result != 0) {
        throw std::runtime_error(std::string(what) + " failed with " + std::to_string(result));
    }
}

} // namespace bench
