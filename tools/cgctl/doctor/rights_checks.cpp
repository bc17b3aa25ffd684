// The doctor's checks of who may do what.
#include "doctor/rights_checks.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "acl/acl_check.h"
#include "acl/acl_users.h"
#include "base/text.h"
#include "base/times.h"
#include "loop/settings.h"
#include "records/databases.h"
#include "store/codec/names.h"

namespace cg
{

namespace
{

// A line of the server's list of users: "user NAME on nopass ~* &* +@all".
struct UserLine {
    std::string name;
    bool is_all_powerful = false;
    bool is_open = false; // nobody needs a password to be this user
};

UserLine user_line(const std::string &line)
{
    const std::string padded = line + ' ';
    const auto has = [&](const char *word) { return padded.find(word) != std::string::npos; };
    const std::size_t begin = line.find(' ') + 1;
    return {line.substr(begin, line.find(' ', begin) - begin), has(" on ") && has(" ~* ") && has(" +@all "),
            has(" nopass ")};
}

// Where the files of credentials of a server's users are: beside the one in use, or where the manual puts
// them. Those of another server than the host's need a folder of their own.
std::string secrets_folder(const ExaminedServer &server)
{
    const platform::Setting own = store::configured_credentials(server.first_database());
    const std::size_t slash = own.value.rfind('/');
    const std::string folder =
        slash == std::string::npos || slash == 0 ? "/etc/app_cg/secrets" : own.value.substr(0, slash);
    const bool is_of_the_host = server.databases.contains(card_database);
    const bool has_file = own.name != store::configured_credentials(card_database).name;
    return is_of_the_host || has_file ? folder : folder + "/group";
}

// How the server gets the users that it should have; by way of another file, since an empty list, which is
// what a command that fails leaves, is one user who may do everything.
std::string list_of_users(ExaminedServer &server)
{
    const std::string known = server.ask({"CONFIG", "GET", "aclfile"}).value_of("aclfile").text;
    const std::string file = known.empty() ? "/etc/redis/users.acl" : known;
    const std::string folder = server.whole.module_folder == default_module_folder
                                   ? ""
                                   : "--modules " + shell_word(server.whole.module_folder) + ' ';
    const std::string database =
        server.whole.servers.size() == 1 ? "" : "--database " + std::to_string(server.first_database()) + ' ';
    const std::string secrets = shell_word(secrets_folder(server));
    const std::string print = "`install -d -m 0711 " + secrets + "`, `cgctl acl " + database + folder +
                              "--secrets " + secrets + " --create > " + shell_word(file + ".new") +
                              "`, `test -s " + shell_word(file + ".new") + " && cp " +
                              shell_word(file + ".new") + ' ' + shell_word(file) + "`, then ";
    return known.empty()
               ? print + "`aclfile " + file + "` in the server's configuration file, and restart the server"
               : print + '`' + server.redis_cli("ACL LOAD") + '`';
}

Finding without_users(const ExaminedServer &server)
{
    return {Severity::skipped, server.has_users ? "no access list: the only user may do everything"
                                                : "the server does not report its users"};
}

// All of them: a user who starts one should not learn of the next only in the next examination.
Finding absent_modules(const Examination &examination, const std::vector<ModuleEntry> &absent)
{
    if (absent.empty()) {
        return {Severity::ok, "all are connected"};
    }
    std::set<std::string> names; // duplicates are one module, and two entries to remove
    std::set<std::string> users;
    std::string entries;
    for (const ModuleEntry &entry : absent) {
        names.insert(entry.name);
        users.insert(module_user_prefix + store::key_part(entry.name));
        entries += ' ' + shell_word(examination.module_folder + '/' + entry.file_name);
    }
    const bool is_one = names.size() == 1;
    return {Severity::warn,
            (is_one ? "the module " : "the modules ") + joined({names.begin(), names.end()}) +
                (is_one ? " is" : " are") + " not connected to the store: every card waits " +
                seconds_text(check_timeout) + " for " + (is_one ? "it" : "them") + " and is then admitted",
            std::string("start ") + (is_one ? "the module as the user " : "each module as its user, ") +
                joined({users.begin(), users.end()}) + ", or remove " +
                (absent.size() == 1 ? "its entry" : "the entries of those that are not wanted") + ": `rm -r" +
                entries + '`'};
}

} // namespace

Finding check_users(ExaminedServer &server)
{
    const store::Inspected reply = server.ask({"ACL", "LIST"});
    if (reply.is_error()) {
        return refused(reply, "see the server's log");
    }
    UserLine everybody;
    bool has_module_users = false;
    for (const store::Inspected &text : reply.items) {
        const UserLine user = user_line(text.text);
        has_module_users |= user.name.starts_with(module_user_prefix);
        if (user.name == default_user) {
            everybody = user;
        }
    }
    server.has_users = has_module_users || !everybody.is_all_powerful;
    if (everybody.is_all_powerful) {
        return {
            Severity::warn,
            (everybody.is_open ? std::string("anyone who reaches the store")
                               : std::string("anyone who knows the store's one password")) +
                " may do everything",
            list_of_users(server) + "; " + server.own_credential_settings() + " of the daemon" +
                (server.databases.contains(card_database) ? ", of each module" : "") +
                " and of this command names its file there, which the account that runs it has to be able "
                "to read (`chown`), before the server is restarted"};
    }
    return {Severity::ok, "access lists are in use"};
}

Finding check_rights(ExaminedServer &server)
{
    if (!server.has_users.value_or(false)) {
        return without_users(server);
    }
    const std::vector<std::string> names = asked_of(server.whole.modules);
    const std::set<std::string> modules(names.begin(), names.end()); // duplicates have one user
    const std::vector<CheckedServer> checked =
        check_servers(server.first_database(), server.whole.patience,
                      acl_users({modules.begin(), modules.end()}, server.databases), {});
    std::vector<std::string> texts;
    for (const CheckedServer &one : checked) {
        const std::string at = checked.size() == 1 ? "" : "at " + one.endpoint + ' ';
        for (const AclFinding &problem : one.findings) {
            if (!problem.user
                     .empty()) { // else the server does not answer, which the check of the group found
                texts.push_back(at + problem.user + ' ' + problem.problem);
            }
        }
    }
    if (texts.empty()) {
        return {Severity::ok,
                "each user has the rights that it needs, and none of the others that were tried"};
    }
    return {Severity::fail, listed(texts), list_of_users(server)};
}

Finding check_module_clients(Examination &examination)
{
    ExaminedServer &host = examination.host();
    if (!host.has_users.value_or(false)) {
        return without_users(host);
    }
    std::set<std::string> users;
    for (const ClientLine &client : host.clients()) {
        users.insert(client.user);
    }
    std::vector<ModuleEntry> absent;
    const std::vector<ModuleEntry> &entries = examination.modules.entries;
    std::copy_if(entries.begin(),
                 entries.begin() + static_cast<std::ptrdiff_t>(std::min(entries.size(), most_modules)),
                 std::back_inserter(absent), [&](const ModuleEntry &entry) {
                     return !users.contains(module_user_prefix + store::key_part(entry.name));
                 });
    return absent_modules(examination, absent);
}

} // namespace cg
