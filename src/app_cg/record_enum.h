// Enumeration fields of records, read and written as the numbers that they are on the wire.
//
// The store may hold a number that the enumeration does not name, and a card's node type is passed on as it
// came. Such a number is no value of the C++ enumeration type, so it may not pass through one.
#ifndef APP_CG_RECORD_ENUM_H
#define APP_CG_RECORD_ENUM_H

#include <cstdint>
#include <cstring>

template <typename Enum>
int32_t app_cg_enum_get(const Enum &field)
{
    static_assert(sizeof(Enum) == sizeof(int32_t));
    int32_t number = 0;
    std::memcpy(&number, &field, sizeof number);
    return number;
}

template <typename Enum>
void app_cg_enum_set(Enum &field, int32_t number)
{
    static_assert(sizeof(Enum) == sizeof(int32_t));
    std::memcpy(&field, &number, sizeof number);
}

#endif
