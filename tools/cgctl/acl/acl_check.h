// Holds a running server's users against who should be there and what each may and may not do.
//
// By trial and not by comparing rules: rules that read differently may permit the same, and what counts is
// what the server does. It is asked with ACL DRYRUN, which carries nothing out.
#ifndef ACL_ACL_CHECK_H
#define ACL_ACL_CHECK_H

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "acl/acl_users.h"
#include "store/inspect/inspection.h"

namespace cg
{

struct AclFinding {
    std::string user;
    std::string problem;
};

// A connection to the server as a user who may ask it about its users.
class AclInspector
{
public:
    // Throws Failure when the server cannot be reached or does not let the configured user ask.
    explicit AclInspector(std::chrono::milliseconds limit);

    // What is wrong with these users, the default user among them. `digests`: of the passwords by user,
    // where they are known.
    std::vector<AclFinding> check(const std::vector<AclUser> &users,
                                  const std::map<std::string, std::string> &digests);

    // The file that the server keeps its users in; empty when it has none, or does not say.
    std::string users_file();

private:
    using Command = std::vector<std::string>;

    store::Inspected ask(const Command &command);
    std::vector<std::string> known_users();
    void check_user(const AclUser &user, const std::map<std::string, std::string> &digests,
                    std::vector<AclFinding> &findings);
    void check_stranger(const std::string &name, std::vector<AclFinding> &findings);
    void check_default(std::vector<AclFinding> &findings);
    std::string permitted_of(const std::string &user, const std::vector<Command> &commands);
    bool is_permitted(const std::string &user, const Command &command, std::string &answer);

    std::chrono::milliseconds limit_;
    store::Inspection server_;
};

} // namespace cg

#endif
