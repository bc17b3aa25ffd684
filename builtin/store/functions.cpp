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

Command load_functions()
{
    return {"FUNCTION", "LOAD", "REPLACE", library_code()};
}

bool is_missing_function(const redisReply *reply)
{
    return is_error(reply) && text_of(reply).find("unction not found") != std::string::npos;
}

} // namespace store
