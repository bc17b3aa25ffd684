// From one process into another: single records, and a burst of them.
#ifndef BENCH_READINGS_H
#define BENCH_READINGS_H

#include <string>

#include "measure.h"

namespace bench
{

// From before a write until another process holds the decoded record: HSET, keyspace notification and HGETALL
// = 1. Microseconds a record.
Rounds measure_delivery(const std::string &socket, int rounds);
// From the first of 10,000 pipelined writes until a subscriber holds the last record: HSET pipelined,
// keyspace notifications and HGETALL one by one = 1. Microseconds for all.
Rounds measure_burst(const std::string &socket, int rounds);

// With so many subscribers of ours, and nothing to compare with: a write until all of them hold the record,
// and a burst until all hold all. What else is in the database stays there. Microseconds a record, and for
// all.
Rounds measure_fan_out(const std::string &socket, int rounds, int subscribers);
Rounds measure_fan_out_burst(const std::string &socket, int rounds, int subscribers);

} // namespace bench

#endif
