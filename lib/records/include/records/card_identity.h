// What makes a card this card.
#ifndef RECORDS_CARD_IDENTITY_H
#define RECORDS_CARD_IDENTITY_H

namespace cg
{

// Whether two descriptions are of one card, as far as a store can tell: by name and serial number. Position,
// types and ids belong to the slot and stay when another card is put into it. `Card` has the members `name`
// and `serial`; what a missing description means is the caller's to decide.
template <typename Card>
[[nodiscard]] bool has_same_identity(const Card &one, const Card &other)
{
    return one.name == other.name && one.serial == other.serial;
}

} // namespace cg

#endif
