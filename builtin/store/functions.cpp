// The function library by which every change is one atomic step on the server: functions.lua, as the build
// has put it into a header.
#include "store/functions.h"

#include "store_functions.h"

namespace store
{

const std::string &library_code()
{
    static const std::string code(store_functions_code, sizeof store_functions_code - 1);
    return code;
}

const std::string &library_digest()
{
    static const std::string digest = store_functions_digest;
    return digest;
}

} // namespace store
