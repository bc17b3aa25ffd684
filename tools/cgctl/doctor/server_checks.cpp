// The doctor's checks of the store server: reachable, of the right kind, and set so that it loses nothing.
#include "doctor/server_checks.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "base/text.h"
#include "records/databases.h"
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
std::optional<std::string> server_setting(Examination &examination, const char *name, Finding &finding)
{
    const store::Inspected reply = examination.ask({"CONFIG", "GET", name});
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

std::string set_it(Examination &examination, const std::string &setting, const std::string &value)
{
    return '`' + examination.redis_cli("CONFIG SET " + setting + ' ' + shell_word(value)) + "`, and `" +
           setting + ' ' + value + "` in the server's configuration file";
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
    return {Severity::ok, "the store is configured at " + store::configured_endpoint(card_database).value};
}

Finding check_store(Examination &examination)
{
    const store::Inspection &server = examination.server();
    if (server.is_open()) {
        return {Severity::ok, "it answers"};
    }
    const std::string &problem = server.problem();
    for (const char *word : {"NOAUTH", "WRONGPASS", "NOPERM"}) {
        if (problem.find(word) != std::string::npos) {
            return {Severity::fail, problem,
                    "put `user NAME` and `password SECRET` of a user of the server into the file that "
                    "VX_MOM_AUTH_FILE names; `cgctl acl` prints the users that there should be"};
        }
    }
    return {Severity::fail, problem,
            "start the store server (`systemctl start redis-server`), or set VX_MOM_ENDPOINT to where it is"};
}

Finding check_server(Examination &examination)
{
    const store::Inspected reply = examination.ask({"INFO"});
    if (reply.is_error()) {
        return refused(reply, "see the server's log");
    }
    examination.info = '\n' + reply.text;
    const std::string version = examination.server_info("redis_version");
    const std::string valkey = examination.server_info("valkey_version");
    const std::string name = valkey.empty() ? "Redis " + version : "Valkey " + valkey;
    if (store::major_version(version) < store::least_version) {
        return {Severity::fail, version.empty() ? "it does not say that it is Redis" : "it is " + name,
                "run Redis 7 or newer, or Valkey, there"};
    }
    if (examination.server_info("loading") == "1") {
        return {Severity::fail, name + " is still reading its data",
                "wait until it has (`" + examination.redis_cli("INFO persistence") +
                    "` says loading:0), then examine again"};
    }
    return {Severity::ok, name};
}

Finding check_server_role(Examination &examination)
{
    const std::string role = examination.server_info("role");
    if (role == "slave") {
        const std::string master =
            examination.server_info("master_host") + ':' + examination.server_info("master_port");
        return {Severity::fail, "it is a replica, which accepts no writes; its master is " + master,
                "set VX_MOM_ENDPOINT=tcp:" + master};
    }
    if (role != "master") {
        return {Severity::skipped, "the server does not say what it is"};
    }
    return {Severity::ok, "it is a master"};
}

Finding check_databases(Examination &examination)
{
    for (const int32_t database : databases()) {
        const store::Inspection &server = examination.server(database);
        if (!server.is_open()) {
            return {Severity::fail, server.problem(),
                    "put `databases 64` into the server's configuration file and restart the server"};
        }
    }
    return {Severity::ok, "those of the records are there"};
}

Finding check_eviction(Examination &examination)
{
    Finding finding;
    const auto policy = server_setting(examination, "maxmemory-policy", finding);
    if (!policy) {
        return finding;
    }
    if (*policy != "noeviction") {
        return {Severity::fail, "maxmemory-policy is " + *policy + ": a full server deletes records",
                set_it(examination, "maxmemory-policy", "noeviction")};
    }
    return {Severity::ok, "a full server refuses writes and deletes nothing"};
}

Finding check_persistence(Examination &examination)
{
    Finding finding;
    const auto save = server_setting(examination, "save", finding);
    const auto append = save ? server_setting(examination, "appendonly", finding) : std::nullopt;
    if (!append) {
        return finding;
    }
    if (save->empty() && *append != "yes") {
        return {Severity::warn, "neither save nor appendonly is set: a restarted server is empty",
                set_it(examination, "save", "3600 1 300 100 60 10000")};
    }
    return {Severity::ok, *append == "yes" ? "each change goes to the server's disk"
                                           : "the server saves its data now and then (save " + *save + ')'};
}

Finding check_buffers(Examination &examination)
{
    Finding finding;
    const auto text = server_setting(examination, "client-output-buffer-limit", finding);
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
                set_it(examination, "client-output-buffer-limit", "pubsub 33554432 8388608 60")};
    }
    return {Severity::ok, "subscribers may lag"};
}

} // namespace cg
