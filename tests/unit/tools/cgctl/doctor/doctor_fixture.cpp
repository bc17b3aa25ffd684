// A whole installation; see the header.
#include "doctor_fixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "command_line/named_record.h"
#include "modules/module_folder.h"
#include "ssat.h"
#include "store/connection/configuration.h"
#include "unit/support/store_program.h"
#include "vx_mom.h"
#include "vx_thread.h"

namespace cg
{

namespace
{

constexpr std::chrono::seconds limit{10};

constexpr std::array own_endpoints{"VX_MOM_ENDPOINT_28", "VX_MOM_ENDPOINT_33"};
constexpr std::array own_credentials{"VX_MOM_AUTH_FILE_28", "VX_MOM_AUTH_FILE_33"};

// The process that stands for the daemon.
std::vector<ModuleEntry> registry;
std::size_t subscriptions_to_come = 0;

int32_t dump_check_module()
{
    printf("app_cg_wait_obj_num %zu\n", registry.size());
    for (std::size_t i = 0; i < registry.size(); ++i) {
        printf("wait mod[%zu], name[%s]\n", i, registry[i].name.c_str());
    }
    return 0;
}

int32_t on_message(void *, vx_mom_pmsg_t *message)
{
    if (message->cmd == VX_MOM_CMD_SUBSCRIBED && --subscriptions_to_come == 0) {
        fprintf(stderr, "serving\n");
    }
    return 0;
}

int32_t on_connected(void *, void *)
{
    return 0;
}

void listen_to(vx_global_t *global, const std::string &name)
{
    const NamedRecord pattern = named_record({name, {}, {}});
    (void)vx_mom_subscribe(global, 1, pattern.record.get(), 0, on_message, nullptr);
}

int serve(const std::string &credentials, const std::string &modules, const DaemonParts &parts)
{
    setenv("VX_MOM_AUTH_FILE", credentials.c_str(), 1);
    for (const char *name : own_credentials) { // the administrator's, until now
        if (const char *file = getenv(name); file != nullptr) {
            setenv(name, std::filesystem::path(file).replace_filename("app_cg").c_str(), 1);
        }
    }
    setenv("VX_ZLOG", "none", 1);
    registry = read_module_folder(modules).entries;
    subscriptions_to_come = parts.subscriptions.size();
    vx_global_t *global = vx_global_init("app_cg", nullptr);
    if (global == nullptr || ssat_lib_init(global, "app_cg") != 0) {
        return 1;
    }
    ssat_reg_mod_cmd("app_cg", "dump_check_module", 0, "void", dump_check_module);
    for (const int32_t database : parts.databases) {
        (void)vx_mom_client_connect(global, database, on_connected, nullptr);
    }
    for (const std::string &name : parts.subscriptions) {
        listen_to(global, name);
    }
    (void)vx_global_run(global);
    vx_global_finish(global);
    return 0;
}

// Splits a command of ours from what takes its output: "cgctl a b | c" or "cgctl a b > c".
void run_with_output(const std::string &command, const std::string &file)
{
    const std::size_t pipe = command.find(" | ");
    const std::size_t target = command.find(" > ");
    std::istringstream words(command.substr(0, std::min(pipe, target)));
    std::vector<std::string> arguments;
    for (std::string word; words >> word;) {
        arguments.push_back(word);
    }
    arguments.erase(arguments.begin());
    const Outcome outcome = run_cgctl(arguments);
    EXPECT_EQ(outcome.status, 0) << command << ": " << outcome.err;
    std::ofstream(target == std::string::npos ? file : command.substr(target + 3)) << outcome.out;
    if (pipe != std::string::npos) {
        const std::string rest = command.substr(pipe + 3) + " < " + file + " > " + file + ".out";
        EXPECT_EQ(system(rest.c_str()), 0) << rest;
    }
}

} // namespace

std::string Diagnosis::complaints() const
{
    std::string text;
    for (const std::string &name : order) {
        const Told &told = checks.at(name);
        if (told.state != "ok" && (told.state != "skipped" || !told.fix.empty())) {
            text += name + ' ' + told.state + ": " + told.found + '\n';
        }
    }
    return text;
}

DoctorTest::DoctorTest()
{
    std::filesystem::create_directory(modules());
    setenv("VX_MOM_ENDPOINT", ("unix:" + folder_.path("store")).c_str(), 1);
    setenv("VX_MOM_DEADLINE_MS", "3000", 1);
    setenv("SSAT_SOCKET", folder_.path("shell").c_str(), 1);
}

DoctorTest::~DoctorTest()
{
    for (const char *name : own_endpoints) {
        unsetenv(name);
    }
    for (const char *name : own_credentials) {
        unsetenv(name);
    }
    unsetenv("VX_MOM_AUTH_FILE");
    unsetenv("VX_MOM_DEADLINE_MS");
    unsetenv("SSAT_SOCKET");
}

void DoctorTest::start_installation(bool is_apart)
{
    add_module("m1");
    const auto make_users = [&](const std::string &secrets, const std::string &file, const char *database) {
        std::filesystem::create_directory(folder_.path(secrets));
        ASSERT_EQ(chmod(folder_.path(secrets).c_str(), 0700), 0);
        const Outcome users = run_cgctl({"acl", "--database", database, "--modules", modules(), "--secrets",
                                         folder_.path(secrets), "--create"});
        ASSERT_EQ(users.status, 0) << users.err;
        std::ofstream(folder_.path(file)) << users.out;
    };
    if (is_apart) {
        for (const char *name : own_endpoints) {
            setenv(name, stack_endpoint().c_str(), 1);
        }
        make_users("group", "group.acl", "28");
        for (const char *name : own_credentials) {
            setenv(name, folder_.path("group/app_cg-admin").c_str(), 1);
        }
        start_stack_server();
    }
    make_users("secrets", "users.acl", "1");
    setenv("VX_MOM_AUTH_FILE", folder_.path("secrets/app_cg-admin").c_str(), 1);
    start_server({"--save", "3600 1", "--aclfile", folder_.path("users.acl")});
    ASSERT_EQ(run_cgctl({"role", "master"}).status, 0);
    start_daemon();
    connect_module("m1");
}

void DoctorTest::start_server(const std::vector<std::string> &arguments)
{
    server_ = start_redis("store", arguments);
}

void DoctorTest::start_stack_server()
{
    stack_server_ = start_redis(
        "stack", {"--save", "3600 1", "--dbfilename", "stack.rdb", "--aclfile", folder_.path("group.acl")});
}

std::unique_ptr<Child> DoctorTest::start_redis(const std::string &socket,
                                               const std::vector<std::string> &arguments) const
{
    auto server = std::make_unique<Child>([&] {
        const std::string path = folder_.path(socket);
        const std::string folder = folder_.path(".");
        std::vector<std::string> words{"--databases",  "64", "--port", "0",
                                       "--unixsocket", path, "--dir",  folder};
        words.insert(words.end(), arguments.begin(), arguments.end());
        become_store_server(words);
        return 127;
    });
    EXPECT_TRUE(server->prints("eady to accept connections")) << server->out() << server->err();
    return server;
}

void DoctorTest::start_daemon(const DaemonParts &parts)
{
    const std::string credentials =
        getenv("VX_MOM_AUTH_FILE") == nullptr ? "" : folder_.path("secrets/app_cg");
    daemon_ = std::make_unique<Child>([&] { return serve(credentials, modules(), parts); });
    ASSERT_TRUE(daemon_->says("serving")) << daemon_->err();
}

void DoctorTest::connect_module(const std::string &name)
{
    std::string why;
    const auto place =
        store::place_of(store::configured_endpoint(1).value, folder_.path("secrets/module-" + name), why);
    ASSERT_TRUE(place) << why;
    const auto client = module_clients_.insert_or_assign(name, store::Inspection(*place, 1, limit)).first;
    ASSERT_TRUE(client->second.is_open()) << client->second.problem();
}

store::Inspected DoctorTest::ask(int database, const std::vector<std::string> &command) const
{
    store::Inspection server(database, limit);
    const auto reply = server.ask(command, limit);
    EXPECT_TRUE(reply) << server.problem();
    EXPECT_TRUE(!reply || !reply->is_error()) << command[0] << ": " << reply->text;
    return reply.value_or(store::Inspected{});
}

std::vector<std::string> DoctorTest::keys(int database) const
{
    std::vector<std::string> found;
    for (const store::Inspected &key : ask(database, {"KEYS", "*"}).items) {
        found.push_back(key.text);
    }
    std::sort(found.begin(), found.end());
    return found;
}

Diagnosis DoctorTest::examine() const
{
    const Outcome outcome = run_cgctl({"doctor", "--json", "--modules", modules()});
    Diagnosis diagnosis;
    diagnosis.status = outcome.status;
    for (const Json &check : outcome.json()) {
        const Json &databases = check["databases"];
        const std::string name =
            check["name"].get<std::string>() +
            (databases.is_null() ? "" : ' ' + std::to_string(databases.front().get<int>()));
        diagnosis.order.push_back(name);
        diagnosis.checks[name] = {check["state"], check["found"], check["fix"]};
    }
    return diagnosis;
}

Told DoctorTest::examine(const std::string &check) const
{
    return examine().checks.at(check);
}

void DoctorTest::expect_fixed(const std::string &check, const std::string &state, const std::string &words,
                              std::size_t commands) const
{
    const Diagnosis before = examine();
    const Told &told = before.checks.at(check);
    EXPECT_EQ(before.status, 1);
    EXPECT_EQ(told.state, state) << told.found;
    EXPECT_THAT(told.found, testing::HasSubstr(words));
    carry_out(told.fix, commands);
    const Told after = examine(check);
    EXPECT_EQ(after.state, "ok") << after.found << " after " << told.fix;
}

void DoctorTest::carry_out(const std::string &fix, std::size_t commands) const
{
    std::size_t end = 0;
    for (std::size_t i = 0; i < commands; ++i) {
        const std::size_t begin = fix.find('`', end);
        ASSERT_NE(begin, std::string::npos) << fix;
        end = fix.find('`', begin + 1);
        const std::string command = fix.substr(begin + 1, end - begin - 1);
        ++end;
        if (command.starts_with("cgctl ")) {
            run_with_output(command, folder_.path("output"));
        } else {
            const std::string quietly = command + " > " + folder_.path("output") + " 2>&1";
            EXPECT_EQ(system(quietly.c_str()), 0) << command;
        }
    }
}

void DoctorTest::add_module(const std::string &name) const
{
    std::ofstream(modules() + '/' + name).flush();
}

} // namespace cg
