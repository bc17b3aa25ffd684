// JSON as the programs print it, and the one instance of the library's template.
#include "base/json.h"

template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace cg
{

std::string dump(const Json &json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace cg
