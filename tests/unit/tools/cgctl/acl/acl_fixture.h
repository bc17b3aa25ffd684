// A private store server that runs on the list of users that the command prints, and connections to it as
// each of them.
#ifndef CGCTL_ACL_FIXTURE_H
#define CGCTL_ACL_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "store/inspect/inspection.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

using Command = std::vector<std::string>;

// A reply as text: errors as "(error) ...", "(nil)", the elements of a list each followed by a line end.
std::string reply_text(const store::Inspected &reply);

class AclTest : public testing::Test
{
protected:
    // Makes the folders, prints the list for these modules and starts the server on it.
    void start(const std::vector<std::string> &modules);
    ~AclTest() override;

    void add_module(const std::string &name) const;
    // Prints the list into the file that the server keeps its users in.
    void print_list() const;
    // With further settings, if any.
    void start_server(const std::vector<std::string> &settings = {});
    void stop_server();

    [[nodiscard]] std::string modules() const { return folder_.path("modules"); }
    [[nodiscard]] std::string secrets() const { return folder_.path("secrets"); }
    [[nodiscard]] std::string users_file() const { return folder_.path("users.acl"); }

    // From now on the command is run as this user.
    void become(const std::string &user) const;
    [[nodiscard]] store::Inspection connect(const std::string &user, int database) const;
    // Carries out a command as a user and returns the reply as text.
    [[nodiscard]] std::string run_as(const std::string &user, int database, const Command &command) const;
    [[nodiscard]] std::string run_as_admin(int database, const Command &command) const;

    // All that the server holds, users, functions and settings included, to compare.
    [[nodiscard]] std::string state() const;

    Folder folder_;

private:
    std::unique_ptr<Child> server_;
};

// What is published on any channel, from its construction on.
class Listener
{
public:
    // `listening` and `talking` belong to somebody who may do that on all channels.
    Listener(store::Inspection listening, store::Inspection talking);

    // The channels and texts that came until now, "channel text" each.
    std::vector<std::string> heard();

private:
    store::Inspection listening_;
    store::Inspection talking_;
};

} // namespace cg

#endif
