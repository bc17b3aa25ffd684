// cgctl debug: a command of the daemon's debug shell.
#include <chrono>

#include "builtin/ssat_client.h"
#include "failure.h"
#include "text.h"
#include "verbs.h"

namespace cgctl
{

namespace
{

constexpr const char *module_name = "app_cg";
// A command runs on the daemon's loop: it waits until a store call that blocks the loop has given up.
constexpr std::chrono::seconds patience{30};

std::string socket_of(const Session &session)
{
    return session.socket.empty() ? ssat::socket_path(module_name) : session.socket;
}

Status status_of(ssat::Failure failure)
{
    const bool usage = failure == ssat::Failure::unknown_command || failure == ssat::Failure::wrong_usage;
    return usage ? wrong_usage : failed;
}

int list_commands(const Session &session)
{
    Json array = Json::array();
    for (const ssat::Command &command : ssat::commands(socket_of(session), patience)) {
        const bool plain = command.args_template == "void";
        if (session.json) {
            array.push_back({{"module", command.module},
                             {"command", command.name},
                             {"arguments", plain ? "" : command.args_template}});
        } else if (command.module == module_name) {
            session.line(command.name + (plain ? "" : ' ' + command.args_template));
        }
    }
    if (session.json) {
        session.line(dump(Json{{"commands", array}}));
    }
    return done;
}

void tell_notes(const Session &session, const ssat::Reply &reply)
{
    if (!reply.output_at.empty()) {
        session.notice(
            "the daemon's standard output is no longer what it was started with; the output went to " +
            visible(reply.output_at));
    }
    if (reply.truncated) {
        session.notice("the output was longer; this is its beginning");
    }
}

int run_command(const Session &session, const std::string &command, const std::vector<std::string> &arguments)
{
    const ssat::Reply reply = ssat::run(socket_of(session), module_name, command, arguments, patience);
    if (session.json) {
        session.line(dump(Json{{"result", reply.result},
                               {"output", reply.output},
                               {"output_at", reply.output_at},
                               {"truncated", reply.truncated}}));
    } else {
        session.out << reply.output;
        session.check_output();
    }
    tell_notes(session, reply);
    if (reply.result != 0) {
        throw Failure(failed, command + " returned " + std::to_string(reply.result));
    }
    return done;
}

int debug(const Session &session, const std::string &command, const std::vector<std::string> &arguments)
{
    try {
        return command.empty() ? list_commands(session) : run_command(session, command, arguments);
    } catch (const ssat::Error &error) {
        const bool unknown = error.failure() == ssat::Failure::unknown_command;
        throw Failure(status_of(error.failure()),
                      std::string(error.what()) +
                          (unknown ? "; `cgctl debug` lists those that there are" : ""));
    }
}

} // namespace

void add_debug(CLI::App &app, Session &session)
{
    CLI::App *verb =
        add_verb(app, session, "debug", "Run a command of the daemon's debug shell, or list them",
                 "  cgctl debug\n"
                 "  cgctl debug dump_node\n"
                 "  cgctl debug log-level level=4");
    auto command = std::make_shared<std::string>();
    auto arguments = std::make_shared<std::vector<std::string>>();
    verb->add_option("COMMAND", *command, "The command; without it all commands are listed");
    verb->add_option("NAME=VALUE", *arguments, "Its arguments, in any order");
    verb->callback([command, arguments, &session] {
        session.action = [command, arguments, &session] { return debug(session, *command, *arguments); };
    });
}

} // namespace cgctl
