// What the doctor looks at: one function for each check, and what they share.
//
// A check is a function from what is known so far to a finding. The checks run in one order, so that what an
// earlier one opened or read (a connection, the folder of modules) serves the later ones; a class for each
// check was rejected, since none has a state of its own.
#ifndef DOCTOR_DOCTOR_CHECKS_H
#define DOCTOR_DOCTOR_CHECKS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "access/store.h"
#include "command_line/session.h"
#include "modules/module_folder.h"
#include "store/inspect/inspection.h"

namespace cg
{

enum class State { ok, warn, fail, skipped };

// What a check saw, and what has to be done about it: commands stand in backticks. All is well when nothing
// has to be done: a check that could not be made for want of rights asks for being made by somebody else.
struct Finding {
    State state = State::ok;
    std::string found;
    std::string mend{};
};

// The databases that the daemon works with.
inline constexpr int32_t daemon_databases[] = {1, 28, 33};
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
    std::optional<std::vector<std::string>> daemon_modules; // those that the daemon registered, when it told
    std::optional<bool> has_users; // whether access lists are in use, when the server told

    // A connection to the server for looking; opened at the first use. Database 0 always exists.
    vx_mom::Inspection &server(int32_t database = 0);
    // What the server answers. Throws Failure when the connection is lost.
    vx_mom::Inspected ask(const std::vector<std::string> &command, int32_t database = 0);
    // The value of a line of `info`, or an empty text.
    [[nodiscard]] std::string told(const std::string &name) const;
    // The clients that are connected. Throws Failure when the server refuses to say.
    std::vector<ClientLine> clients();
    // The store as the verbs use it. Opening it registers the server's run, where the user may: so it is for
    // checks that come after those that look for that.
    Store &store();
    // The modules' names as the daemon takes them, without the entries that it ignores.
    [[nodiscard]] std::vector<std::string> registered_modules() const;

    // For mends: how the commands have to be called here.
    [[nodiscard]] std::string cgctl(const std::string &arguments) const;
    std::string redis_cli(const std::string &arguments, int32_t database = 0);

private:
    std::string address();

    std::map<int32_t, vx_mom::Inspection> servers_;
    std::optional<Store> store_;
};

// What mends that something may not be looked at.
inline constexpr const char *as_administrator =
    "examine it as an administrator: VX_MOM_AUTH_FILE names the file with user and password";

// The finding that stands for an error of the server: not looked at when there is no right to, else a
// failure.
Finding refused(const vx_mom::Inspected &error, const std::string &mend);

// "a, b, c", or "a, b, c and 4 more" when there are more than a reader wants to see.
std::string listed(const std::vector<std::string> &texts);

// The server and its settings.
Finding look_at_settings(Examination &examination);
Finding look_for_store(Examination &examination);
Finding look_at_server(Examination &examination);
Finding look_at_server_role(Examination &examination);
Finding look_at_databases(Examination &examination);
Finding look_at_eviction(Examination &examination);
Finding look_at_persistence(Examination &examination);
Finding look_at_buffers(Examination &examination);

// What the store client keeps in the server.
Finding look_at_functions(Examination &examination);
Finding look_at_data_set(Examination &examination);
Finding send_canaries(Examination &examination);

// The check modules.
Finding look_at_module_folder(Examination &examination);
Finding look_at_module_count(Examination &examination);
Finding look_at_module_names(Examination &examination);
Finding look_for_twins(Examination &examination);

// Who may do what.
Finding look_at_users(Examination &examination);
Finding look_at_rights(Examination &examination);
Finding look_for_modules(Examination &examination);

// The daemon.
Finding look_at_role(Examination &examination);
Finding look_for_daemon(Examination &examination);
Finding look_at_daemon_connections(Examination &examination);
Finding look_at_daemon_modules(Examination &examination);

// Its work.
Finding look_at_open_checks(Examination &examination);
Finding look_at_records(Examination &examination);
Finding look_at_cards(Examination &examination);
Finding look_at_acknowledgements(Examination &examination);

} // namespace cg

#endif
