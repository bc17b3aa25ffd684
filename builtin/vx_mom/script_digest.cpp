// libmd's SHA-1 behind a name of ours. Asking the server with SCRIPT LOAD was the alternative; it would cost
// a round trip on every connection, and a right that check modules need not have.
#include "script_digest.h"

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
