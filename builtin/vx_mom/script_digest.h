// SHA-1, by which the server names its scripts. Nothing is protected by it.
#ifndef VX_MOM_SCRIPT_DIGEST_H
#define VX_MOM_SCRIPT_DIGEST_H

#include <string>
#include <string_view>

namespace vx_mom
{

// The digest of the bytes, as 40 lower-case hexadecimal digits.
std::string sha1_hex(std::string_view bytes);

} // namespace vx_mom

#endif
