// Positions in the keys of records.
#include "records/position_key.h"

#include <string>

namespace cg
{

namespace
{

int32_t part(const Json &key, const std::string &name)
{
    const auto found = key.contains(name) ? key.find(name) : key.find("t_" + name);
    return found == key.end() ? 0 : found->get<int32_t>();
}

} // namespace

Json key_of(const Position &position)
{
    return {{"devid", position.devid}, {"slotid", position.slotid}, {"sslotid", position.sslotid}};
}

Position position_in(const Json &key)
{
    return {part(key, "devid"), part(key, "slotid"), part(key, "sslotid")};
}

} // namespace cg
