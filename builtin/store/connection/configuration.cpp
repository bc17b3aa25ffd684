// Reading the store client's settings; see the header.
#include "store/connection/configuration.h"

#include <utility>

#include "loop/settings.h"

namespace store
{

namespace
{

constexpr const char *deadline_setting = "VX_MOM_DEADLINE_MS";
constexpr int64_t default_deadline_ms = 5000;
constexpr platform::Bounds deadline_bounds_ms{1, 3600000};
constexpr const char *replicas_setting = "VX_MOM_WAIT_REPLICAS";
constexpr platform::Bounds replicas_bounds{0, 100};
constexpr const char *replica_limit_setting = "VX_MOM_WAIT_MS";
constexpr int64_t default_replica_limit_ms = 100;

} // namespace

std::optional<StorePlace> place_of(const std::string &endpoint, const std::string &credential_file,
                                   std::string &why)
{
    const auto place = parse_endpoint(endpoint, why);
    if (!place) {
        return std::nullopt;
    }
    const auto credentials = read_credentials(credential_file, why);
    if (!credentials) {
        why = "VX_MOM_AUTH_FILE: " + why;
        return std::nullopt;
    }
    return StorePlace{*place, *credentials};
}

std::string configured_endpoint()
{
    return platform::setting("VX_MOM_ENDPOINT", "tcp:127.0.0.1:6379");
}

std::optional<StorePlace> configured_place(std::string &why)
{
    return place_of(configured_endpoint(), platform::setting("VX_MOM_AUTH_FILE", ""), why);
}

std::chrono::milliseconds configured_deadline()
{
    return std::chrono::milliseconds(platform::setting_number(
        deadline_setting, default_deadline_ms, deadline_bounds_ms.least, deadline_bounds_ms.most));
}

ReplicaSetting configured_replicas()
{
    const int64_t count =
        platform::setting_number(replicas_setting, 0, replicas_bounds.least, replicas_bounds.most);
    const int64_t limit_ms = platform::setting_number(replica_limit_setting, default_replica_limit_ms,
                                                      deadline_bounds_ms.least, deadline_bounds_ms.most);
    return {static_cast<int>(count), std::chrono::milliseconds(limit_ms)};
}

std::string configuration_problem()
{
    std::string why;
    if (!configured_place(why)) {
        return why;
    }
    const std::pair<const char *, platform::Bounds> numbers[] = {{deadline_setting, deadline_bounds_ms},
                                                                 {replicas_setting, replicas_bounds},
                                                                 {replica_limit_setting, deadline_bounds_ms}};
    for (const auto &[name, bounds] : numbers) {
        if (why.empty()) {
            why = platform::number_problem({name, platform::setting(name, "")}, bounds);
        }
    }
    return why;
}

} // namespace store
