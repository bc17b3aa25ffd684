// The doctor's checks of the store server: reachable, of the right kind, and set so that it loses nothing.
#include "doctor/server_checks.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "base/text.h"
#include "records/record_types.h"
#include "store/connection/configuration.h"
#include "store/connection/server_info.h"

namespace cg
{

namespace
{

constexpr std::chrono::seconds longest_patience{10};

// What Redis has by default. The daemon receives every change of every card through this buffer, while
// it may be kept waiting by a call for some seconds.
constexpr int64_t least_hard_limit = 33554432;
constexpr int64_t least_soft_limit = 8388608;

// The value of a setting of the server; nothing, and `finding` says why, when it does not say.
std::optional<std::string> server_setting(ExaminedServer &server, const char *name, Finding &finding)
{
    const store::Inspected reply = server.ask({"CONFIG", "GET", name});
    if (reply.is_error()) {
        finding = refused(reply, "see the server's log");
        return std::nullopt;
    }
    if (reply.items.size() != 2) {
        finding = {Severity::skipped, std::string("the server has no setting ") + name};
        return std::nullopt;
    }
    return reply.items[1].text;
}

std::string set_it(ExaminedServer &server, const std::string &setting, const std::string &value)
{
    return '`' + server.redis_cli("CONFIG SET " + setting + ' ' + shell_word(value)) + "`, and `" + setting +
           ' ' + value + "` in the server's configuration file";
}

struct Limits {
    int64_t hard = 0; // 0: none
    int64_t soft = 0;
};

// Reads "normal 0 0 0 slave ... pubsub 33554432 8388608 60".
std::optional<Limits> pubsub_limits(const std::string &text)
{
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        Limits limits;
        if (word == "pubsub" && words >> limits.hard >> limits.soft) {
            return limits;
        }
    }
    return std::nullopt;
}

bool is_same_user(int32_t database, int32_t other)
{
    std::string ignored;
    const auto one = store::configured_place(database, ignored);
    const auto two = store::configured_place(other, ignored);
    return one && two && one->credentials == two->credentials;
}

// Why the server does not let this command in as the user of a database; empty when it does.
std::string login_problem(ExaminedServer &server, int32_t database)
{
    if (database == server.first_database() || is_same_user(database, server.first_database())) {
        return server.connection().is_open() ? "" : server.connection().problem();
    }
    std::string why;
    const auto place = store::configured_place(database, why);
    const store::Inspection another(place.value_or(store::StorePlace{}), 0, server.whole.patience);
    return another.is_open() ? "" : another.problem();
}

// Whether a setting of credentials counts at another server, too.
bool is_used_elsewhere(const ExaminedServer &server, const std::string &setting)
{
    const std::set<int32_t> &all = databases();
    return std::any_of(all.begin(), all.end(), [&](int32_t database) {
        return !server.databases.contains(database) &&
               store::configured_credentials(database).name == setting;
    });
}

// What to do when the server, or a group's sentinels, refuse the user of a database.
std::string credentials_fix(const ExaminedServer &server, int32_t database, const std::string &problem)
{
    const bool is_of_sentinels = problem.find("no master of") != std::string::npos;
    const std::string lines =
        is_of_sentinels ? "put `sentinel-user NAME` and `sentinel-password SECRET` of the sentinels into "
                        : "put `user NAME` and `password SECRET` of a user of the server into ";
    const platform::Setting file = store::configured_credentials(database);
    const bool is_one = server.whole.servers.size() == 1;
    std::set<int32_t> same;
    for (const int32_t other : server.databases) {
        if (is_same_user(database, other)) {
            same.insert(other);
        }
    }
    const std::string where =
        file.value.empty() || is_used_elsewhere(server, file.name)
            ? "a file that only its owner may read, and set " + server.own_credential_settings() + " to it"
            : shell_word(file.value) + " (" + setting_names(same, store::configured_credentials) + ')';
    return lines + where +
           (is_of_sentinels
                ? ""
                : "; `cgctl acl" + (is_one ? std::string() : " --database " + std::to_string(database)) +
                      "` prints the users that there should be");
}

} // namespace

Finding check_settings(Examination &examination)
{
    const std::string problem = store::configuration_problem(databases());
    if (!problem.empty()) {
        return {Severity::fail, problem,
                "correct it in the environment or in /etc/app_cg/platform.conf; app_cg(8) lists the forms"};
    }
    examination.patience =
        std::min<std::chrono::milliseconds>(store::configured_deadline(), longest_patience);
    std::string places;
    for (const ExaminedServer &server : examination.servers) {
        places += (places.empty() ? "" : ", ") + server.endpoint +
                  (examination.servers.size() == 1 ? "" : " (" + databases_text(server.databases) + ')');
    }
    return {Severity::ok, "the store is configured at " + places};
}

