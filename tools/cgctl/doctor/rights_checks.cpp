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
#include "records/record_types.h"
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

// Where the files of credentials are: beside the one in use, or where the manual puts them.
std::string secrets_folder()
{
    const std::string own = platform::setting("VX_MOM_AUTH_FILE", "");
    const std::size_t slash = own.rfind('/');
    return slash == std::string::npos || slash == 0 ? "/etc/app_cg/secrets" : own.substr(0, slash);
}

// How the server gets the users that it should have; by way of another file, since an empty list, which is
// what a command that fails leaves, is one user who may do everything.
std::string list_of_users(Examination &examination)
{
    const std::string known = examination.ask({"CONFIG", "GET", "aclfile"}).value_of("aclfile").text;
    const std::string file = known.empty() ? "/etc/redis/users.acl" : known;
    const std::string folder = examination.module_folder == default_module_folder
                                   ? ""
                                   : "--modules " + shell_word(examination.module_folder) + ' ';
    const std::string secrets = shell_word(secrets_folder());
    const std::string print = "`install -d -m 0711 " + secrets + "`, `cgctl acl " + folder + "--secrets " +
                              secrets + " --create > " + shell_word(file + ".new") + "`, `test -s " +
                              shell_word(file + ".new") + " && cp " + shell_word(file + ".new") + ' ' +
                              shell_word(file) + "`, then ";
    return known.empty()
               ? print + "`aclfile " + file + "` in the server's configuration file, and restart the server"
               : print + '`' + examination.redis_cli("ACL LOAD") + '`';
}

Finding without_users(const Examination &examination)
{
    return {Severity::skipped, examination.has_users ? "no access list: the only user may do everything"
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

Finding check_users(Examination &examination)
{
    const store::Inspected reply = examination.ask({"ACL", "LIST"});
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
    examination.has_users = has_module_users || !everybody.is_all_powerful;
    if (everybody.is_all_powerful) {
        return {Severity::warn,
                (everybody.is_open ? std::string("anyone who reaches the store")
                                   : std::string("anyone who knows the store's one password")) +
                    " may do everything",
                list_of_users(examination) +
                    "; VX_MOM_AUTH_FILE of the daemon, of each module and of this command names its file "
                    "there, which the "
                    "account that runs it has to be able to read (`chown`), before the server is restarted"};
    }
    return {Severity::ok, "access lists are in use"};
}

Finding check_rights(Examination &examination)
{
    if (!examination.has_users.value_or(false)) {
        return without_users(examination);
    }
    const std::vector<std::string> names = asked_of(examination.modules);
    const std::set<std::string> modules(names.begin(), names.end()); // duplicates have one user
    const std::vector<CheckedServer> servers = check_servers(
        card_database, examination.patience, acl_users({modules.begin(), modules.end()}, databases()), {});
    const std::vector<AclFinding> &problems = servers.front().findings;
    if (problems.empty()) {
        return {Severity::ok,
                "each user has the rights that it needs, and none of the others that were tried"};
    }
    std::vector<std::string> texts;
    std::transform(problems.begin(), problems.end(), std::back_inserter(texts),
                   [](const AclFinding &problem) { return problem.user + ' ' + problem.problem; });
    return {Severity::fail, listed(texts), list_of_users(examination)};
}

Finding check_module_clients(Examination &examination)
{
    if (!examination.has_users.value_or(false)) {
        return without_users(examination);
    }
    std::set<std::string> users;
    for (const ClientLine &client : examination.clients()) {
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
