// cgctl doctor: what is wrong with an installation, and how to fix it.
//
// The checks stand in the order in which one rests on another; one that cannot be right because an earlier
// one is not is skipped, so that a fault is reported once, where it is.
#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <utility>
#include <variant>

#include "base/failure.h"
#include "command_line/verbs.h"
#include "doctor/card_checks.h"
#include "doctor/client_checks.h"
#include "doctor/daemon_checks.h"
#include "doctor/group_checks.h"
#include "doctor/module_checks.h"
#include "doctor/rights_checks.h"
#include "doctor/server_checks.h"
#include "forms/forms.h"
#include "store/functions.h"

namespace cg
{

namespace
{

// A check of the installation, or one that is made of each server of the store.
using OfInstallation = Finding (*)(Examination &examination);
using OfServer = Finding (*)(ExaminedServer &server);

struct Check {
    const char *name; // for programs: stable
    std::variant<OfInstallation, OfServer> run;
    // Earlier ones: of the same server, or of the installation. What the installation needs of a server is of
    // the one that has database 1.
    std::vector<const char *> needs;
    bool is_of_groups = false; // made of a server only if it is a group
};

const std::vector<Check> &checks()
{
    static const std::vector<Check> table{
        {"settings", check_settings, {}},
        {"store", check_store, {"settings"}},
        {"server", check_server, {"store"}},
        {"server-role", check_server_role, {"server"}},
        {"group", check_group, {"server"}, true},
        {"databases", check_databases, {"server"}},
        {"eviction", check_eviction, {"server"}},
        {"persistence", check_persistence, {"server"}},
        {"buffers", check_buffers, {"server"}},
        {"functions", check_functions, {"server"}},
        {"data-set", check_data_set, {"server-role", "databases"}},
        {"notifications", check_notifications, {"server-role", "databases", "functions"}},
        {"module-folder", check_module_folder, {}},
        {"module-count", check_module_count, {"module-folder"}},
        {"module-names", check_module_names, {"module-folder"}},
        {"module-duplicates", check_duplicates, {"module-folder"}},
        {"users", check_users, {"server"}},
        {"rights", check_rights, {"users", "module-folder"}},
        {"module-clients", check_module_clients, {"users", "module-folder"}},
        {"daemon", check_daemon, {"settings"}},
        {"daemon-connections", check_daemon_connections, {"server", "daemon"}},
        {"daemon-modules", check_daemon_modules, {"daemon", "module-folder"}},
        {"module-registry", check_registry, {}},
        {"open-checks", check_open_checks, {"databases"}},
        // From here on the records are read as every verb does it.
        {"role", check_role, {"data-set", "functions"}},
        {"records", check_records, {"data-set", "functions"}},
        {"cards", check_cards, {"data-set", "functions", "daemon-connections"}},
        {"acknowledgements",
         check_acknowledgements,
         {"data-set", "functions", "daemon-connections", "module-folder"}},
    };
    return table;
}

Finding run(const Check &check, Examination &examination, ExaminedServer &server)
{
    try {
        const auto *of_server = std::get_if<OfServer>(&check.run);
        return of_server != nullptr ? (*of_server)(server) : std::get<OfInstallation>(check.run)(examination);
    } catch (const std::exception &error) {
        const std::string what = error.what();
        if (what.find("NOPERM") != std::string::npos) {
            return {Severity::skipped, what, as_administrator};
        }
        return {Severity::fail, what,
                examination.cgctl("doctor") + " again; if the fault stays, see the store server's log"};
    }
}

// A check that was made: its name, and of which server; null for the installation.
using Made = std::pair<std::string, const ExaminedServer *>;
// The checks on which nothing can rest, each with the one that failed.
using Unusable = std::map<Made, Made>;

// What a check fails to rest on, if anything: which check failed.
std::optional<Made> missing_need(const Check &check, const ExaminedServer &server, const Unusable &unusable)
{
    for (const char *need : check.needs) {
        for (const ExaminedServer *of : {&server, static_cast<const ExaminedServer *>(nullptr)}) {
            if (const auto found = unusable.find({need, of}); found != unusable.end()) {
                return found->second;
            }
        }
    }
    return std::nullopt;
}

// Runs one check, unless what it needs is not there. `server` is the host's for one of the installation.
Finding examine(const Check &check, Examination &examination, ExaminedServer &server, Unusable &unusable)
{
    const bool is_of_server = std::holds_alternative<OfServer>(check.run);
    const Made made{check.name, is_of_server ? &server : nullptr};
    Finding finding;
    if (const auto cause = missing_need(check, server, unusable)) {
        unusable[made] = *cause;
        const bool is_elsewhere = cause->second != nullptr && !is_of_server && !server.label().empty();
        finding = {Severity::skipped, "not examined because of: " + cause->first +
                                          (is_elsewhere ? " (" + cause->second->label() + ')' : "")};
    } else {
        finding = run(check, examination, server);
        if (finding.severity == Severity::fail || finding.is_missing) {
            unusable[made] = made;
        }
    }
    finding.check = check.name;
    if (is_of_server && examination.servers.size() > 1) {
        finding.server = server.endpoint;
        finding.databases = server.databases;
    }
    return finding;
}

int examine_all(const Session &session, const std::string &module_folder)
{
    Examination examination(session, module_folder);
    const Page page{session};
    const Form &form = form_of(session);
    Unusable unusable;
    std::vector<Finding> findings;
    for (const Check &check : checks()) {
        for (ExaminedServer &server : examination.servers) {
            const bool is_due = std::holds_alternative<OfServer>(check.run)
                                    ? !check.is_of_groups || server.is_group()
                                    : &server == &examination.host();
            if (is_due) {
                findings.push_back(examine(check, examination, server, unusable));
                form.finding(page, findings.back());
            }
        }
    }
    form.findings(page, findings);
    return std::all_of(findings.begin(), findings.end(), [](const Finding &one) { return one.is_well(); })
               ? done
               : failed;
}

int print_functions(const Session &session)
{
    session.out << store::library_code();
    session.check_output();
    return done;
}

} // namespace

void add_doctor(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "doctor",
                              "Report what is wrong with the installation, and how to fix it.\n"
                              "Exit status 0 only when nothing is.",
                              "  cgctl doctor\n"
                              "  cgctl doctor --json | jq -r '.[] | select(.fix != \"\").fix'\n"
                              "  cgctl doctor --functions | redis-cli -x FUNCTION LOAD REPLACE");
    auto folder = std::make_shared<std::string>(default_module_folder);
    auto functions = std::make_shared<bool>(false);
    verb->add_option("--modules", *folder, "The folder that names the check modules")->type_name("FOLDER");
    verb->add_flag("--functions", *functions,
                   "Only print the functions that the store client has the server run");
    verb->callback([folder, functions, &session] {
        session.action = [folder, functions, &session] {
            return *functions ? print_functions(session) : examine_all(session, *folder);
        };
    });
}

} // namespace cg
