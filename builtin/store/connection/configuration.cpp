// Reading the store client's settings; see the header.
#include "store/connection/configuration.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace store
{

namespace
{

constexpr const char *endpoint_setting = "VX_MOM_ENDPOINT";
constexpr const char *credential_setting = "VX_MOM_AUTH_FILE";
constexpr const char *default_endpoint = "tcp:127.0.0.1:6379";
constexpr const char *deadline_setting = "VX_MOM_DEADLINE_MS";
constexpr int64_t default_deadline_ms = 5000;
constexpr platform::Bounds deadline_bounds_ms{1, 3600000};
constexpr const char *replicas_setting = "VX_MOM_WAIT_REPLICAS";
constexpr platform::Bounds replicas_bounds{0, 100};
constexpr const char *replica_limit_setting = "VX_MOM_WAIT_MS";
constexpr int64_t default_replica_limit_ms = 100;

platform::Setting replica_count(int32_t db)
{
    return platform::numbered_setting(replicas_setting, db, "");
}

// As place_of(), of settings.
std::optional<StorePlace> place_in(const platform::Setting &endpoint,
                                   const platform::Setting &credential_file, std::string &why)
{
    const auto place = parse_endpoint(endpoint.value, why);
    if (!place) {
        // What it is about shows in the text, and which database's it is only here.
        why = endpoint.name == endpoint_setting ? why : endpoint.name + ": " + why;
        return std::nullopt;
    }
    const auto credentials = read_credentials(credential_file.value, why);
    if (!credentials) {
        why = credential_file.name + ": " + why;
        return std::nullopt;
    }
    return StorePlace{*place, *credentials};
}

} // namespace

std::optional<StorePlace> place_of(const std::string &endpoint, const std::string &credential_file,
                                   std::string &why)
{
    return place_in({endpoint_setting, endpoint}, {credential_setting, credential_file}, why);
}

platform::Setting configured_endpoint(int32_t db)
{
    return platform::numbered_setting(endpoint_setting, db, default_endpoint);
}

platform::Setting configured_credentials(int32_t db)
{
    return platform::numbered_setting(credential_setting, db, "");
}

std::vector<ConfiguredServer> configured_servers(const std::set<int32_t> &databases)
{
    std::vector<ConfiguredServer> servers;
    for (const int32_t db : databases) {
        const std::string endpoint = configured_endpoint(db).value;
        auto server = std::find_if(servers.begin(), servers.end(),
                                   [&](const ConfiguredServer &known) { return known.endpoint == endpoint; });
        if (server == servers.end()) {
            server = servers.insert(server, {endpoint, {}});
        }
        server->databases.insert(db);
    }
    return servers;
}

std::optional<StorePlace> configured_place(int32_t db, std::string &why)
{
    return place_in(configured_endpoint(db), configured_credentials(db), why);
}

std::chrono::milliseconds configured_deadline()
{
    return std::chrono::milliseconds(platform::setting_number(
        deadline_setting, default_deadline_ms, deadline_bounds_ms.least, deadline_bounds_ms.most));
}

ReplicaSetting configured_replicas(int32_t db)
{
    const int64_t limit_ms = platform::setting_number(replica_limit_setting, default_replica_limit_ms,
                                                      deadline_bounds_ms.least, deadline_bounds_ms.most);
    return {static_cast<int>(platform::setting_number(replica_count(db), 0, replicas_bounds)),
            std::chrono::milliseconds(limit_ms)};
}

std::string configuration_problem(const std::set<int32_t> &databases)
{
    std::string why;
    for (const int32_t db : databases) {
        if (!configured_place(db, why)) {
            return why;
        }
    }
    std::vector<std::pair<platform::Setting, platform::Bounds>> numbers;
    const auto add = [&numbers](const char *name, platform::Bounds bounds) {
        numbers.emplace_back(platform::Setting{name, platform::setting(name, "")}, bounds);
    };
    add(deadline_setting, deadline_bounds_ms);
    for (const int32_t db : databases) {
        numbers.emplace_back(replica_count(db), replicas_bounds);
    }
    add(replica_limit_setting, deadline_bounds_ms);
    for (const auto &[number, bounds] : numbers) {
        if (why.empty()) {
            why = platform::number_problem(number, bounds);
        }
    }
    return why;
}

} // namespace store
