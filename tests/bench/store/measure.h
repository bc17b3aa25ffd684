// What the measurements share: the clock, a round's result, the records that are written, the client.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "raw.h"
#include "vx_mom.h"

namespace bench
{

constexpr int32_t host = 1; // the database that cards are in

// Microseconds on the clock that all processes of the machine share.
double now_us();

// One number for each round, of the baseline and of ours, taken in turn.
struct Rounds {
    std::vector<double> baseline;
    std::vector<double> ours;
    int shared = 0; // so many of them while somebody else used the core; see pace.h
};

// Prints them as one JSON object, as the programs of a measurement end.
void print(const Rounds &taken);

// Takes the two in turn, and who begins alternates too, so that neither always runs on the other's caches.
// One round before the first is thrown away. A round during which somebody else used the core is taken again,
// a few times; see pace.h.
Rounds alternate(int rounds, const std::function<double()> &baseline, const std::function<double()> &ours);

// The same of two that are taken in turn many times within a round: `both` returns the baseline's number and
// ours.
Rounds together(int rounds, const std::function<std::pair<double, double>()> &both);

// The same of something that has no baseline.
Rounds alone(int rounds, const std::function<double()> &ours);

// The one in the middle. `values` is not empty.
double median(std::vector<double> values);

struct FinishContext {
    void operator()(vx_global_t *global) const { vx_global_finish(global); }
};
using Context = std::unique_ptr<vx_global_t, FinishContext>;

// A store client of ours on that server, connected to the database of cards.
Context client(const std::string &socket, const char *name);

// A card with five fields besides its index.
struct Card {
    explicit Card(int32_t slot);
    Card(const Card &) = delete;
    Card &operator=(const Card &) = delete;
    ~Card() = default;

    PDev__CardInfoIndex index;
    PDev__CardInfo record;
};

// The same five fields as names and values of the record's hash.
const Words &card_fields();
std::string card_key(int32_t slot);

// A call of the function that writes such a card, as text: what a writer that pipelines sends.
Words card_call(int32_t slot, const std::string &mark);

// Takes the cards of so many slots away, their index and their counter with them: as if there had never been
// any. Nobody may be subscribed to them.
void remove_cards(Raw &raw, int32_t count);

// Throws when a call of the client failed.
void check(int32_t result, const char *what);

} // namespace bench

#endif
