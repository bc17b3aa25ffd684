// The check of a running server's users; see the header.
#include "acl/acl_check.h"

#include <algorithm>
#include <utility>

#include "acl/acl_attempts.h"
#include "base/failure.h"
#include "base/text.h"
#include "records/databases.h"
#include "store/connection/configuration.h"
#include "store/inspect/group.h"
#include "store/inspect/inspection.h"

namespace cg
{

namespace
{

using store::Inspected;

// A connection to a server as a user who may ask it about its users. Its functions throw Failure when the
// server does not answer, or does not let the user ask.
class AclInspector
{
public:
    // `setting`: the name of the one that has the user's credentials.
    AclInspector(const store::StorePlace &place, std::chrono::milliseconds limit, std::string setting);

    std::vector<AclFinding> check(const std::vector<AclUser> &users,
                                  const std::map<std::string, std::string> &digests);
    // Empty when it has none, or does not say.
    std::string users_file();

private:
    using Command = std::vector<std::string>;

    Inspected ask(const Command &command);
    std::vector<std::string> known_users();
    void check_user(const AclUser &user, const std::map<std::string, std::string> &digests,
                    std::vector<AclFinding> &findings);
    void check_stranger(const std::string &name, bool has_modules, std::vector<AclFinding> &findings);
    void check_default(std::vector<AclFinding> &findings);
    std::string permitted_of(const std::string &user, const std::vector<Command> &commands);
    bool is_permitted(const std::string &user, const Command &command, std::string &answer);