Finding check_store(ExaminedServer &server)
{
    for (const int32_t database : server.databases) {
        const std::string problem = login_problem(server, database);
        if (problem.empty()) {
            continue;
        }
        for (const char *word : {"NOAUTH", "WRONGPASS", "NOPERM"}) {
            if (problem.find(word) != std::string::npos) {
                return {Severity::fail, problem, credentials_fix(server, database, problem)};
            }
        }
        return {Severity::fail, problem,
                (server.is_group() ? "start the group's servers and sentinels (`systemctl start redis-server "
                                     "redis-sentinel` on each of their devices), or set "
                                   : "start the store server (`systemctl start redis-server`), or set ") +
                    server.endpoint_settings() + " to where it is"};
    }
    server.is_usable = true;
    return {Severity::ok, "it answers"};
}

Finding check_server(ExaminedServer &server)
{
    const store::Inspected reply = server.ask({"INFO"});
    if (reply.is_error()) {
        return refused(reply, "see the server's log");
    }
    server.info = '\n' + reply.text;
    const std::string version = server.info_line("redis_version");
    const std::string valkey = server.info_line("valkey_version");
    const std::string name = valkey.empty() ? "Redis " + version : "Valkey " + valkey;
    if (store::major_version(version) < store::least_version) {
        return {Severity::fail, version.empty() ? "it does not say that it is Redis" : "it is " + name,
                "run Redis 7 or newer, or Valkey, there"};
    }
    if (server.info_line("loading") == "1") {
        return {Severity::fail, name + " is still reading its data",
                "wait until it has (`" + server.redis_cli("INFO persistence") +
                    "` says loading:0), then examine again"};
    }
    return {Severity::ok, name};
}

Finding check_server_role(ExaminedServer &server)
{
    const std::string role = server.info_line("role");
    if (role == "slave") {
        const std::string master = server.info_line("master_host") + ':' + server.info_line("master_port");
        return {Severity::fail, "it is a replica, which accepts no writes; its master is " + master,
                "set " + server.endpoint_settings() + " to tcp:" + master};
    }
    if (role != "master") {
        return {Severity::skipped, "the server does not say what it is"};
    }
    return {Severity::ok, "it is a master"};
}

Finding check_databases(ExaminedServer &server)
{
    for (const int32_t database : server.databases) {
        const store::Inspection &connection = server.connection(database);
        if (!connection.is_open()) {
            return {Severity::fail, connection.problem(),
                    "put `databases 64` into the server's configuration file and restart the server"};
        }
    }
    return {Severity::ok, "those of the records are there"};
}

Finding check_eviction(ExaminedServer &server)
{
    Finding finding;
    const auto policy = server_setting(server, "maxmemory-policy", finding);
    if (!policy) {
        return finding;
    }
    if (*policy != "noeviction") {
        return {Severity::fail, "maxmemory-policy is " + *policy + ": a full server deletes records",
                set_it(server, "maxmemory-policy", "noeviction")};
    }
    return {Severity::ok, "a full server refuses writes and deletes nothing"};
}

Finding check_persistence(ExaminedServer &server)
{
    Finding finding;
    const auto save = server_setting(server, "save", finding);
    const auto append = save ? server_setting(server, "appendonly", finding) : std::nullopt;
    if (!append) {
        return finding;
    }
    if (save->empty() && *append != "yes") {
        return {Severity::warn, "neither save nor appendonly is set: a restarted server is empty",
                set_it(server, "save", "3600 1 300 100 60 10000")};
    }
    return {Severity::ok, *append == "yes" ? "each change goes to the server's disk"
                                           : "the server saves its data now and then (save " + *save + ')'};
}

Finding check_buffers(ExaminedServer &server)
{
    Finding finding;
    const auto text = server_setting(server, "client-output-buffer-limit", finding);
    if (!text) {
        return finding;
    }
    const auto limits = pubsub_limits(*text);
    if (!limits) {
        return {Severity::skipped, "the server reports no limit for subscribers"};
    }
    const bool is_small = (limits->hard != 0 && limits->hard < least_hard_limit) ||
                          (limits->soft != 0 && limits->soft < least_soft_limit);
    if (is_small) {
        return {Severity::warn,
                "subscribers are cut off at " + std::to_string(limits->hard) + " bytes, or some time at " +
                    std::to_string(limits->soft) + ": every burst of changes costs a reconnection",
                set_it(server, "client-output-buffer-limit", "pubsub 33554432 8388608 60")};
    }
    return {Severity::ok, "subscribers may lag"};
}

} // namespace cg
