// Where a card is.
#ifndef ADMISSION_POSITION_H
#define ADMISSION_POSITION_H

#include <compare>
#include <cstdint>
#include <string>

namespace admission
{

// Ordered by device, slot, sub-slot.
struct Position {
    int32_t devid = 0;
    int32_t slotid = 0;
    int32_t sslotid = 0;

    // The linter takes the zero that others' comparisons are rewritten to for a null pointer.
    friend auto operator<=>(const Position &, const Position &) = default; // NOLINT(modernize-use-nullptr)

    // "1/3/0"
    [[nodiscard]] std::string text() const;
};

} // namespace admission

#endif
