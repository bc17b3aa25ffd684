// A group's servers; see the header.
#include "store/inspect/group.h"

#include <cstdlib>
#include <sstream>

#include "store/connection/sentinel.h"
#include "store/inspect/inspection.h"

namespace store
{

namespace
{

// Reads "ip=127.0.0.1,port=6380,state=online,offset=14,lag=0".
Replica replica_of(const std::string &description)
{
    Replica replica;
    std::istringstream fields(description);
    for (std::string field; std::getline(fields, field, ',');) {
        const std::size_t mark = field.find('=');
        const std::string name = field.substr(0, mark);
        const std::string value = mark == std::string::npos ? "" : field.substr(mark + 1);
        if (name == "ip") {
            replica.place.host = value;
        } else if (name == "port") {
            replica.place.port = static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
        } else if (name == "state") {
            replica.is_online = value == "online";
        }
    }
    return replica;
}

} // namespace

Endpoint endpoint_at(const HostPort &place)
{
    Endpoint endpoint;
    endpoint.text = "tcp:" + place_text(place);
    endpoint.host = place.host;
    endpoint.port = place.port;
    return endpoint;
}

std::vector<Replica> replicas_in(const std::string &info)
{
    std::vector<Replica> replicas;
    std::istringstream lines(info);
    for (std::string line; std::getline(lines, line);) {
        line.erase(line.find_last_not_of('\r') + 1);
        const std::size_t colon = line.find(':');
        const bool is_numbered = line.find_first_not_of("0123456789", 5) == colon;
        if (line.starts_with("slave") && colon > 5 && colon != std::string::npos && is_numbered) {
            replicas.push_back(replica_of(line.substr(colon + 1)));
        }
    }
    return replicas;
}

std::vector<SentinelReport> ask_sentinels(const StorePlace &group, std::chrono::milliseconds limit)
{
    std::vector<MasterSearch> searches;
    for (const HostPort &place : group.endpoint.sentinels) {
        Endpoint alone = group.endpoint;
        alone.sentinels = {place};
        searches.emplace_back(alone, group.credentials);
    }
    const Clock::time_point deadline = Clock::now() + limit;
    std::vector<SentinelReport> reports;
    for (std::size_t i = 0; i < searches.size(); i++) {
        (void)run_search(searches[i], deadline);
        const auto master = searches[i].found();
        reports.push_back(
            {group.endpoint.sentinels[i],
             master ? std::optional(HostPort{master->place.host, master->place.port}) : std::nullopt,
             searches[i].problem()});
    }
    return reports;
}

std::optional<std::vector<Endpoint>> servers_at(const StorePlace &place, std::chrono::milliseconds limit,
                                                std::string &why)
{
    if (place.endpoint.group.empty()) {
        return std::vector{place.endpoint};
    }
    const auto master = find_master(place.endpoint, place.credentials, Clock::now() + limit, why);
    if (!master) {
        why = place.endpoint.text + ": " + why;
        return std::nullopt;
    }
    std::vector<Endpoint> servers{endpoint_at({master->place.host, master->place.port})};
    Inspection inspection({servers.front(), place.credentials}, 0, limit);
    const auto info = inspection.ask({"INFO", "replication"}, limit);
    if (!info || info->is_error()) {
        why = info ? servers.front().text + ": " + info->text : inspection.problem();
        return std::nullopt;
    }
    for (const Replica &replica : replicas_in(info->text)) {
        servers.push_back(endpoint_at(replica.place));
    }
    return servers;
}

} // namespace store
