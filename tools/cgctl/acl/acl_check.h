// Holds a running server's users against who should be there and what each may and may not do.
//
// By trial and not by comparing rules: rules that read differently may permit the same, and what counts is
// what the server does. It is asked with ACL DRYRUN, which carries nothing out.
#ifndef ACL_ACL_CHECK_H
#define ACL_ACL_CHECK_H

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "acl/acl_users.h"

namespace cg
{

struct AclFinding {
    std::string user; // empty: the server itself could not be asked
    std::string problem;
};

// One server and what is wrong with its users, the default user among them.
struct CheckedServer {
    std::string endpoint;
    std::string users_file; // that it keeps its users in; empty when it has none, or does not say
    std::vector<AclFinding> findings;
};

// Checks the users of the server that has a database; of a group each server, since a group does not share
// its users. Asks as the user who is configured for the database. `digests`: of the passwords by user, where
// they are known. Waits up to the limit for each answer. A replica that cannot be asked is a finding; throws
// Failure when the server, or the group's master, cannot be reached or does not let the user ask.
std::vector<CheckedServer> check_servers(int32_t database, std::chrono::milliseconds limit,
                                         const std::vector<AclUser> &users,
                                         const std::map<std::string, std::string> &digests);

} // namespace cg

#endif
