// The databases of the store that records live in. No schema says it.
#ifndef RECORDS_DATABASES_H
#define RECORDS_DATABASES_H

#include <cstdint>

namespace cg
{

inline constexpr int32_t card_database = 1;    // cards, check requests, answers
inline constexpr int32_t result_database = 28; // what became of each card's check
inline constexpr int32_t device_database = 33; // what the device manager is to do

} // namespace cg

#endif
