// SHA-1, by which versions of the function library are told apart. Nothing is protected by it.
#ifndef STORE_DIGEST_H
#define STORE_DIGEST_H

#include <string>
#include <string_view>

namespace vx_mom
{

// The digest of the bytes, as 40 lower-case hexadecimal digits.
std::string sha1_hex(std::string_view bytes);

} // namespace vx_mom

#endif
