// One examination by the doctor; see the header.
#include "doctor/examination.h"

#include <algorithm>
#include <sstream>

#include "base/failure.h"
#include "base/text.h"
#include "records/record_types.h"

namespace cg
{

namespace
{

constexpr const char *credential_setting = "VX_MOM_AUTH_FILE";

// The value of "name=" in a line of the server's list of clients.
std::string field(const std::string &line, const std::string &name)
{
    const std::string wanted = ' ' + name + '=';
    const std::string whole = ' ' + line;
    const std::size_t at = whole.find(wanted);
    if (at == std::string::npos) {
        return {};
    }
    const std::size_t begin = at + wanted.size();
    return whole.substr(begin, whole.find(' ', begin) - begin);
}

int64_t number_field(const std::string &line, const std::string &name)
{
    return to_number(field(line, name), 0, INT64_MAX).value_or(0);
}

} // namespace

ExaminedServer::ExaminedServer(Examination &examination, store::ConfiguredServer configured)
    : whole(examination), endpoint(std::move(configured.endpoint)), databases(std::move(configured.databases))
{
}

std::string ExaminedServer::label() const
{
    return whole.servers.size() == 1 ? "" : databases_text(databases) + ", " + endpoint;
}

bool ExaminedServer::is_group() const
{
    std::string ignored;
    const auto place = store::configured_place(first_database(), ignored);
    return place && !place->endpoint.group.empty();
}

std::string ExaminedServer::endpoint_settings() const
{
    return setting_names(databases, store::configured_endpoint);
}

std::string ExaminedServer::own_credential_settings() const
{
    if (whole.servers.size() == 1) {
        return credential_setting;
    }
    return setting_names(databases, [](int32_t database) {
        return platform::Setting{std::string(credential_setting) + '_' + std::to_string(database), ""};
    });
}

store::Inspection &ExaminedServer::connection(int32_t database)
{
    auto found = connections_.find(database);
    if (found == connections_.end()) {
        std::string why; // the settings were examined before
        const auto place = store::configured_place(of_settings(database), why);
        found = connections_
                    .emplace(database,
                             store::Inspection(place.value_or(store::StorePlace{}), database, whole.patience))
                    .first;
    }
    return found->second;
}

store::Inspected ExaminedServer::ask(const std::vector<std::string> &command, int32_t database)
{
    auto reply = connection(database).ask(command, whole.patience);
    if (!reply) {
        throw Failure(failed, "the connection to the store was lost: " + connection(database).problem());
    }
    return std::move(*reply);
}

std::string ExaminedServer::info_line(const std::string &name) const
{
    const std::string wanted = '\n' + name + ':';
    const std::size_t at = info.find(wanted);
    if (at == std::string::npos) {
        return {};
    }
    const std::size_t begin = at + wanted.size();
    return info.substr(begin, info.find_first_of("\r\n", begin) - begin);
}

std::vector<ClientLine> ExaminedServer::clients()
{
    const store::Inspected reply = ask({"CLIENT", "LIST"});
    if (reply.is_error()) {
        throw Failure(failed, "the server does not list its clients: " + reply.text);
    }
    std::vector<ClientLine> found;
    std::istringstream lines(reply.text);
    for (std::string line; std::getline(lines, line);) {
        found.push_back({field(line, "name"), field(line, "user"), number_field(line, "db"),
                         number_field(line, "sub"), number_field(line, "psub")});
    }
    return found;
}

// Where redis-cli has to go. Of a group that is the server which answered, and it says where it is.
std::string ExaminedServer::address(int32_t database)
{
    std::string ignored;
    const auto place = store::configured_place(of_settings(database), ignored);
    if (!place) {
        return {};
    }
    std::string text;
    if (!place->endpoint.path.empty()) {
        text = " -s " + shell_word(place->endpoint.path);
    } else if (place->endpoint.group.empty()) {
        text = " -h " + shell_word(place->endpoint.host) + " -p " + std::to_string(place->endpoint.port);
    } else {
        const std::string here = field(ask({"CLIENT", "INFO"}, database).text, "laddr");
        const std::size_t colon = here.rfind(':');
        text = colon == std::string::npos ? ""
                                          : " -h " + here.substr(0, colon) + " -p " + here.substr(colon + 1);
    }
    return text + (place->credentials.user.empty() ? "" : " --user " + shell_word(place->credentials.user));
}

std::string ExaminedServer::redis_cli(const std::string &arguments, int32_t database)
{
    // A password on the command line would be everybody's to read, and one asked for would come from the
    // pipe.
    const std::string file = store::configured_credentials(of_settings(database)).value;
    const std::string password =
        file.empty() ? "" : "REDISCLI_AUTH=$(sed -n 's/^password *//p' " + shell_word(file) + ") ";
    return password + "redis-cli" + address(database) +
           (database == 0 ? "" : " -n " + std::to_string(database)) + ' ' + arguments;
}

Examination::Examination(const Session &own_session, std::string folder)
    : session(own_session), module_folder(std::move(folder))
{
    for (store::ConfiguredServer &server : store::configured_servers(databases())) {
        servers.emplace_back(*this, std::move(server));
    }
}

ExaminedServer &Examination::server_of(int32_t database)
{
    return *std::find_if(servers.begin(), servers.end(), [database](const ExaminedServer &server) {
        return server.databases.contains(database);
    });
}

Store &Examination::store()
{
    if (!store_) {
        store_.emplace(session);
    }
    return *store_;
}

std::string Examination::cgctl(const std::string &arguments) const
{
    const std::string endpoint =
        session.endpoint.empty() ? "" : "--endpoint " + shell_word(session.endpoint) + ' ';
    return "`cgctl " + endpoint + arguments + '`';
}

} // namespace cg
