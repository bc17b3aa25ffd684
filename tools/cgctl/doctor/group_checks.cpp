// The doctor's check of a group of servers; see the header.
//
// While the master serves, nobody misses the rest of its group. What is wrong with that shows in the outage
// in which it is needed, so it is looked for before.
#include "doctor/group_checks.h"

#include <map>

#include "base/text.h"
#include "store/inspect/group.h"

namespace cg
{

namespace
{

// What is wrong so far, and how to fix it.
struct Faults {
    std::vector<std::string> found;
    std::vector<std::string> fixes;

    void add(const std::string &what, const std::string &fix)
    {
        found.push_back(what);
        fixes.push_back(fix);
    }
};

void add_sentinels(const ExaminedServer &server, const store::StorePlace &place, Faults &faults)
{
    std::map<std::string, std::vector<std::string>> masters; // each with those that name it
    for (const store::SentinelReport &report : store::ask_sentinels(place, server.whole.patience)) {
        const std::string here = store::place_text(report.place);
        if (report.master) {
            masters[store::place_text(*report.master)].push_back(here);
        } else {
            const bool is_refused = report.words.find("refuses") != std::string::npos;
            faults.add("sentinel " + report.words,
                       is_refused
                           ? "give the sentinel at " + here + " the users of the others"
                           : "start the sentinel at " + here +
                                 " (`systemctl start redis-sentinel` on its device), or take it out of " +
                                 server.endpoint_settings());
        }
    }
    if (masters.size() > 1) {
        std::vector<std::string> opinions;
        opinions.reserve(masters.size());
        for (const auto &[master, sentinels] : masters) {
            opinions.push_back(master + " (" + joined(sentinels) + ')');
        }
        faults.add("the sentinels name several masters: " + joined(opinions),
                   "let the sentinels reach each other and the servers, and examine again: they agree within "
                   "seconds after a fail-over");
    }
}

void add_replica(const ExaminedServer &server, const store::StorePlace &group, const store::Replica &replica,
                 Faults &faults)
{
    const std::string here = store::place_text(replica.place);
    store::StorePlace place = group;
    place.endpoint = store::endpoint_at(replica.place);
    const store::Inspection inspection(place, 0, server.whole.patience);
    if (inspection.is_open()) {
        if (!replica.is_online) {
            faults.add("the replica " + here + " does not follow yet",
                       "wait until it has the master's data, and examine again; if it stays, see its log");
        }
        return;
    }
    const bool is_refused = inspection.problem().find("WRONGPASS") != std::string::npos ||
                            inspection.problem().find("NOAUTH") != std::string::npos;
    faults.add("replica " + inspection.problem(),
               is_refused
                   ? "give it the group's list of users, which is not replicated: `cgctl acl --database " +
                         std::to_string(server.first_database()) + "` prints it"
                   : "start the server at " + here + " (`systemctl start redis-server` on its device)");
}

} // namespace

Finding check_group(ExaminedServer &server)
{
    std::string why; // the settings were examined before
    const auto place = store::configured_place(server.first_database(), why).value_or(store::StorePlace{});
    Faults faults;
    add_sentinels(server, place, faults);
    const std::vector<store::Replica> replicas = store::replicas_in(server.info);
    for (const store::Replica &replica : replicas) {
        add_replica(server, place, replica, faults);
    }
    if (replicas.empty() && !server.info.empty()) {
        faults.add(
            "no replica follows the master: a fail-over is impossible",
            "start the group's other servers (`systemctl start redis-server` on their devices), each with "
            "`replicaof` and, where the group has users, `masteruser` and `masterauth`");
    }
    if (!faults.found.empty()) {
        return {Severity::warn, listed(faults.found), listed(faults.fixes)};
    }
    return {Severity::ok, std::to_string(place.endpoint.sentinels.size()) +
                              " sentinels name one master, with " + std::to_string(replicas.size()) +
                              (replicas.size() == 1 ? " replica" : " replicas")};
}

} // namespace cg
