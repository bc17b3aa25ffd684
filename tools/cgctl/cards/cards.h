// Cards with everything that the databases say about them.
#ifndef CARDS_CARDS_H
#define CARDS_CARDS_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "access/store.h"
#include "records/position.h"
#include "records/record_text.h"

namespace cg
{

// One card: its card_info, and what was found for it elsewhere.
struct Card {
    Position position;
    Json info;
    bool request = false;               // a check request stands
    std::optional<std::string> by_tipc; // "PASS" or "DENY"
    std::optional<std::string> by_position;
    std::optional<std::string> custom_status;
    bool power_off = false;

    // "passed" or "denied" as the result by TIPC node says; without one "waiting" when a request stands, else
    // "none".
    [[nodiscard]] std::string verdict() const;
    // The node type's name; DM_TYPE_UNKNOWN for a card without a static part.
    [[nodiscard]] std::string node_type() const;
    [[nodiscard]] bool is_online() const;
    // What the records say, as the JSON forms show it.
    [[nodiscard]] Json json() const;
};

// A record with the type and the database that it was found in.
struct FoundRecord {
    const RecordType *type;
    Json record;
};

// A record as it was read, and as JSON.
struct StoredRecord {
    store::Record read;
    Json json;
};

// The records of the types that are about cards, read once, by their types.
using StoredRecords = std::map<const RecordType *, std::vector<StoredRecord>>;
// Throws Failure.
StoredRecords read_records(Store &store);

// Every card that has a card_info among them, sorted by position.
std::vector<Card> cards_in(const StoredRecords &records);

// Every record of every type that is about the card at a position, the result by TIPC node included when the
// card's TIPC node id is known. Throws Failure.
std::vector<FoundRecord> records_of_card(Store &store, const Position &position);

} // namespace cg

#endif
