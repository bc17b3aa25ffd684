// The device around one daemon or several, and what can be measured from there:
//
//     bench_device road ROUNDS CARDS MODULES FIRST SOCKET [BARE_SOCKET IDLE_SOCKET]
//         the road of so many cards, one after the other, from slot FIRST on. Microseconds a card. The cards
//         are gone afterwards. With BARE_SOCKET in turn with the bare loop there, and both without what the
//         device itself takes, which the server at IDLE_SOCKET shows, to which nobody listens.
//     bench_device fill COUNT MODULES SOCKET      plugs so many cards, admits them and leaves them there
//     bench_device bare MODULES SOCKET SCRIPT     is the bare loop
//     bench_device room ROUNDS CHASSIS CARDS MODULES VERDICTS SOCKET [together]
//         all cards of all chassis at once; until there were so many verdicts on each card. Milliseconds.
//         With "together" it prints an empty line and waits for one before it plugs the cards, and before it
//         pulls them.
//     bench_device start SECONDS PROGRAM SEEN     starts a program; until its standard error has said SEEN.
//         Milliseconds.
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "bare_daemon.h"
#include "child.h"
#include "device.h"
#include "measure.h"
#include "pace.h"

namespace
{

using bench::Position;

using Arguments = std::vector<std::string>;

int number(const std::string &text)
{
    return std::atoi(text.c_str());
}

// Whoever has something left to do on this processor, does it now. To sleep meanwhile would let the processor
// fall asleep too, and what is measured next would begin with its waking up.
void let_others_finish()
{
    constexpr double nobody_us = 4; // a yield that takes less went to nobody
    constexpr int often = 1000;
    for (int in_vain = 0; in_vain < often;) {
        const double began = bench::now_us();
        (void)sched_yield();
        in_vain = bench::now_us() - began < nobody_us ? in_vain + 1 : 0;
    }
}

using Road = double (bench::Device::*)(const Position &card);

double take(bench::Device &device, Road way, int slot)
{
    const double spent = (device.*way)({1, slot});
    let_others_finish();
    device.unplug({{1, slot}});
    let_others_finish();
    return spent;
}

void take_all(bench::Device &device, Road way, int first, int cards, std::vector<double> &spent)
{
    for (int slot = first; slot < first + cards; slot++) {
        spent.push_back(take(device, way, slot));
    }
}

// Medians of so many cards, here and below: a stranger on the core disturbs for milliseconds at a time.
double roads(bench::Device &device, int first, int cards)
{
    std::vector<double> spent;
    take_all(device, &bench::Device::road, first, cards, spent);
    return bench::median(spent);
}

// A few cards on each of the three in turn, until there were so many, and who begins alternates; both without
// what the device itself takes. One card by turns would find everything in nobody's cache.
std::pair<double, double> roads_in_turn(bench::Device &bare, bench::Device &ours, bench::Device &idle,
                                        int first, int cards)
{
    constexpr int at_a_time = 5;
    std::vector<double> of_bare;
    std::vector<double> of_ours;
    std::vector<double> of_device;
    const auto take_some = [&](bool is_ours, int slot) {
        take_all(is_ours ? ours : bare, &bench::Device::road, slot, at_a_time, is_ours ? of_ours : of_bare);
    };
    for (int slot = first; slot + at_a_time <= first + cards; slot += at_a_time) {
        const bool ours_first = (slot - first) / at_a_time % 2 != 0;
        take_some(ours_first, slot);
        take_some(!ours_first, slot);
        take_all(idle, &bench::Device::road_of_its_own, slot, at_a_time, of_device);
    }
    const double device = bench::median(of_device);
    return {bench::median(of_bare) - device, bench::median(of_ours) - device};
}

void road(const Arguments &arguments)
{
    const int rounds = number(arguments.at(0));
    const int cards = number(arguments.at(1));
    const int first = number(arguments.at(3));
    bench::Device device(arguments.at(4), number(arguments.at(2)));
    if (arguments.size() == 5) {
        bench::print(bench::alone(rounds, [&] { return roads(device, first, cards); }));
        return;
    }
    bench::Device bare(arguments.at(5), number(arguments.at(2)));
    bench::Device idle(arguments.at(6), number(arguments.at(2)));
    bench::print(bench::together(rounds, [&] { return roads_in_turn(bare, device, idle, first, cards); }));
}

// Plugs them and answers; returns when there were so many verdicts on each.
double admit(bench::Device &device, const std::vector<Position> &cards, size_t verdicts)
{
    const double began = bench::now_us();
    device.plug(cards);
    std::set<std::pair<int32_t, int32_t>> answered;
    for (size_t left = cards.size() * verdicts; left > 0;) {
        const bench::Heard heard = device.hear();
        if (heard.type == bench::verdict_type) {
            left -= heard.command == '4' ? 1 : 0;
        } else if (heard.command == '6' && answered.insert({heard.at.devid, heard.at.slot}).second) {
            device.pass(heard.at);
        }
    }
    return bench::now_us() - began;
}

void fill(const Arguments &arguments)
{
    bench::Device device(arguments.at(2), number(arguments.at(1)));
    // In groups: a server drops subscribers that are too far behind.
    constexpr int group = 250;
    const int count = number(arguments.at(0));
    for (int from = 1; from <= count; from += group) {
        std::vector<Position> cards;
        for (int slot = from; slot < from + group && slot <= count; slot++) {
            cards.push_back({1, slot});
        }
        (void)admit(device, cards, 1);
    }
    std::printf("{}\n");
}

// What the server has carried out up to now.
double commands_of(bench::Raw &raw)
{
    const std::string text = bench::text_of(*raw.run({"INFO", "stats"}));
    const std::string name = "total_commands_processed:";
    return std::atof(text.c_str() + text.find(name) + name.size());
}

// Waits until nobody but the daemons' pings troubles the server any more: a daemon that finds nothing to
// remove tells nobody when it has finished.
void wait_until_idle(bench::Raw &raw)
{
    constexpr double pings = 8;
    constexpr double most_us = 60e6;
    const timespec pause{0, 30000000}; // the time over which commands are counted
    const double began = bench::now_us();
    for (double before = 0, now = commands_of(raw); now - before > pings; now = commands_of(raw)) {
        if (bench::now_us() - began > most_us) {
            throw std::runtime_error("the server still has work after a minute");
        }
        before = now;
        (void)nanosleep(&pause, nullptr);
    }
}

// Several of these are to do the same at the same time: tells that it is ready, and waits to be told to go
// on.
void wait_for_the_others(bool together)
{
    if (together) {
        std::printf("\n");
        (void)std::fflush(stdout);
        (void)std::getchar();
    }
}

void room(const Arguments &arguments)
{
    const bool together = arguments.size() > 6;
    std::vector<Position> cards;
    for (int chassis = 1; chassis <= number(arguments.at(1)); chassis++) {
        for (int slot = 1; slot <= number(arguments.at(2)); slot++) {
            cards.push_back({chassis, slot});
        }
    }
    bench::Device device(arguments.at(5), number(arguments.at(3)));
    bench::Raw raw(arguments.at(5), bench::host);
    std::vector<double> spent;
    for (int round = 0; round < number(arguments.at(0)); round++) {
        wait_until_idle(raw);
        wait_for_the_others(together);
        spent.push_back(admit(device, cards, static_cast<size_t>(number(arguments.at(4)))) / 1000);
        wait_for_the_others(together);
        device.unplug(cards);
    }
    wait_until_idle(raw);
    bench::print({{}, spent, 0});
}

// Milliseconds until it has said so.
double start_once(const std::string &program, const std::string &seen)
{
    const double began = bench::now_us();
    const bench::Child child([&](int report) {
        (void)dup2(report, STDERR_FILENO);
        (void)execl(program.c_str(), program.c_str(), nullptr);
    });
    // To be woken by each of the program's lines would take from the processor that it runs on.
    (void)fcntl(child.reports(), F_SETPIPE_SZ, 1 << 20);
    const timespec pause{0, 500000};
    std::string said;
    char bytes[1 << 16];
    // Nor may looking through them: what was looked through is not looked at again.
    for (size_t looked = 0; said.find(seen, looked) == std::string::npos;) {
        looked = said.size() - std::min(said.size(), seen.size());
        (void)nanosleep(&pause, nullptr);
        const ssize_t got = read(child.reports(), bytes, sizeof bytes);
        if (got <= 0) {
            throw std::runtime_error("the program ended; it said: " + said);
        }
        said.append(bytes, static_cast<size_t>(got));
    }
    return (bench::now_us() - began) / 1000;
}

void start(const Arguments &arguments)
{
    (void)alarm(static_cast<unsigned>(number(arguments.at(0))));
    std::vector<double> spent;
    const bench::Calmest calmest = bench::take_calmly([&](const bench::Look &look) {
        look();
        spent.push_back(start_once(arguments.at(1), arguments.at(2)));
        look();
    });
    bench::print({{}, {spent[calmest.attempt]}, calmest.share < bench::shared_from ? 0 : 1});
}

int run(const std::string &what, const Arguments &arguments)
{
    if (what == "road") {
        road(arguments);
    } else if (what == "fill") {
        fill(arguments);
    } else if (what == "room") {
        room(arguments);
    } else if (what == "start") {
        start(arguments);
    } else if (what == "bare") {
        (void)bench::client(arguments.at(1), "bench_bare"); // loads the functions
        bench::run_bare_daemon(arguments.at(1), bench::read_script(arguments.at(2)), number(arguments.at(0)));
    } else {
        return 2;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
try {
    (void)setenv("VX_ZLOG", "stderr", 0);
    const int status = argc < 3 ? 2 : run(argv[1], {argv + 2, argv + argc});
    if (status == 2) {
        std::fprintf(stderr, "usage: bench_device road|fill|bare|room|start ...\n");
    }
    return status;
} catch (const std::exception &failure) {
    std::fprintf(stderr, "bench_device: %s\n", failure.what());
    return 1;
}
