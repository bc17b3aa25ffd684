// What each user of the store server must be able to do, and what must be refused: commands to try.
#ifndef CGCTL_ACL_ATTEMPTS_H
#define CGCTL_ACL_ATTEMPTS_H

#include <string>
#include <vector>

#include "acl_users.h"

namespace cgctl
{

using AclAttempts = std::vector<std::vector<std::string>>;

AclAttempts permitted_attempts(const AclUser &user);
AclAttempts refused_attempts(const AclUser &user);

} // namespace cgctl

#endif
