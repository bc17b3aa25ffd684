// One change after the other, each with its answer: what a write of ours costs beside the bare command.
#ifndef BENCH_WRITES_H
#define BENCH_WRITES_H

#include <string>

#include "measure.h"

namespace bench
{

// A record of 5 fields: HSET = 1. Microseconds a write.
Rounds measure_written(const std::string &socket, int rounds);
// The same call of the server's function, but made by bare hiredis: what of the above is the server's.
Rounds measure_call(const std::string &socket, int rounds);
// A record of 5 fields that exists: DEL = 1.
Rounds measure_deleted(const std::string &socket, int rounds);
// 3 fields of a record that exists: HSET of the three = 1.
Rounds measure_fields(const std::string &socket, int rounds);

// What a trip of other making costs: HSET of 5 fields = 1. It shows what the single steps of ours take.
enum class Trip {
    nothing,     // a function with the arguments of ours, which does nothing
    hset,        // a function that does HSET
    publish,     // ... and PUBLISH of the fields
    unchecked,   // ... and INCR, SADD: all that changes something, with nothing checked
    transaction, // these five as MULTI, ..., EXEC in one pipeline
    pipeline,    // HSET and PUBLISH in one pipeline
};
Rounds measure_trip(const std::string &socket, int rounds, Trip trip);

} // namespace bench

#endif
