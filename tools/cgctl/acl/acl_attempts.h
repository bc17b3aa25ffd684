// What each user of the store server must be able to do, and what must be refused: commands to try.
#ifndef ACL_ACL_ATTEMPTS_H
#define ACL_ACL_ATTEMPTS_H

#include <string>
#include <vector>

#include "acl/acl_users.h"

namespace cg
{

using AclAttempts = std::vector<std::vector<std::string>>;

AclAttempts permitted_attempts(const AclUser &user);
AclAttempts refused_attempts(const AclUser &user);
// What decides on cards: the requests, the answers and the results, which nobody writes but the daemon and
// the modules. Everything else may be a device's own affair, also the removal of a power-off request.
AclAttempts deciding_attempts();

} // namespace cg

#endif
