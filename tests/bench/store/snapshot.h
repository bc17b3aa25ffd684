// Subscribing when there are records already: the time it takes, and for how long the server serves nobody
// else.
#ifndef BENCH_SNAPSHOT_H
#define BENCH_SNAPSHOT_H

#include <string>

#include "measure.h"

namespace bench
{

// From subscribing until 10,000 existing records are delivered: their keys by SMEMBERS and HGETALL one by
// one, decoded = 1. Microseconds for all.
Rounds measure_snapshot(const std::string &socket, int rounds);

// The longest wait of somebody who pings the server all the time while a subscriber reads 10,000 records,
// and, as the baseline, while nobody does for as long. Microseconds. The server should have a processor for
// itself.
Rounds measure_stall(const std::string &socket, int rounds);

} // namespace bench

#endif
