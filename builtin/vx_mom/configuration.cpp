// Reading the store client's settings; see the header.
#include "configuration.h"

#include "settings.h"

namespace vx_mom
{

namespace
{

constexpr const char *deadline_setting = "VX_MOM_DEADLINE_MS";
constexpr int64_t default_deadline_ms = 5000;
constexpr platform::Bounds deadline_bounds_ms{1, 3600000};

} // namespace

std::optional<StorePlace> configured_place(std::string &why)
{
    const auto endpoint = parse_endpoint(platform::setting("VX_MOM_ENDPOINT", "tcp:127.0.0.1:6379"), why);
    if (!endpoint) {
        return std::nullopt;
    }
    const auto credentials = read_credentials(platform::setting("VX_MOM_AUTH_FILE", ""), why);
    if (!credentials) {
        why = "VX_MOM_AUTH_FILE: " + why;
        return std::nullopt;
    }
    return StorePlace{*endpoint, *credentials};
}

std::chrono::milliseconds configured_deadline()
{
    return std::chrono::milliseconds(platform::setting_number(
        deadline_setting, default_deadline_ms, deadline_bounds_ms.least, deadline_bounds_ms.most));
}

std::string configuration_problem()
{
    std::string why;
    if (!configured_place(why)) {
        return why;
    }
    return platform::number_problem(deadline_setting, deadline_bounds_ms);
}

} // namespace vx_mom
