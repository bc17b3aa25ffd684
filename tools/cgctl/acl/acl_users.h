// The users of the store server and their rights.
//
// A user's rights are a list of selectors. The server lets a command pass when one selector alone permits the
// command, its keys and its channels; so what may be read, written, counted, indexed and published stands
// apart, and a right on one kind of key is of no use on another. One list of rights per user was rejected:
// a user who may count with INCR and remove records with DEL could then remove the counter.
#ifndef ACL_ACL_USERS_H
#define ACL_ACL_USERS_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace cg
{

struct AclSelector {
    std::vector<std::string> commands; // "+hset"
    std::vector<std::string> keys;     // "~pattern", or "%R~pattern" for reading alone
    std::vector<std::string> channels; // "&pattern"
};

enum class AclRole { daemon, module, watcher, administrator, nobody };

struct AclUser {
    std::string name;
    AclRole role = AclRole::nobody;
    std::string module; // the check module's name, as the daemon knows it
    std::vector<AclSelector> selectors;
    std::set<int32_t> databases{}; // those that the server has
};

inline constexpr const char *daemon_user = "app_cg";
inline constexpr const char *watcher_user = "app_cg-watch";
inline constexpr const char *administrator_user = "app_cg-admin";
inline constexpr const char *default_user = "default"; // of clients that did not log in
inline constexpr const char *module_user_prefix = "module-";

// Those of the record types that live in these databases.
std::vector<std::string> types_in(const std::set<int32_t> &databases, const std::vector<std::string> &types);

// Everybody who should be there on the server that has these databases: the daemon, one user per module in
// this order, watcher, administrator, and the default user. Modules work with database 1 alone, and have no
// users on a server without it.
std::vector<AclUser> acl_users(const std::vector<std::string> &modules, const std::set<int32_t> &databases);

// The user as a line of the server's file of users. Without a password's digest nobody can log in.
std::string acl_line(const AclUser &user, const std::optional<std::string> &password_sha256);

// "daemon", "module", "watcher", "administrator", "nobody".
const char *role_name(AclRole role);

} // namespace cg

#endif
