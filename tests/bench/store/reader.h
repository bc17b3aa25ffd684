// The other process: holds the decoded records of what this one writes, in one of two ways, and says when.
//
// It notes the time at which it held a record in memory that both processes see, and wakes this one with a
// byte after every so many records; so the way back is in no figure.
#ifndef BENCH_READER_H
#define BENCH_READER_H

#include <memory>
#include <string>

#include "child.h"

namespace bench
{

// How the reader learns of a record.
enum class Way {
    notified, // keyspace notification, then HGETALL, then decoded: what one would do with the bare store
    ours,     // vx_mom_subscribe()
};

class Reader
{
public:
    // Starts the process. It tells its time after every `group` records. Throws when it does not come up.
    Reader(const std::string &socket, Way way, int group);
    // Waits until the next group is held; returns when that was, in microseconds.
    double wait();

private:
    struct Unmap {
        void operator()(double *shared) const;
    };

    std::unique_ptr<double, Unmap> held_; // shared with the process
    Child process_;
};

} // namespace bench

#endif
