// What the measurements share; see the header.
#include "measure.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "pace.h"

namespace bench
{

namespace
{

char card_name[] = "line card 48x10";
constexpr int32_t card_type = 200;

void print_list(const char *name, const std::vector<double> &values)
{
    std::printf("\"%s\": [", name);
    for (size_t i = 0; i < values.size(); i++) {
        std::printf("%s%.4f", i == 0 ? "" : ", ", values[i]);
    }
    std::printf("]");
}

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
        Rounds attempts;
        const Calmest calmest = take_calmly([&](const Look &look) {
            look();
            const bool ours_first = round % 2 != 0;
            (ours_first ? attempts.ours : attempts.baseline).push_back((ours_first ? ours : baseline)());
            look();
            (ours_first ? attempts.baseline : attempts.ours).push_back((ours_first ? baseline : ours)());
            look();
        });
        taken.baseline.push_back(attempts.baseline[calmest.attempt]);
        taken.ours.push_back(attempts.ours[calmest.attempt]);
        taken.shared += calmest.share < shared_from ? 0 : 1;
    }
    return taken;
}

Rounds together(int rounds, const std::function<std::pair<double, double>()> &both)
{
    (void)both();
    Rounds taken;
    for (int round = 0; round < rounds; round++) {
        std::vector<std::pair<double, double>> attempts;
        const Calmest calmest = take_calmly([&](const Look &look) {
            look();
            attempts.push_back(both());
            look();
        });
        taken.baseline.push_back(attempts[calmest.attempt].first);
        taken.ours.push_back(attempts[calmest.attempt].second);
        taken.shared += calmest.share < shared_from ? 0 : 1;
    }
    return taken;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t half = values.size() / 2;
    return values.size() % 2 != 0 ? values[half] : (values[half - 1] + values[half]) / 2;
}

Rounds alone(int rounds, const std::function<double()> &ours)
{
    Rounds taken = alternate(
        rounds, [] { return 0.0; }, ours);
    taken.baseline.clear();
    return taken;
}

void print(const Rounds &taken)
{
    std::printf("{");
    if (!taken.baseline.empty()) {
        print_list("baseline", taken.baseline);
        std::printf(", ");
    }
    print_list("ours", taken.ours);
    std::printf(", \"shared\": %d}\n", taken.shared);
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
    Words words{"FCALL",   "vx_mom2_set", "3", card_key(slot), "@rev:p_dev.card_info", "@idx:p_dev.card_info",
                "@chg:1:", mark};
    words.insert(words.end(), card_fields().begin(), card_fields().end());
    return words;
}

void remove_cards(Raw &raw, int32_t count)
{
    Words words{"DEL", "@rev:p_dev.card_info", "@idx:p_dev.card_info"};
    for (int32_t slot = 0; slot < count; slot++) {
        words.push_back(card_key(slot));
    }
    (void)raw.run(words);
}

void check(int32_t result, const char *what)
{
    if (result != 0) {
        throw std::runtime_error(std::string(what) + " failed with " + std::to_string(result));
    }
}

} // namespace bench
