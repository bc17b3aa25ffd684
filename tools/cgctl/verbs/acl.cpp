// cgctl acl: the store server's users. Prints the list that the server should have, or checks the one that it
// has.
#include <algorithm>
#include <cstdlib>

#include "acl/acl_check.h"
#include "acl/acl_users.h"
#include "acl/secrets.h"
#include "base/failure.h"
#include "base/json.h"
#include "base/text.h"
#include "command_line/verbs.h"
#include "modules/module_folder.h"
#include "records/record_types.h"
#include "store/connection/configuration.h"

namespace cg
{

namespace
{

struct AclOptions {
    std::string modules = default_module_folder;
    std::string secrets;
    bool create = false;
    bool check = false;
    std::optional<int32_t> database;
};

// The names that the daemon reads from the folder, each once.
std::vector<std::string> module_names(const Session &session, const std::string &path)
{
    const ModuleFolder folder = read_module_folder(path);
    if (!folder.readable) {
        throw Failure(failed, "the folder of the modules " + in_quotes(path) + ": " + folder.problem +
                                  "; --modules FOLDER names another one, an empty one if there are none");
    }
    std::vector<std::string> names;
    for (std::size_t i = 0; i < folder.entries.size(); i++) {
        const ModuleEntry &entry = folder.entries[i];
        if (i >= most_modules) {
            session.notice("module " + in_quotes(entry.file_name) +
                           " gets no user: the daemon registers only " + std::to_string(most_modules) +
                           " entries of the folder");
        } else if (std::find(names.begin(), names.end(), entry.name) != names.end()) {
            session.notice("module " + in_quotes(entry.file_name) + " shares a user with another one: " +
                           "to the daemon both are called " + in_quotes(entry.name));
        } else {
            names.push_back(entry.name);
        }
    }
    return names;
}

using Digests = std::map<std::string, std::string>;

// The digests of the passwords by user; none without a folder of them.
Digests read_digests(const Session &session, const AclOptions &options, const std::vector<AclUser> &users)
{
    Digests digests;
    if (options.secrets.empty()) {
        return digests;
    }
    for (const AclUser &user : users) {
        if (user.role == AclRole::nobody) {
            continue;
        }
        if (options.create && create_secret(options.secrets, user.name)) {
            session.notice("made " + visible(secret_path(options.secrets, user.name)));
        }
        digests[user.name] = secret_digest(options.secrets, user.name);
    }
    return digests;
}

Json user_to_json(const AclUser &user, bool is_on, const std::string &line)
{
    if (!is_utf8(line)) { // a name that was cut within a character
        throw Failure(failed, "the user " + in_quotes(user.name) +
                                  " has bytes in its name that JSON cannot " +
                                  "hold; the list without --json has them");
    }
    return {{"user", visible(user.name)},
            {"role", role_name(user.role)},
            {"module", user.role == AclRole::module ? Json(visible(user.module)) : Json(nullptr)},
            {"on", is_on},
            {"line", visible(line)}};
}

// Where the database of --database is, or everywhere.
std::vector<store::ConfiguredServer> chosen_servers(const AclOptions &options)
{
    std::vector<store::ConfiguredServer> servers = store::configured_servers(databases());
    std::erase_if(servers, [&](const store::ConfiguredServer &server) {
        return options.database && !server.databases.contains(*options.database);
    });
    return servers;
}

// The only one that is chosen: each server has a list, and passwords, of its own.
store::ConfiguredServer chosen_server(const AclOptions &options)
{
    const std::vector<store::ConfiguredServer> servers = chosen_servers(options);
    if (servers.size() == 1) {
        return servers.front();
    }
    std::string choice;
    for (const store::ConfiguredServer &server : servers) {
        choice += (choice.empty() ? "" : " or ") +
                  ("--database " + std::to_string(*server.databases.begin())) + " (" +
                  visible(server.endpoint) + ')';
    }
    throw Failure(wrong_usage, "the databases are on " + std::to_string(servers.size()) +
                                   " servers, each with users and passwords of its own: give " + choice);
}

int print_users(const Session &session, const AclOptions &options)
{
    const std::vector<AclUser> users =
        acl_users(module_names(session, options.modules), chosen_server(options).databases);
    const Digests digests = read_digests(session, options, users);
    if (digests.empty()) {
        session.notice("without --secrets FOLDER no passwords are known, so every user is switched off; "
                       "`cgctl acl --secrets FOLDER --create` makes them");
    }
    Json shown = Json::array();
    for (const AclUser &user : users) {
        const auto digest = digests.find(user.name);
        const bool is_on = digest != digests.end();
        const std::string line = acl_line(user, is_on ? std::optional(digest->second) : std::nullopt);
        if (session.json) {
            shown.push_back(user_to_json(user, is_on, line));
        } else {
            session.line(line);
        }
    }
    if (session.json) {
        session.line(dump(Json{{"users", shown}}));
    }
    return done;
}

// What to do, whatever was found: the list as it should be, in the server's place for it. By way of another
// file: a command that fails must not leave an empty list, which is one user who may do everything.
std::string fix(const AclOptions &options, const store::ConfiguredServer &server,
                const std::string &users_file)
{
    const std::string database = server.databases == databases()
                                     ? std::string()
                                     : " --database " + std::to_string(*server.databases.begin());
    const std::string modules = options.modules == default_module_folder
                                    ? std::string()
                                    : " --modules " + shell_word(options.modules);
    const std::string secrets = options.secrets.empty() ? std::string("FOLDER") : shell_word(options.secrets);
    const std::string print =
        "cgctl acl" + database + modules + " --secrets " + secrets + " --create > users.acl && cp users.acl ";
    const std::string others = " (with users of your own added again)";
    if (users_file.empty()) {
        return "`" + print + "/etc/redis/users.acl`" + others + ", `aclfile /etc/redis/users.acl` in the " +
               "server's configuration, and a restart of the server";
    }
    return "`" + print + shell_word(users_file) + "`" + others + ", and `ACL LOAD` on the server";
}

// The servers of one endpoint, checked; one that does not answer is a finding when it is one of several.
std::vector<CheckedServer> check_one(const Session &session, const AclOptions &options,
                                     const std::vector<std::string> &modules,
                                     const store::ConfiguredServer &server, bool is_only)
{
    const std::vector<AclUser> users = acl_users(modules, server.databases);
    const Digests digests = read_digests(session, options, users);
    try {
        return check_servers(*server.databases.begin(), store::configured_deadline(), users, digests);
    } catch (const Failure &failure) {
        if (is_only) {
            throw;
        }
        return {{server.endpoint, "", {{"", std::string("its users cannot be checked: ") + failure.what()}}}};
    }
}

// One finding for people: with the server where there are several.
std::string finding_line(const std::string &endpoint, const AclFinding &finding, bool is_only)
{
    const std::string at = is_only ? std::string() : " at " + endpoint;
    return visible(finding.user.empty() ? "the server" + at : finding.user + at) + ": " + finding.problem;
}

int check_users(const Session &session, const AclOptions &options)
{
    if (const std::string problem = store::configuration_problem(databases()); !problem.empty()) {
        throw Failure(wrong_usage, visible(problem));
    }
    const std::vector<store::ConfiguredServer> servers =
        options.secrets.empty() ? chosen_servers(options) : std::vector{chosen_server(options)};
    const std::vector<std::string> modules = module_names(session, options.modules);
    Json shown = Json::array();
    for (const store::ConfiguredServer &server : servers) {
        const std::vector<CheckedServer> checked =
            check_one(session, options, modules, server, servers.size() == 1);
        const bool is_only = servers.size() == 1 && checked.size() == 1;
        for (const CheckedServer &one : checked) {
            for (const AclFinding &finding : one.findings) {
                const std::string what_to_do =
                    finding.user.empty() ? "start it, or correct the settings of the store, and check again"
                                         : fix(options, server, one.users_file);
                if (!session.json) {
                    session.line(finding_line(one.endpoint, finding, is_only) + "; " + visible(what_to_do));
                }
                shown.push_back({{"server", visible(one.endpoint)},
                                 {"user", finding.user.empty() ? Json(nullptr) : Json(visible(finding.user))},
                                 {"problem", finding.problem},
                                 {"fix", visible(what_to_do)}});
            }
        }
    }
    if (session.json) {
        session.line(dump(Json{{"version", 2}, {"ok", shown.empty()}, {"findings", shown}}));
    }
    return shown.empty() ? done : failed;
}

int run_acl(const Session &session, const AclOptions &options)
{
    if (options.create && (options.secrets.empty() || options.check)) {
        throw Failure(wrong_usage, "--create makes what is missing in the folder of --secrets, which must be "
                                   "given, and does not go with --check");
    }
    return options.check ? check_users(session, options) : print_users(session, options);
}

} // namespace

void add_acl(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(
        app, session, "acl", "Print the store server's users, or check those it has",
        "  cgctl acl --secrets /etc/app_cg/secrets --create > users.acl && cp users.acl /etc/redis/\n"
        "  cgctl acl --check\n"
        "  cgctl acl --database 28 --secrets /etc/app_cg/secrets/group --create > group.acl");
    auto options = std::make_shared<AclOptions>();
    verb->add_option("--modules", options->modules,
                     std::string("The folder that names the check modules (default ") +
                         default_module_folder + ')')
        ->type_name("FOLDER");
    verb->add_option("--secrets", options->secrets,
                     "The folder with a file of credentials for each user, named like the user")
        ->type_name("FOLDER");
    verb->add_flag("--create", options->create, "Make the missing files, with passwords drawn at random");
    verb->add_option("--database", options->database,
                     "Only the server that has this database, for all that it has")
        ->check(CLI::IsMember(databases()))
        ->type_name("N");
    verb->add_flag("--check", options->check,
                   "Try on the running server what each user must and must not be able to do");
    set_action(*verb, session, options, run_acl);
}

} // namespace cg
