// The daemon's debug shell, spoken to line by line.
#include "shell/debug_shell.h"

#include <chrono>
#include <istream>
#include <iterator>
#include <sstream>

#include "admission/card_text.h"
#include "base/failure.h"
#include "base/terminal.h"
#include "base/text.h"
#include "shell/client.h"

namespace cg
{

namespace
{

constexpr const char *module_name = "app_cg";
// A command runs on the daemon's loop: it waits until a store call that blocks the loop has given up.
constexpr std::chrono::seconds patience{30};

Failure failure_of(const ssat::Error &error, const char *hint)
{
    const bool unknown = error.failure() == ssat::Failure::unknown_command;
    const bool usage = unknown || error.failure() == ssat::Failure::wrong_usage;
    return {usage ? wrong_usage : failed, std::string(error.what()) + (unknown ? hint : "")};
}

std::vector<ssat::Command> commands_at(const std::string &socket)
{
    try {
        return ssat::commands(socket, patience);
    } catch (const ssat::Error &error) {
        throw failure_of(error, "");
    }
}

std::vector<std::string> words_of(const std::string &line)
{
    std::istringstream input(line);
    return {std::istream_iterator<std::string>(input), {}};
}

void print_notes(const Session &session, const ssat::Reply &reply)
{
    if (!reply.output_at.empty()) {
        session.notice("the daemon's standard output was redirected; the output went to " +
                       visible(reply.output_at));
    }
    if (reply.truncated) {
        session.notice("output truncated");
    }
}

} // namespace

std::vector<std::string> lines_for_terminal(const std::string &output)
{
    std::vector<std::string> shown;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        shown.push_back(visible(line));
    }
    return shown;
}

int64_t start_time_in(std::string_view printed)
{
    constexpr std::string_view label = "app_cg run ";
    const std::size_t at = printed.find(label);
    if (at == std::string_view::npos) {
        return 0;
    }
    const std::string_view rest = printed.substr(at + label.size());
    return to_number(rest.substr(0, rest.find(':')), 0, INT64_MAX / 1'000'000'000).value_or(0);
}

DebugShell::DebugShell(const Session &session)
    : session_(session), socket_(session.socket.empty() ? ssat::socket_path(module_name) : session.socket)
{
}

int DebugShell::list()
{
    Json array = Json::array();
    for (const ssat::Command &command : commands_at(socket_)) {
        const bool plain = command.args_template == "void";
        if (session_.json) {
            array.push_back({{"module", command.module},
                             {"command", command.name},
                             {"arguments", plain ? "" : command.args_template}});
        } else if (command.module == module_name) {
            session_.line(command.name + (plain ? "" : ' ' + command.args_template));
        }
    }
    if (session_.json) {
        session_.line(dump(Json{{"commands", array}}));
    }
    return done;
}

int DebugShell::run(const std::string &command, const std::vector<std::string> &arguments)
{
    ssat::Reply reply;
    try {
        reply = ssat::run(socket_, module_name, command, arguments, patience);
    } catch (const ssat::Error &error) {
        throw failure_of(error, "; `cgctl debug --list` lists those that there are");
    }
    if (session_.json) {
        session_.line(dump(Json{{"result", reply.result},
                                {"output", reply.output},
                                {"output_at", reply.output_at},
                                {"truncated", reply.truncated}}));
    } else {
        print(reply.output);
    }
    print_notes(session_, reply);
    if (reply.result != 0) {
        throw Failure(failed, command + " returned " + std::to_string(reply.result));
    }
    return done;
}

// A module's reason is in it, and what a terminal obeys may be in that. A program gets it as it is.
void DebugShell::print(const std::string &output)
{
    if (!terminal_of(session_, "never").is_one) {
        session_.out << output;
        session_.check_output();
        return;
    }
    for (const std::string &line : lines_for_terminal(output)) {
        session_.line(line);
    }
}

bool DebugShell::run_line(const std::string &line)
{
    const std::vector<std::string> words = words_of(line);
    if (words.empty() || words.front().starts_with('#')) {
        return true;
    }
    try {
        notice_restart();
        run(words.front(), {words.begin() + 1, words.end()});
        return true;
    } catch (const Failure &failure) {
        session_.error(failure.what());
        session_.check_output(); // ends it when nobody reads any more
        return false;
    }
}

int DebugShell::run_lines(std::istream &input)
{
    print_identity();
    bool good = true;
    for (std::string line; std::getline(input, line);) {
        if (words_of(line) == std::vector<std::string>{"quit"}) {
            break;
        }
        good = run_line(line) && good;
    }
    return good ? done : failed;
}

// Which daemon answers. The time that it prints is that of its own clock.
void DebugShell::print_identity()
{
    std::string since;
    try {
        pid_ = ssat::process_at(socket_, patience);
        const ssat::Reply reply = ssat::run(socket_, module_name, "show_time", {}, patience);
        if (const int64_t start = start_time_in(reply.output); start != 0) {
            const Time at{std::chrono::seconds(start)};
            const Time now = std::chrono::system_clock::now();
            since = ", up since " + clock_text(at, now) + " (" +
                    span_text(std::chrono::duration_cast<std::chrono::milliseconds>(now - at)) + ')';
        }
    } catch (const ssat::Error &error) {
        if (error.failure() != ssat::Failure::unknown_command) {
            throw failure_of(error, "");
        }
    }
    session_.notice(std::string(module_name) + ", process " + std::to_string(pid_) + since + ", at " +
                    visible(socket_));
}

void DebugShell::notice_restart()
{
    try {
        const pid_t pid = ssat::process_at(socket_, patience);
        if (pid != pid_) {
            print_identity();
        }
    } catch (const ssat::Error &error) {
        throw failure_of(error, "");
    }
}

} // namespace cg
