// Where a card is.
#include "position.h"

namespace admission
{

std::string Position::text() const
{
    return std::to_string(devid) + '/' + std::to_string(slotid) + '/' + std::to_string(sslotid);
}

} // namespace admission
