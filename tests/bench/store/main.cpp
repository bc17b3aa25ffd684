// What our store client costs beside the bare store, one measurement a start:
//
//     bench_store MEASUREMENT SOCKET ROUNDS
//
// prints the rounds as one JSON object. The server at SOCKET belongs to the measurement alone.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <string>

#include "readings.h"
#include "snapshot.h"
#include "writes.h"

namespace
{

using Measurement = bench::Rounds (*)(const std::string &socket, int rounds);

const std::map<std::string, Measurement> &measurements()
{
    static const std::map<std::string, Measurement> all{
        {"written", bench::measure_written}, {"deleted", bench::measure_deleted},
        {"fields", bench::measure_fields},   {"delivery", bench::measure_delivery},
        {"burst", bench::measure_burst},     {"snapshot", bench::measure_snapshot},
        {"stall", bench::measure_stall},
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
    const auto found = argc == 4 ? measurements().find(argv[1]) : measurements().end();
    if (found == measurements().end()) {
        std::fprintf(stderr, "usage: bench_store MEASUREMENT SOCKET ROUNDS\n");
        return 2;
    }
    (void)setenv("VX_ZLOG", "stderr", 0);
    const bench::Rounds taken = found->second(argv[2], std::atoi(argv[3]));
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
