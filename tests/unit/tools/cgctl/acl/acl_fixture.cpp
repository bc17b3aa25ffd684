// A private store server with users.
#include "acl_fixture.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "store/connection/endpoint.h"
#include "unit/support/store_program.h"

namespace cg
{

namespace
{

constexpr std::chrono::seconds limit{20};

store::Credentials credentials_in(const std::string &path)
{
    std::string why;
    const auto credentials = store::read_credentials(path, why);
    if (!credentials) {
        throw std::runtime_error(why);
    }
    return *credentials;
}

std::string ask(store::Inspection &server, const Command &command)
{
    const auto reply = server.ask(command, limit);
    return reply ? reply_text(*reply) : "(no answer) " + server.problem();
}

} // namespace

std::string reply_text(const store::Inspected &reply)
{
    std::string text;
    switch (reply.kind) {
    case store::Inspected::Kind::nothing:
        return "(nil)";
    case store::Inspected::Kind::error:
        return "(error) " + reply.text;
    case store::Inspected::Kind::list:
        for (const store::Inspected &item : reply.items) {
            text += reply_text(item) + "\n";
        }
        return text;
    default:
        return reply.text;
    }
}

void AclTest::start(const std::vector<std::string> &names)
{
    std::filesystem::create_directory(modules());
    std::filesystem::create_directory(secrets());
    for (const std::string &name : names) {
        add_module(name);
    }
    print_list();
    start_server();
}

AclTest::~AclTest()
{
    stop_server();
    unsetenv("VX_MOM_AUTH_FILE");
}

void AclTest::add_module(const std::string &name) const
{
    const std::ofstream file(modules() + '/' + name);
    ASSERT_TRUE(file.good()) << name;
}

void AclTest::print_list() const
{
    const Outcome outcome = run_cgctl({"acl", "--modules", modules(), "--secrets", secrets(), "--create"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    std::ofstream(users_file()) << outcome.out;
}

void AclTest::stop_server()
{
    if (server_) {
        server_->send(SIGKILL);
        server_->wait();
        server_.reset();
    }
}

void AclTest::start_server(const std::vector<std::string> &settings)
{
    const std::string socket = folder_.path("store");
    std::vector<std::string> arguments{
        "--databases",  "64", "--port",    "0",          "--unixsocket", socket,          "--save", "",
        "--appendonly", "no", "--aclfile", users_file(), "--dir",        folder_.path("")};
    arguments.insert(arguments.end(), settings.begin(), settings.end());
    server_ = std::make_unique<Child>([&] {
        become_store_server(arguments);
        return 127;
    });
    setenv("VX_MOM_ENDPOINT", ("unix:" + socket).c_str(), 1);
    const bool is_up = eventually([&] { return connect("app_cg-admin", 0).is_open(); });
    ASSERT_TRUE(is_up) << server_->out() << server_->err();
}

void AclTest::become(const std::string &user) const
{
    setenv("VX_MOM_AUTH_FILE", (secrets() + '/' + user).c_str(), 1);
}

store::Inspection AclTest::connect(const std::string &user, int database) const
{
    std::string why;
    auto place = store::configured_place(database, why);
    if (!place) {
        throw std::runtime_error(why);
    }
    place->credentials = credentials_in(secrets() + '/' + user);
    return {*place, database, limit};
}

std::string AclTest::run_as(const std::string &user, int database, const Command &command) const
{
    store::Inspection server = connect(user, database);
    return ask(server, command);
}

std::string AclTest::run_as_admin(int database, const Command &command) const
{
    return run_as("app_cg-admin", database, command);
}

std::string AclTest::state() const
{
    static const std::string dump_all =
        "local keys = redis.call('KEYS', '*') table.sort(keys) local text = '' "
        "for _, k in ipairs(keys) do local t = redis.call('TYPE', k).ok local v "
        "if t == 'string' then v = redis.call('GET', k) "
        "elseif t == 'set' then v = redis.call('SMEMBERS', k) table.sort(v) v = table.concat(v, ',') "
        "elseif t == 'hash' then local all, pairs = redis.call('HGETALL', k), {} "
        "for i = 1, #all, 2 do pairs[#pairs + 1] = all[i] .. '=' .. all[i + 1] end "
        "table.sort(pairs) v = table.concat(pairs, ',') "
        "else v = redis.call('DUMP', k) end "
        "text = text .. k .. ' ' .. t .. ' ' .. redis.call('PTTL', k) .. ' ' .. v .. '\\n' end return text";
    store::Inspection server = connect("app_cg-admin", 0);
    std::string text = ask(server, {"ACL", "LIST"}) + ask(server, {"FUNCTION", "LIST", "WITHCODE"}) +
                       ask(server, {"CONFIG", "GET", "*"});
    std::istringstream keyspace(ask(server, {"INFO", "keyspace"}));
    for (std::string line; std::getline(keyspace, line);) {
        if (line.starts_with("db")) {
            const std::string database = line.substr(2, line.find(':') - 2);
            (void)ask(server, {"SELECT", database});
            text += "database " + database + "\n" + ask(server, {"EVAL", dump_all, "0"});
        }
    }
    return text;
}

Listener::Listener(store::Inspection listening, store::Inspection talking)
    : listening_(std::move(listening)), talking_(std::move(talking))
{
    (void)ask(listening_, {"PSUBSCRIBE", "*"});
}

std::vector<std::string> Listener::heard()
{
    static constexpr const char *end = "that is all";
    std::vector<std::string> messages;
    (void)ask(talking_, {"PUBLISH", end, ""});
    for (;;) {
        const auto message = listening_.next(limit);
        if (!message || message->items.size() != 4) {
            throw std::runtime_error("the listener is deaf: " + listening_.problem());
        }
        if (message->items[2].text == end) {
            return messages;
        }
        messages.push_back(message->items[2].text + ' ' + message->items[3].text);
    }
}

} // namespace cg
