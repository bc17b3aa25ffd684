// One examination by the doctor: what its checks share.
//
// A check is a function from what is known so far to a finding. The checks run in one order, so that what an
// earlier one opened or read (a connection, the folder of modules) serves the later ones; a class for each
// check was rejected, since none has a state of its own.
#ifndef DOCTOR_EXAMINATION_H
#define DOCTOR_EXAMINATION_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "access/store.h"
#include "command_line/session.h"
#include "doctor/finding.h"
#include "modules/module_folder.h"
#include "store/inspect/inspection.h"

namespace cg
{

inline constexpr const char *daemon_name = "app_cg";

// A client of the server, as the server lists it.
struct ClientLine {
    std::string name;
    std::string user;
    int64_t db = 0;
    int64_t channels = 0;
    int64_t patterns = 0;
};

// One examination.
class Examination
{
public:
    Examination(const Session &session, std::string module_folder);

    const Session &session;
    const std::string module_folder;       // its path
    std::chrono::milliseconds patience{0}; // for one answer, of the store or of the daemon

    std::string info;                                       // the server's INFO
    ModuleFolder modules;                                   // as far as it was read
    std::optional<std::vector<std::string>> daemon_modules; // those that the daemon registered, if it said
    std::optional<bool> has_users; // whether access lists are in use, if the server said

    // A plain connection to the server; opened at the first use. Database 0 always exists.
    store::Inspection &server(int32_t database = 0);
    // What the server answers. Throws Failure when the connection is lost.
    store::Inspected ask(const std::vector<std::string> &command, int32_t database = 0);
    // The value of a line of `info`, or an empty text.
    [[nodiscard]] std::string server_info(const std::string &name) const;
    // The clients that are connected. Throws Failure when the server refuses to say.
    std::vector<ClientLine> clients();
    // The store as the verbs use it. Opening it registers the server's run, where the user may: so it is for
    // checks that come after the one of the registration.
    Store &store();

    // For fixes: how the commands have to be called here.
    [[nodiscard]] std::string cgctl(const std::string &arguments) const;
    std::string redis_cli(const std::string &arguments, int32_t database = 0);

private:
    std::string address(int32_t database);

    std::map<int32_t, store::Inspection> servers_;
    std::optional<Store> store_;
};

} // namespace cg

#endif
