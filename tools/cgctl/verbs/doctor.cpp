// cgctl doctor: what is wrong with an installation, and what mends it.
//
// The checks stand in the order in which one rests on another; one that cannot be right because an earlier
// one is not is skipped, so that a fault is told once, where it is.
#include <exception>
#include <map>

#include "base/failure.h"
#include "base/text.h"
#include "command_line/verbs.h"
#include "doctor/doctor_checks.h"
#include "store/codec/names.h"

namespace cg
{

namespace
{

struct Check {
    const char *name; // for programs: stable
    Finding (*look)(Examination &examination);
    std::vector<const char *> needs; // earlier ones
};

const std::vector<Check> &checks()
{
    static const std::vector<Check> table{
        {"settings", look_at_settings, {}},
        {"store", look_for_store, {"settings"}},
        {"server", look_at_server, {"store"}},
        {"server-role", look_at_server_role, {"server"}},
        {"databases", look_at_databases, {"server"}},
        {"eviction", look_at_eviction, {"server"}},
        {"persistence", look_at_persistence, {"server"}},
        {"buffers", look_at_buffers, {"server"}},
        {"functions", look_at_functions, {"server"}},
        {"data-set", look_at_data_set, {"server-role", "databases"}},
        {"notifications", send_canaries, {"server-role", "databases", "functions"}},
        {"module-folder", look_at_module_folder, {}},
        {"module-count", look_at_module_count, {"module-folder"}},
        {"module-names", look_at_module_names, {"module-folder"}},
        {"module-twins", look_for_twins, {"module-folder"}},
        {"users", look_at_users, {"server"}},
        {"rights", look_at_rights, {"users", "module-folder"}},
        {"module-clients", look_for_modules, {"users", "module-folder"}},
        {"daemon", look_for_daemon, {"settings"}},
        {"daemon-connections", look_at_daemon_connections, {"server", "daemon"}},
        {"daemon-modules", look_at_daemon_modules, {"daemon", "module-folder"}},
        {"open-checks", look_at_open_checks, {"databases"}},
        // From here on the records are read as every verb does it.
        {"role", look_at_role, {"data-set", "functions"}},
        {"records", look_at_records, {"data-set", "functions"}},
        {"cards", look_at_cards, {"data-set", "functions", "daemon-connections"}},
        {"acknowledgements",
         look_at_acknowledgements,
         {"data-set", "functions", "daemon-connections", "module-folder"}},
    };
    return table;
}

const char *word_of(State state, bool for_people)
{
    switch (state) {
    case State::ok:
        return "ok";
    case State::warn:
        return for_people ? "WARN" : "warn";
    case State::fail:
        return for_people ? "FAIL" : "fail";
    default:
        return for_people ? "skip" : "skipped";
    }
}

Finding look(const Check &check, Examination &examination)
{
    try {
        return check.look(examination);
    } catch (const std::exception &error) {
        const std::string what = error.what();
        if (what.find("NOPERM") != std::string::npos) {
            return {State::skipped, what, as_administrator};
        }
        return {State::fail, what,
                examination.cgctl("doctor") + " once more; if it stays, look into the store server's log"};
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
            return {State::skipped, "not looked at, because of: " + cause};
        }
    }
    Finding finding = look(check, examination);
    if (finding.state == State::fail) {
        unusable[check.name] = check.name;
    }
    return finding;
}

void print(const Session &session, const Check &check, const Finding &finding)
{
    std::string line = word_of(finding.state, true);
    line.resize(6, ' ');
    line += check.name;
    line.resize(26, ' ');
    line += visible(finding.found);
    session.line(finding.mend.empty() ? line : line + "; mend: " + visible(finding.mend));
}

int examine_all(const Session &session, const std::string &module_folder)
{
    Examination examination(session, module_folder);
    Unusable unusable;
    Json findings = Json::array();
    bool is_well = true;
    for (const Check &check : checks()) {
        const Finding finding = examine(check, examination, unusable);
        is_well = is_well && finding.mend.empty() && finding.state != State::fail;
        if (session.json) {
            findings.push_back({{"name", check.name},
                                {"state", word_of(finding.state, false)},
                                {"found", visible(finding.found)},
                                {"mend", visible(finding.mend)}});
        } else {
            print(session, check, finding);
        }
    }
    if (session.json) {
        session.line(dump(findings));
    }
    return is_well ? done : failed;
}

int print_functions(const Session &session)
{
    session.out << vx_mom::library_code();
    session.check_output();
    return done;
}

} // namespace

void add_doctor(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "doctor",
                              "Say what is wrong with the installation, and what mends it.\n"
                              "Exit status 0 only when nothing is.",
                              "  cgctl doctor\n"
                              "  cgctl doctor --json | jq -r '.[] | select(.mend != \"\").mend'\n"
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