    std::chrono::milliseconds limit_;
    std::string setting_;
    store::Inspection server_;
};

bool has(const Inspected &user, const std::string &list, const std::string &text)
{
    const std::vector<Inspected> &texts = user.value_of(list).items;
    return std::any_of(texts.begin(), texts.end(), [&](const Inspected &item) { return item.text == text; });
}

std::string quoted(const std::vector<std::string> &command)
{
    std::string text;
    for (const std::string &argument : command) {
        const bool is_plain = !argument.empty() && argument.find_first_of(" \"'\\") == std::string::npos;
        text += (text.empty() ? "" : " ") + (is_plain ? visible(argument) : in_quotes(argument));
    }
    return text;
}

// What is wrong with how a user logs in; nothing when all is well.
std::vector<std::string> login_problems(const Inspected &user, const std::string &digest)
{
    std::vector<std::string> problems;
    if (!has(user, "flags", "on")) {
        problems.emplace_back("is switched off");
    }
    if (has(user, "flags", "nopass")) {
        problems.emplace_back("needs no password");
    } else if (user.value_of("passwords").items.empty()) {
        problems.emplace_back("has no password, so nobody can log in");
    } else if (!digest.empty() && !has(user, "passwords", digest)) {
        problems.emplace_back("has another password than its file of credentials");
    }
    return problems;
}

AclInspector::AclInspector(const store::StorePlace &place, std::chrono::milliseconds limit,
                           std::string setting)
    : limit_(limit), setting_(std::move(setting)), server_(place, 0, limit)
{
    if (!server_.is_open()) {
        throw Failure(failed, visible(server_.problem()));
    }
}

Inspected AclInspector::ask(const Command &command)
{
    std::optional<Inspected> answer = server_.ask(command, limit_);
    if (!answer) {
        throw Failure(failed, visible(server_.problem()));
    }
    if (answer->is_error() && answer->text.starts_with("NOPERM")) {
        throw Failure(failed, "the store server does not report its users: " + visible(answer->text) +
                                  "; ask as an administrator: set " + setting_ +
                                  " to the file of app_cg-admin's credentials");
    }
    return std::move(*answer);
}

std::vector<std::string> AclInspector::known_users()
{
    const Inspected users = ask({"ACL", "USERS"});
    if (users.kind != Inspected::Kind::list) {
        throw Failure(failed, "the store server does not list its users: " + visible(users.text));
    }
    std::vector<std::string> names;
    for (const Inspected &user : users.items) {
        names.push_back(user.text);
    }
    return names;
}

// Also where the server does not know the command: what cannot be carried out is not permitted.
bool AclInspector::is_permitted(const std::string &user, const Command &command, std::string &answer)
{
    Command trial{"ACL", "DRYRUN", user};
    trial.insert(trial.end(), command.begin(), command.end());
    const Inspected result = ask(trial);
    answer = visible(result.text);
    return !result.is_error() && result.text == "OK";
}

void AclInspector::check_user(const AclUser &user, const std::map<std::string, std::string> &digests,
                              std::vector<AclFinding> &findings)
{
    const auto digest = digests.find(user.name);
    for (const std::string &problem : login_problems(
             ask({"ACL", "GETUSER", user.name}), digest == digests.end() ? std::string() : digest->second)) {
        findings.push_back({user.name, problem});
    }
    std::string answer;
    for (const Command &command : permitted_attempts(user)) {
        if (!is_permitted(user.name, command, answer)) {
            findings.push_back({user.name, "must be permitted " + quoted(command) + ", but: " + answer});
        }
    }
    for (const Command &command : refused_attempts(user)) {
        if (is_permitted(user.name, command, answer)) {
            findings.push_back({user.name, "must be refused " + quoted(command) + ", but is permitted it"});
        }
    }
}

// The first of these commands that the user may carry out, and how many more; empty when there is none.
std::string AclInspector::permitted_of(const std::string &user, const std::vector<Command> &commands)
{
    std::string text;
    std::size_t count = 0;
    std::string answer;
    for (const Command &command : commands) {
        if (is_permitted(user, command, answer) && ++count == 1) {
            text = quoted(command);
        }
    }
    return count > 1 ? text + " and " + std::to_string(count - 1) + " more" : text;
}

// One finding for all: a server whose default user was left as it is permits everything.
void AclInspector::check_default(std::vector<AclFinding> &findings)
{
    if (!has(ask({"ACL", "GETUSER", default_user}), "flags", "on")) {
        return;
    }
    const AclUser nobody{default_user, AclRole::nobody, "", {}};
    if (const std::string text = permitted_of(default_user, refused_attempts(nobody)); !text.empty()) {
        findings.push_back(
            {default_user, "is switched on, and permitted " + text + " of what must be refused"});
    }
}

std::vector<AclFinding> AclInspector::check(const std::vector<AclUser> &users,
                                            const std::map<std::string, std::string> &digests)
{
    std::vector<AclFinding> findings;
    const std::vector<std::string> known = known_users();
    const bool has_modules = users.front().databases.contains(card_database);
    for (const AclUser &user : users) {
        if (user.role == AclRole::nobody) {
            check_default(findings);
        } else if (std::find(known.begin(), known.end(), user.name) == known.end()) {
            findings.push_back({user.name, "does not exist"});
        } else {
            check_user(user, digests, findings);
        }
    }
    for (const std::string &name : known) {
        const bool is_expected =
            std::any_of(users.begin(), users.end(), [&](const AclUser &user) { return user.name == name; });
        if (!is_expected) {
            check_stranger(name, has_modules, findings);
        }
    }
    return findings;
}

// A device has users of its own, and what else they may do is its affair. But nobody may come in without a
// password, and nobody else decides on cards.
void AclInspector::check_stranger(const std::string &name, bool has_modules,
                                  std::vector<AclFinding> &findings)
{
    if (name.starts_with(module_user_prefix)) {
        findings.push_back(
            {name, has_modules ? "exists, but no module of the folder has this name"
                               : "exists, but modules have no business on a server without database 1"});
        return;
    }
    const Inspected user = ask({"ACL", "GETUSER", name});
    if (!has(user, "flags", "on")) {
        return;
    }
    if (has(user, "flags", "nopass")) {
        findings.push_back({name, "is not in this list, is switched on, and needs no password"});
    }
    if (const std::string text = permitted_of(name, deciding_attempts()); !text.empty()) {
        findings.push_back({name, "is not in this list, and may decide on cards: it is permitted " + text +
                                      "; give it no right to the keys and channels of p_libpub.app_cg_*"});
    }
}

std::string AclInspector::users_file()
{
    return ask({"CONFIG", "GET", "aclfile"}).value_of("aclfile").text;
}

} // namespace

std::vector<CheckedServer> check_servers(int32_t database, std::chrono::milliseconds limit,
                                         const std::vector<AclUser> &users,
                                         const std::map<std::string, std::string> &digests)
{
    std::string why;
    const auto place = store::configured_place(database, why);
    const auto servers = place ? store::servers_at(*place, limit, why) : std::nullopt;
    if (!servers) {
        throw Failure(failed, visible(why));
    }
    std::vector<CheckedServer> checked;
    for (const store::Endpoint &server : *servers) {
        checked.push_back({server.text, "", {}});
        try {
            AclInspector inspector({server, place->credentials}, limit,
                                   store::configured_credentials(database).name);
            checked.back().findings = inspector.check(users, digests);
            checked.back().users_file = inspector.users_file();
        } catch (const Failure &failure) {
            if (checked.size() == 1) {
                throw;
            }
            checked.back().findings = {{"", std::string("its users cannot be checked: ") + failure.what()}};
        }
    }
    return checked;
}

} // namespace cg
