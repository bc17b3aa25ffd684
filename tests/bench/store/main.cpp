// What our store client costs beside the bare store, one measurement a start:
//
//     bench_store MEASUREMENT SOCKET ROUNDS [SUBSCRIBERS]
//
// prints the rounds as one JSON object. The server at SOCKET belongs to the measurement alone.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <string>

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

const std::map<std::string, Measurement> &measurements()
{
    static const std::map<std::string, Measurement> all{
        {"written", without_subscribers(bench::measure_written)},
        {"call", without_subscribers(bench::measure_call)},
        {"deleted", without_subscribers(bench::measure_deleted)},
        {"fields", without_subscribers(bench::measure_fields)},
        {"delivery", without_subscribers(bench::measure_delivery)},
        {"burst", without_subscribers(bench::measure_burst)},
        {"snapshot", without_subscribers(bench::measure_snapshot)},
        {"stall", without_subscribers(bench::measure_stall)},
        {"fan-out", bench::measure_fan_out},
        {"fan-out-burst", bench::measure_fan_out_burst},
    };
    return all;
}

void print(const char *name, const std::vector<double> &values)
{
    std::printf("\"%s\": [", name);
    for (size_t i = 0; i < values.size(); i++) {
        std::printf("%s%.4f", i == 0 ? "" : ", ", values[i]);
    }
    std::printf("]");
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
    const bench::Rounds taken = found->second(argv[2], std::atoi(argv[3]), subscribers);
    std::printf("{");
    print("baseline", taken.baseline);
    std::printf(", ");
    print("ours", taken.ours);
    std::printf("}\n");
    return 0;
} catch (const std::exception &failure) {
    std::fprintf(stderr, "bench_store: %s\n", failure.what());
    return 1;
}
