// The cards that a module on trial is asked about.
#ifndef TRY_TEST_CARD_H
#define TRY_TEST_CARD_H

#include <cstdint>
#include <string>
#include <vector>

#include "records/position.h"

namespace cg
{

struct TestCard {
    Position position{1, 1, 0};
    int32_t type = 200;
    std::string node_type = "lc"; // as node_type_value() has it
    int32_t node_id = 0;
    std::string name{};
    std::string serial{}; // hexadecimal
};

// Parses "name=fan 3 type=230 slot=3"; also devid, sslot, node-type, nodeid and serial. What is not named
// keeps its default. Throws Failure (wrong usage).
TestCard parse_test_card(const std::string &text);

// Parses one card from each text; without any, a default set. At least two cards, since some cases need two:
// a single one is repeated in the next slot. Throws Failure (wrong usage), also for two cards at one
// position.
std::vector<TestCard> parse_test_cards(const std::vector<std::string> &texts);

} // namespace cg

#endif
