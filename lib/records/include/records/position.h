// Where a card is, and how a user writes it: devid/slotid/sslotid.
#ifndef RECORDS_POSITION_H
#define RECORDS_POSITION_H

#include <compare>
#include <cstdint>
#include <string>

namespace cg
{

// Ordered by device, slot, sub-slot.
struct Position {
    int32_t devid = 0;
    int32_t slotid = 0;
    int32_t sslotid = 0;

    // The linter mistakes the zero that comparisons are rewritten to for a null pointer.
    friend auto operator<=>(const Position &, const Position &) = default; // NOLINT(modernize-use-nullptr)

    // "1/3/0"
    [[nodiscard]] std::string text() const;
};

// Reads "1/3/0", or "1/3" for sub-slot 0. Throws Failure (wrong usage) for anything else.
Position parse_position(const std::string &text);

// A device, a slot with its sub-slots, or one position.
struct PositionPrefix {
    Position position{};
    int parts = 3; // how many of its ids count

    [[nodiscard]] bool holds(const Position &other) const;
};

// Reads "1", "1/3" or "1/3/0". Throws Failure (wrong usage) for anything else.
PositionPrefix parse_prefix(const std::string &text);

} // namespace cg

#endif
