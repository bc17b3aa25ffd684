// A store with users that is in use.
#ifndef CGCTL_USED_STORE_H
#define CGCTL_USED_STORE_H

#include <string>
#include <vector>

#include "unit/tools/cgctl/acl/acl_fixture.h"

namespace cg
{

// A card was asked about, answered by the modules m1 and m2, and passed; and the site has functions of its
// own.
class UsedStore : public AclTest
{
protected:
    // Starts the server and fills it.
    void start_used();
    [[nodiscard]] Listener listen() const;
    // Carries out commands as a user, on one connection.
    [[nodiscard]] std::vector<std::string> replies(const std::string &user, int database,
                                                   const std::vector<Command> &steps) const;
};

} // namespace cg

#endif
