// A whole installation, small: a server with users, the functions and a registered run, one check module's
// connection, and a process that stands for the daemon. The doctor finds nothing wrong with it; each test
// breaks one thing.
//
// The process only has what the doctor looks at: the daemon's name, connections, subscriptions and shell. The
// real daemon is examined by the system tests.
#ifndef CGCTL_DOCTOR_FIXTURE_H
#define CGCTL_DOCTOR_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store/inspect/inspection.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

// What the doctor says of one check.
struct Told {
    std::string state;
    std::string found;
    std::string fix;
};

struct Diagnosis {
    int status = -1;
    // Names of the checks; of one of several servers with its lowest database, "store 28".
    std::vector<std::string> order;
    std::map<std::string, Told> checks;

    // Names and findings of those that are neither ok nor skipped with nothing to do; empty when all is well.
    [[nodiscard]] std::string complaints() const;
};

// What the process that stands for the daemon has, to leave something out.
struct DaemonParts {
    std::vector<int32_t> databases{1, 28, 33};
    std::vector<std::string> subscriptions{"p_dev.dp_lib_grole", "p_dev.card_info",
                                           "p_libpub.app_cg_card_check_ack"};
};

class DoctorTest : public testing::Test
{
protected:
    DoctorTest();
    ~DoctorTest() override;

    // Starts all of it, with the check module m1; on request with databases 28 and 33 on a server of their
    // own, which has other passwords.
    void start_installation(bool is_apart = false);

    void start_server(const std::vector<std::string> &arguments = {});
    void start_stack_server();
    void start_daemon(const DaemonParts &parts = {});
    void connect_module(const std::string &name);

    // Carries out a command on the server that has a database, as the configured user, and returns what it
    // says.
    store::Inspected ask(int database, const std::vector<std::string> &command) const;
    // All keys of a database.
    std::vector<std::string> keys(int database) const;

    Diagnosis examine() const;
    Told examine(const std::string &check) const;
    // Expects that the check complains with this state, that what it found says `words`, and that it is
    // well after the first `commands` commands of its fix.
    void expect_fixed(const std::string &check, const std::string &state, const std::string &words,
                      std::size_t commands = 1) const;
    // Carries out the commands in backticks of a fix; those of cgctl in this process.
    void carry_out(const std::string &fix, std::size_t commands) const;

    [[nodiscard]] std::string stack_endpoint() const { return "unix:" + folder_.path("stack"); }
    [[nodiscard]] std::string modules() const { return folder_.path("modules"); }
    void add_module(const std::string &name) const;

    Folder folder_;
    std::unique_ptr<Child> server_;
    std::unique_ptr<Child> stack_server_;
    std::unique_ptr<Child> daemon_;
    std::map<std::string, store::Inspection> module_clients_;

private:
    [[nodiscard]] std::unique_ptr<Child> start_redis(const std::string &socket,
                                                     const std::vector<std::string> &arguments) const;
};

} // namespace cg

#endif
