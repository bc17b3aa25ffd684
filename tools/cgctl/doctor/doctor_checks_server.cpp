// The doctor's look at the store server: reachable, of the right kind, and set so that it loses nothing.
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <sstream>

#include "base/text.h"
#include "doctor/doctor_checks.h"
#include "store/connection/configuration.h"

namespace cg
{

namespace
{

constexpr int least_version = 7; // the first with functions
constexpr std::chrono::seconds longest_patience{10};

// What Redis has unless told otherwise. The daemon takes every change of every card from this buffer, while
// it may be kept waiting by a call for some seconds.
constexpr int64_t least_hard_limit = 33554432;
constexpr int64_t least_soft_limit = 8388608;

int major_version(const std::string &version)
{
    int major = 0;
    (void)std::from_chars(version.data(), version.data() + version.size(), major);
    return major;
}

// The value of a setting of the server; nothing, and `finding` says why, when it does not tell.
std::optional<std::string> server_setting(Examination &examination, const char *name, Finding &finding)
{
    const vx_mom::Inspected reply = examination.ask({"CONFIG", "GET", name});
    if (reply.is_error()) {
        finding = refused(reply, "look into the server's log");
        return std::nullopt;
    }
    if (reply.items.size() != 2) {
        finding = {State::skipped, std::string("the server has no setting ") + name};
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

Finding look_at_settings(Examination &examination)
{
    const std::string problem = vx_mom::configuration_problem();
    if (!problem.empty()) {
        return {State::fail, problem,
                "set it right in the environment or in /etc/app_cg/platform.conf; app_cg(8) lists the forms"};
    }
    std::string ignored;
    examination.patience =
        std::min<std::chrono::milliseconds>(vx_mom::configured_deadline(), longest_patience);
    return {State::ok, "the store is to be at " + vx_mom::configured_place(ignored)->endpoint.text};
}

Finding look_for_store(Examination &examination)
{
    const vx_mom::Inspection &server = examination.server();
    if (server.is_open()) {
        return {State::ok, "it answers"};
    }
    const std::string &problem = server.problem();
    for (const char *word : {"NOAUTH", "WRONGPASS", "NOPERM"}) {
        if (problem.find(word) != std::string::npos) {
            return {
                State::fail, problem,
                "put `user NAME` and `password SECRET` of a user whom the server knows into the file that "
                "VX_MOM_AUTH_FILE names; `cgctl acl` prints the users that there should be"};
        }
    }
    return {State::fail, problem,
            "start the store server (`systemctl start redis-server`), or set VX_MOM_ENDPOINT to where it is"};
}

Finding look_at_server(Examination &examination)
{
    const vx_mom::Inspected reply = examination.ask({"INFO"});
    if (reply.is_error()) {
        return refused(reply, "look into the server's log");
    }
    examination.info = '\n' + reply.text;
    const std::string version = examination.told("redis_version");
    const std::string valkey = examination.told("valkey_version");
    const std::string name = valkey.empty() ? "Redis " + version : "Valkey " + valkey;
    if (major_version(version) < least_version) {
        return {State::fail, version.empty() ? "it does not say that it is Redis" : "it is " + name,
                "let Redis 7 or newer, or Valkey, serve there"};
    }
    if (examination.told("loading") == "1") {
        return {State::fail, name + " is still reading its data",
                "wait until it has (`" + examination.redis_cli("INFO persistence") +
                    "` says loading:0), then examine again"};
    }
    return {State::ok, name};
}

Finding look_at_server_role(Examination &examination)
{
    const std::string role = examination.told("role");
    if (role == "slave") {
        const std::string master = examination.told("master_host") + ':' + examination.told("master_port");
        return {State::fail, "it is a replica and takes no writes; its master is " + master,
                "set VX_MOM_ENDPOINT=tcp:" + master};
    }
    if (role != "master") {
        return {State::skipped, "the server does not say what it is"};
    }
    return {State::ok, "it is a master"};
}

Finding look_at_databases(Examination &examination)
{
    for (const int32_t database : daemon_databases) {
        const vx_mom::Inspection &server = examination.server(database);
        if (!server.is_open()) {
            return {State::fail, server.problem(),
                    "put `databases 64` into the server's configuration file and restart the server"};
        }
    }
    return {State::ok, "1, 28 and 33 are there"};
}

Finding look_at_eviction(Examination &examination)
{
    Finding finding;
    const auto policy = server_setting(examination, "maxmemory-policy", finding);
    if (!policy) {
        return finding;
    }
    if (*policy != "noeviction") {
        return {State::fail, "maxmemory-policy is " + *policy + ": a full server deletes records",
                set_it(examination, "maxmemory-policy", "noeviction")};
    }
    return {State::ok, "a full server refuses writes and deletes nothing"};
}

Finding look_at_persistence(Examination &examination)
{
    Finding finding;
    const auto save = server_setting(examination, "save", finding);
    const auto append = save ? server_setting(examination, "appendonly", finding) : std::nullopt;
    if (!append) {
        return finding;
    }
    if (save->empty() && *append != "yes") {
        return {State::warn, "neither save nor appendonly is set: a restarted server is empty",
                set_it(examination, "save", "3600 1 300 100 60 10000")};
    }
    return {State::ok, *append == "yes" ? "each change goes to the server's disk"
                                        : "the server saves its data now and then (save " + *save + ')'};
}

Finding look_at_buffers(Examination &examination)
{
    Finding finding;
    const auto text = server_setting(examination, "client-output-buffer-limit", finding);
    if (!text) {
        return finding;
    }
    const auto limits = pubsub_limits(*text);
    if (!limits) {
        return {State::skipped, "the server tells no limit for subscribers"};
    }
    const bool is_small = (limits->hard != 0 && limits->hard < least_hard_limit) ||
                          (limits->soft != 0 && limits->soft < least_soft_limit);
    if (is_small) {
        return {State::warn,
                "subscribers are cut off at " + std::to_string(limits->hard) + " bytes, or some time at " +
                    std::to_string(limits->soft) + ": every burst of changes costs a reconnection",
                set_it(examination, "client-output-buffer-limit", "pubsub 33554432 8388608 60")};
    }
    return {State::ok, "subscribers may lag behind"};
}

} // namespace cg
