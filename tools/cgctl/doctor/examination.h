// One examination by the doctor: what its checks share.
//
// A check is a function from what is known so far to a finding: of the installation, or of one server of the
// store. The checks run in one order, so that what an earlier one opened or read (a connection, the folder of
// modules) serves the later ones; a class for each check was rejected, since none has a state of its own.
#ifndef DOCTOR_EXAMINATION_H
#define DOCTOR_EXAMINATION_H

#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "access/store.h"
#include "command_line/session.h"
#include "doctor/finding.h"
#include "modules/module_folder.h"
#include "store/connection/configuration.h"
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

class Examination;

// One server of the store, or one group of servers, and what its checks learnt.
class ExaminedServer
{
public:
    // `examination` outlives it.
    ExaminedServer(Examination &examination, store::ConfiguredServer configured);

    Examination &whole;
    const std::string endpoint; // as configured
    const std::set<int32_t> databases;

    bool is_usable = false;        // it lets this command in
    std::string info;              // its INFO
    std::optional<bool> has_users; // whether access lists are in use, if it said

    [[nodiscard]] int32_t first_database() const { return *databases.begin(); }
    // "database 1, unix:/run/store.sock"; empty where there is only one server.
    [[nodiscard]] std::string label() const;
    // Whether it is a group, which has sentinels.
    [[nodiscard]] bool is_group() const;
    // The settings that say where it is, "VX_MOM_ENDPOINT_28 and VX_MOM_ENDPOINT_33".
    [[nodiscard]] std::string endpoint_settings() const;
    // Those for files of credentials that are for this server alone.
    [[nodiscard]] std::string own_credential_settings() const;

    // A plain connection; opened at the first use, as the user of the database. Database 0 always exists, and
    // is used as the user of the first database here.
    store::Inspection &connection(int32_t database = 0);
    // What the server answers. Throws Failure when the connection is lost.
    store::Inspected ask(const std::vector<std::string> &command, int32_t database = 0);
    // The value of a line of `info`, or an empty text.
    [[nodiscard]] std::string info_line(const std::string &name) const;
    // The clients that are connected. Throws Failure when the server refuses to say.
    std::vector<ClientLine> clients();

    // For fixes: how the command has to be called here.
    std::string redis_cli(const std::string &arguments, int32_t database = 0);

private:
    // The database whose settings hold for one.
    [[nodiscard]] int32_t of_settings(int32_t database) const
    {
        return database == 0 ? first_database() : database;
    }
    std::string address(int32_t database);

    std::map<int32_t, store::Inspection> connections_;
};

// One examination.
class Examination
{
public:
    Examination(const Session &session, std::string module_folder);
    Examination(const Examination &) = delete;
    Examination &operator=(const Examination &) = delete;

    const Session &session;
    const std::string module_folder;       // its path
    std::chrono::milliseconds patience{0}; // for one answer, of the store or of the daemon

    ModuleFolder modules;                                   // as far as it was read
    std::optional<std::vector<std::string>> daemon_modules; // those that the daemon registered, if it said

    // The servers of the store, first the one that has database 1.
    std::list<ExaminedServer> servers;
    [[nodiscard]] ExaminedServer &host() { return servers.front(); }
    // The server that has a database.
    ExaminedServer &server_of(int32_t database);

    // The store as the verbs use it. Opening it registers the server's run, where the user may: so it is for
    // checks that come after the one of the registration.
    Store &store();

    // For fixes: how the command has to be called here.
    [[nodiscard]] std::string cgctl(const std::string &arguments) const;

private:
    std::optional<Store> store_;
};

} // namespace cg

#endif
