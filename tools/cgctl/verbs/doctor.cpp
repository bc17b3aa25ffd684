// cgctl doctor: what is wrong with an installation, and how to fix it.
//
// The checks stand in the order in which one rests on another; one that cannot be right because an earlier
// one is not is skipped, so that a fault is reported once, where it is.
#include <algorithm>
#include <exception>
#include <map>

#include "base/failure.h"
#include "command_line/verbs.h"
#include "doctor/card_checks.h"
#include "doctor/client_checks.h"
#include "doctor/daemon_checks.h"
#include "doctor/module_checks.h"
#include "doctor/rights_checks.h"
#include "doctor/server_checks.h"
#include "forms/forms.h"
#include "store/functions.h"

namespace cg
{

namespace
{

struct Check {
    const char *name; // for programs: stable
    Finding (*run)(Examination &examination);
    std::vector<const char *> needs; // earlier ones
};

const std::vector<Check> &checks()
{
    static const std::vector<Check> table{
        {"settings", check_settings, {}},
        {"store", check_store, {"settings"}},
        {"server", check_server, {"store"}},
        {"server-role", check_server_role, {"server"}},
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

Finding run(const Check &check, Examination &examination)
{
    try {
        return check.run(examination);
    } catch (const std::exception &error) {
        const std::string what = error.what();
        if (what.find("NOPERM") != std::string::npos) {
            return {Severity::skipped, what, as_administrator};
        }
        return {Severity::fail, what,
                examination.cgctl("doctor") + " again; if the fault stays, see the store server's log"};
    }
}

// The checks on which nothing can rest, each with the one that failed.
using Unusable = std::map<std::string, std::string>;

// Runs one check, unless what it needs is not there.
Finding examine(const Check &check, Examination &examination, Unusable &unusable)
{
    for (const char *need : check.needs) {
        const auto found = unusable.find(need);
        if (found != unusable.end()) {
            const std::string cause = found->second;
            unusable[check.name] = cause;
            return {Severity::skipped, "not examined because of: " + cause};
        }
    }
    Finding finding = run(check, examination);
    if (finding.severity == Severity::fail) {
        unusable[check.name] = check.name;
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
        findings.push_back(examine(check, examination, unusable));
        findings.back().check = check.name;
        form.finding(page, findings.back());
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
