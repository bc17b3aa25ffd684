// What our store client costs beside the bare store, one measurement a start:
//
//     bench_store MEASUREMENT SOCKET ROUNDS [SUBSCRIBERS]
//
// prints the rounds as one JSON object. The server at SOCKET belongs to the measurement alone.
// The measurement "pace" needs no server (SOCKET is -) and takes so many milliseconds: it prints the number
// that the others want in BENCH_PACE.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <string>

#include "pace.h"
#include "readings.h"
#include "snapshot.h"
#include "writes.h"

namespace
{

using Measurement = std::function<bench::Rounds(const std::string &socket, int rounds, int subscribers)>;

Measurement without_subscribers(bench::Rounds (*measure)(const std::string &socket, int rounds))
{
    return [measure](const std::string &socket, int rounds, int /*subscribers*/) {
        return measure(socket, rounds);
    };
}

Measurement trip(bench::Trip which)
{
    return [which](const std::string &socket, int rounds, int /*subscribers*/) {
        return bench::measure_trip(socket, rounds, which);
    };
}

bench::Rounds learn_pace(const std::string & /*socket*/, int milliseconds)
{
    return {{}, {bench::best_pace(milliseconds)}, 0};
}

const std::map<std::string, Measurement> &measurements()
{
    static const std::map<std::string, Measurement> all{
        {"written", without_subscribers(bench::measure_written)},
        {"call", without_subscribers(bench::measure_call)},
        {"call-nothing", trip(bench::Trip::nothing)},
        {"call-hset", trip(bench::Trip::hset)},
        {"call-publish", trip(bench::Trip::publish)},
        {"call-unchecked", trip(bench::Trip::unchecked)},
        {"transaction", trip(bench::Trip::transaction)},
        {"pipeline", trip(bench::Trip::pipeline)},
        {"deleted", without_subscribers(bench::measure_deleted)},
        {"fields", without_subscribers(bench::measure_fields)},
        {"delivery", without_subscribers(bench::measure_delivery)},
        {"burst", without_subscribers(bench::measure_burst)},
        {"snapshot", without_subscribers(bench::measure_snapshot)},
        {"stall", without_subscribers(bench::measure_stall)},
        {"fan-out", bench::measure_fan_out},
        {"fan-out-burst", bench::measure_fan_out_burst},
        {"pace", without_subscribers(learn_pace)},
    };
    return all;
}

} // namespace

int main(int argc, char **argv)
try {
    const int subscribers = argc == 5 ? std::atoi(argv[4]) : 1;
    const auto found = argc == 4 || argc == 5 ? measurements().find(argv[1]) : measurements().end();
    if (found == measurements().end()) {
        std::fprintf(stderr, "usage: bench_store MEASUREMENT SOCKET ROUNDS [SUBSCRIBERS]\n");
        return 2;
    }
    (void)setenv("VX_ZLOG", "stderr", 0);
    bench::print(found->second(argv[2], std::atoi(argv[3]), subscribers));
    return 0;
} catch (const std::exception &failure) {
    std::fprintf(stderr, "bench_store: %s\n", failure.what());
    return 1;
}
