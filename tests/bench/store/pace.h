// Whether the processor is ours alone at the moment.
//
// A virtual processor is often one of two threads of a core, and the other one a stranger's. While the
// stranger computes, all that is measured takes up to twice as long, for milliseconds or for minutes, and no
// counter of this machine tells of it: nothing is stolen and nobody is preempted. A loop that uses neither
// memory nor the system shows it. So rounds are taken again when the loop was slow around them.
#ifndef BENCH_PACE_H
#define BENCH_PACE_H

#include <cstddef>
#include <functional>

namespace bench
{

// The least time that a turn of the loop took, of all within so many milliseconds; in microseconds.
double best_pace(double milliseconds);

// How many times its best the loop takes at the moment, over some milliseconds: 1 alone, up to 2 shared with
// another thread of the core, more with another process. The best is what BENCH_PACE says (microseconds), or
// what was found when this was first called.
double share();

// From this share on a round is taken again.
constexpr double shared_from = 1.1;

// Which attempt at a round was the least disturbed, from 0, and how much: the worst share() that was seen.
struct Calmest {
    size_t attempt = 0;
    double share = 0;
};
using Look = std::function<void()>;
// Takes a round, and again while it was disturbed, up to three times in all, but not any more after the time
// that BENCH_AGAIN_UNTIL says (microseconds, as now_us()). `round` calls its argument before, between and
// after what it measures.
Calmest take_calmly(const std::function<void(const Look &look)> &round);

} // namespace bench

#endif
