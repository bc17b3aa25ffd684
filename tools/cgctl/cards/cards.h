// Cards with everything that the databases say about them.
#ifndef CARDS_CARDS_H
#define CARDS_CARDS_H

#include <map>
#include <optional>
#include <vector>

#include "access/store.h"
#include "admission/decision.h"

namespace cg
{

// One card: its card_info, and what was found for it elsewhere.
struct Card {
    admission::CardFacts facts{};
    bool request = false;              // a check request stands
    std::optional<bool> by_tipc{};     // whether the result by TIPC node says PASS
    std::optional<bool> by_position{}; // the same of the result by position
    std::optional<int32_t> custom_status{};
    bool power_off = false;

    // "passed" or "denied" as the result by TIPC node says; without one "waiting" when a request stands, else
    // "none".
    [[nodiscard]] const char *verdict() const;
};

// The records of the types that are about cards, read once, by their types. What is in another database than
// the cards and on a server that is away, see Store::away(), has none.
using StoredRecords = std::map<const ProtobufCMessageDescriptor *, std::vector<store::Record>>;
// Throws Failure, also when the server of the cards is away.
StoredRecords read_records(Store &store);

// The positions with a check request among them.
std::vector<admission::Position> requests_in(const StoredRecords &records);

// Every card that has a card_info among them, by position.
std::map<admission::Position, Card> cards_in(const StoredRecords &records);

} // namespace cg

#endif
