// libmd's SHA-1 behind a name of ours.
#include "store/digest.h"

#include <sha1.h>

namespace vx_mom
{

std::string sha1_hex(std::string_view bytes)
{
    char text[SHA1_DIGEST_STRING_LENGTH] = {};
    (void)SHA1Data(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(), text);
    return text;
}

} // namespace vx_mom
