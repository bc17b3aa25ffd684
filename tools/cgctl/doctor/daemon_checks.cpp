// The doctor's checks of the daemon: there, listening, and of the same opinion as the folder and the store.
#include "doctor/daemon_checks.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "base/failure.h"
#include "base/text.h"
#include "daemon/daemon_view.h"
#include "history/reader.h"
#include "p_dev.pb-c.h"
#include "records/databases.h"
#include "records/record_text.h"
#include "records/record_types.h"
#include "shell/client.h"
#include "store/codec/names.h"

namespace cg
{

namespace
{

constexpr const char *restart = "`systemctl restart app_cg`";
// A command runs on the daemon's loop: it waits until a store call that blocks the loop has given up.
constexpr std::chrono::seconds beyond_a_store_call{1};

Finding no_answer(const ssat::Error &error)
{
    switch (error.failure()) {
    case ssat::Failure::nobody_there:
        return {Severity::fail, std::string("no daemon: ") + error.what(),
                "`systemctl start app_cg`; if it runs, set SSAT_SOCKET to the socket of its debug shell"};
    case ssat::Failure::not_permitted:
        return {Severity::skipped, error.what(), "examine it as root or as the daemon's user"};
    case ssat::Failure::timed_out:
        return {Severity::fail, std::string("the daemon runs, but does not respond: ") + error.what(),
                restart};
    default:
        return {Severity::fail, error.what(), restart};
    }
}

// A server without which the daemon does not start, and which cannot be used; null when there is none.
const ExaminedServer *missed_at_start(Examination &examination)
{
    for (const int32_t database : {card_database, device_database}) {
        if (const ExaminedServer &server = examination.server_of(database); !server.is_usable) {
            return &server;
        }
    }
    return nullptr;
}

std::string module_list(const std::set<std::string> &names)
{
    std::vector<std::string> quoted;
    std::transform(names.begin(), names.end(), std::back_inserter(quoted), in_quotes);
    return quoted.empty() ? "none" : listed(quoted);
}

std::string same_endpoint(const std::set<int32_t> &databases)
{
    return "set the same " + setting_names(databases, store::configured_endpoint) +
           " for both (/etc/app_cg/platform.conf), then " + restart;
}

// The databases on other servers than the host's. A group's list of clients does not say whose they are, so
// the daemon's own word counts. It is the group's fault, and no other, while that does not answer.
Finding connections_elsewhere(Examination &examination)
{
    std::set<int32_t> missing;
    for (ExaminedServer &server : examination.servers) {
        for (const int32_t database : server.databases) {
            if (&server != &examination.host() && server.is_usable) {
                const std::string field = "away_" + std::to_string(database);
                const store::Inspected away =
                    examination.host().ask({"HGET", store::health_key, field}, card_database);
                if (away.is_error()) {
                    return refused(away, "see the server's log");
                }
                if (away.text == "1") {
                    missing.insert(database);
                }
            }
        }
    }
    if (missing.empty()) {
        return {Severity::ok, "connected to each database, and listening"};
    }
    return {Severity::fail,
            "the daemon does not reach " + databases_text(missing) + " at " +
                examination.server_of(*missing.begin()).endpoint + ", which answers here",
            "see in its log why (`journalctl -u app_cg`); its file of credentials (" +
                setting_names(missing, store::configured_credentials) + ") has to be that of its user there"};
}

} // namespace

Finding check_role(Examination &examination)
{
    const PDev__DpLibGrole key = P_DEV__DP_LIB_GROLE__INIT;
    std::optional<store::Record> record;
    try {
        record = examination.store().read(home_of(*key.base.descriptor), key.base);
    } catch (const Failure &failure) {
        return {Severity::fail, failure.what(),
                examination.cgctl("del dp_lib_grole") + ", then " + examination.cgctl("role master")};
    }
    if (!record) {
        return {Severity::fail, "no role was written: the daemon publishes nothing in databases 28 and 33",
                examination.cgctl("role master")};
    }
    const auto role = reinterpret_cast<const PDev__DpLibGrole &>(*record->message).my_grole;
    if (role == P_DEV__DM_ROLE_E__DM_ROLE_MASTER) {
        return {Severity::ok, "master"};
    }
    return {Severity::ok, enum_text(p_dev__dm_role_e__descriptor, static_cast<int32_t>(role)) +
                              ": not the master, so the results in databases 28 and 33 are another device's"};
}

Finding check_daemon(Examination &examination)
{
    const std::string socket =
        examination.session.socket.empty() ? ssat::socket_path(daemon_name) : examination.session.socket;
    const auto patience = examination.patience + beyond_a_store_call;
    try {
        const ssat::Reply reply = ssat::run(socket, daemon_name, "dump_check_module", {}, patience);
        if (reply.output_at.empty() && !reply.truncated) {
            examination.daemon_modules = modules_in(reply.output);
        }
    } catch (const ssat::Error &error) {
        if (const ExaminedServer *server = missed_at_start(examination);
            server != nullptr && error.failure() == ssat::Failure::nobody_there) {
            Finding finding{Severity::skipped, "no daemon: it does not start while the store at " +
                                                   server->endpoint + " cannot be used"};
            finding.is_missing = true;
            return finding;
        }
        return no_answer(error);
    }
    return {Severity::ok, "it answers at " + socket};
}

Finding check_daemon_connections(Examination &examination)
{
    ExaminedServer &host = examination.host();
    std::set<int32_t> connected;
    int64_t channels = 0;
    int64_t patterns = 0;
    for (const ClientLine &client : host.clients()) {
        if (client.name == daemon_name) {
            connected.insert(static_cast<int32_t>(client.db));
            channels += client.db == card_database ? client.channels : 0;
            patterns += client.db == card_database ? client.patterns : 0;
        }
    }
    for (const int32_t database : databases()) {
        const ExaminedServer &server = examination.server_of(database);
        const std::string number = std::to_string(database);
        if (&server != &host && connected.contains(database)) {
            return {Severity::fail,
                    "the daemon uses database " + number + " of the store at " + host.endpoint +
                        ", this command that at " + server.endpoint,
                    same_endpoint({database})};
        }
    }
    std::set<int32_t> missing;
    std::set_difference(host.databases.begin(), host.databases.end(), connected.begin(), connected.end(),
                        std::inserter(missing, missing.end()));
    if (!missing.empty()) {
        return {Severity::fail,
                "the daemon is not connected to " + databases_text(missing) + " of this store",
                same_endpoint(missing)};
    }
    // The role's own channel, the cards' pattern, and the answers' once there are modules.
    const bool expects_answers = examination.daemon_modules && !examination.daemon_modules->empty();
    if (channels < 1 || patterns < (expects_answers ? 2 : 1)) {
        return {Severity::fail, "the daemon is connected, but has not subscribed to all that it acts on",
                restart};
    }
    return connections_elsewhere(examination);
}

Finding check_daemon_modules(Examination &examination)
{
    if (!examination.daemon_modules) {
        return {Severity::skipped, "the daemon's output has gone to its collect file since \"collect\""};
    }
    const std::vector<std::string> &names = *examination.daemon_modules;
    const std::set<std::string> known(names.begin(), names.end());
    const std::vector<std::string> in_folder = asked_of(examination.modules);
    const std::set<std::string> wanted(in_folder.begin(), in_folder.end());
    if (known != wanted) {
        return {Severity::warn,
                "the daemon asks " + module_list(known) + ", the folder names " + module_list(wanted) +
                    "; it reads the folder only when it connects",
                restart};
    }
    return {Severity::ok, "the daemon asks those of the folder"};
}

// The daemon takes a folder that it cannot open for one without modules, whatever the cause, and logs no
// error: so does a process without descriptors.
Finding check_registry(Examination &examination)
{
    const std::vector<std::string> in_folder = asked_of(examination.modules);
    const std::vector<std::string> registered = examination.daemon_modules.value_or(in_folder);
    if (!registered.empty()) {
        return {Severity::ok, std::to_string(registered.size()) + " registered"};
    }
    std::vector<std::string> before;
    try {
        before = history::Reader(history::path_or_default("")).registered_before();
    } catch (const history::Error &error) {
        return {Severity::skipped,
                std::string("no module is registered; whether one ever was is not known: ") + error.what()};
    }
    if (before.empty()) {
        return {Severity::ok, "no module is registered, and none ever was"};
    }
    std::string missing;
    for (const std::string &name : before) {
        if (std::find(in_folder.begin(), in_folder.end(), name) == in_folder.end()) {
            missing += ' ' + shell_word(examination.module_folder + '/' + name);
        }
    }
    const std::string folder = shell_word(examination.module_folder);
    return {Severity::fail,
            "no module is registered, and every card is admitted without a check; before: " +
                module_list({before.begin(), before.end()}),
            (missing.empty()
                 ? ""
                 : "if they are still wanted, `mkdir -p " + folder + " && touch" + missing + "`; ") +
                restart};
}

} // namespace cg
