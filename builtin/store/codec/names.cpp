// The names in the store; see the header.
#include "store/codec/names.h"

namespace store
{

std::string counter_key(const std::string &type)
{
    return "@rev:" + type;
}

std::string index_key(const std::string &type)
{
    return "@idx:" + type;
}

std::string channel_prefix(int32_t database)
{
    return "@chg:" + std::to_string(database) + ":";
}

} // namespace store
