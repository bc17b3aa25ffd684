// cgctl complete: what may stand at the end of a command line, for the scripts that the shells have.
//
// Hidden, because nobody calls it by hand. A user waits at the keyboard for each answer and did not ask for
// messages: so it is silent about what fails, and gives up within a second.
//
// The first line of its output says what follows: `file`, `folder` or `command` leave the choice to the
// shell; else it is a candidate in each line, with a description behind a tab: `words`, `list` (more may
// follow a comma), or `open` (the word goes on, a value).
#include <chrono>
#include <cstdlib>
#include <ostream>

#include "access/store.h"
#include "base/failure.h"
#include "base/text.h"
#include "command_line/completion.h"
#include "command_line/verbs.h"
#include "loop/settings.h"
#include "modules/module_folder.h"
#include "records/position_key.h"
#include "records/record_types.h"
#include "shell/client.h"

namespace cg
{

namespace
{

constexpr int64_t patience_ms = 1000;
constexpr const char *daemon_module = "app_cg";

using Words = std::vector<std::string>;

Words positions(const Session &session)
{
    Words words;
    Store store(session);
    for (const store::Record &record : store.scan(p_dev__card_info__descriptor)) {
        if (const auto position = position_of(*record.message)) {
            words.push_back(position->text());
        }
    }
    return words;
}

Words modules()
{
    Words words;
    for (const ModuleEntry &entry : read_module_folder(default_module_folder).entries) {
        words.push_back(entry.name);
    }
    return words;
}

std::vector<ssat::Command> daemon_commands(const Session &session)
{
    const std::string socket = session.socket.empty() ? ssat::socket_path(daemon_module) : session.socket;
    return ssat::commands(socket, std::chrono::milliseconds(patience_ms));
}

Words commands(const Session &session)
{
    Words words;
    for (const ssat::Command &command : daemon_commands(session)) {
        if (command.module == daemon_module) {
            words.push_back(command.name);
        }
    }
    return words;
}

// "level=" of the template "level=%d" of the command.
Words command_arguments(const Session &session, const std::string &name)
{
    Words words;
    for (const ssat::Command &command : daemon_commands(session)) {
        if (command.module != daemon_module || command.name != name) {
            continue;
        }
        for (const std::string &part : split(command.args_template, ' ')) {
            const auto equals = part.find('=');
            if (equals != std::string::npos) {
                words.push_back(part.substr(0, equals + 1));
            }
        }
    }
    return words;
}

void add_fields(Words &words, const ProtobufCMessageDescriptor *message, const char *left_out)
{
    for (unsigned i = 0; message != nullptr && i < message->n_fields; ++i) {
        const std::string name = message->fields[i].name;
        if (name != left_out) {
            words.push_back(name + (message->fields[i].type == PROTOBUF_C_TYPE_MESSAGE ? "." : "="));
        }
    }
}

Words fields(const std::string &type_name)
{
    Words words;
    const RecordType &type = record_type(type_name);
    add_fields(words, type.key(), "");
    add_fields(words, type.descriptor, type.index == nullptr ? "" : type.index->name);
    return words;
}

// Short names, and full ones where such a name was begun.
Words types(const std::string &begun)
{
    const bool full = begun.starts_with("p_") || begun.starts_with("s_");
    Words words;
    for (const RecordType &type : record_types()) {
        const std::string name = type.name();
        if (type.db >= 0) { // else it lives in no database of its own
            words.push_back(full ? name : name.substr(name.rfind('.') + 1));
        }
    }
    return words;
}

Words values(const Session &session, const std::string &kind, const std::string &about,
             const std::string &begun)
{
    if (kind == "POS") {
        return positions(session);
    }
    if (kind == "MODULE") {
        return modules();
    }
    if (kind == "TYPE") {
        return types(begun);
    }
    if (kind == "COMMAND") {
        return commands(session);
    }
    if (kind == "NAME=VALUE") {
        return command_arguments(session, about);
    }
    return kind == "FIELD=VALUE" ? fields(about) : Words{};
}

// For what the shell knows itself, its word; else nothing.
std::string left_to_shell(const std::string &kind)
{
    return kind == "FILE" ? "file" : kind == "FOLDER" ? "folder" : kind == "--" ? "command" : "";
}

// A word with a blank or a special character would have to be quoted for the shell.
bool is_plain(const std::string &word)
{
    return visible(word) == word && word.find_first_of(" \t\"'\\$`;&|<>()*?[]~#") == std::string::npos;
}

void complete(const Session &session, Completion completion, const std::string &word)
{
    const std::string shells = left_to_shell(completion.kind);
    if (!shells.empty()) {
        session.line(shells);
        return;
    }
    if (completion.words.empty()) {
        for (const std::string &value : values(session, completion.kind, completion.about, word)) {
            completion.words.push_back({value});
        }
    }
    session.line(completion.kind.ends_with("=VALUE") ? "open" : completion.is_list ? "list" : "words");
    for (const Candidate &candidate : completion.words) {
        if (is_plain(candidate.word)) {
            const std::string &about = candidate.description;
            session.line(completion.before + candidate.word + (about.empty() ? "" : '\t' + about));
        }
    }
}

int complete(Session session, const CLI::App &app)
{
    if (platform::setting_number("VX_MOM_DEADLINE_MS", patience_ms, 1, patience_ms) >= patience_ms) {
        setenv("VX_MOM_DEADLINE_MS", std::to_string(patience_ms).c_str(), 1);
    }
    try {
        const Completion completion = completion_of(describe(app), session.command);
        if (!completion.endpoint.empty()) {
            platform::replace_setting("VX_MOM_ENDPOINT", completion.endpoint);
        }
        session.socket = completion.socket;
        complete(session, completion, session.command.empty() ? "" : session.command.back());
    } catch (const std::exception &) {
        return failed; // a message would land in the middle of the line that is being typed
    }
    return done;
}

} // namespace

void add_complete(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "complete", "Print what may stand at the end of a command line",
                              "  cgctl complete -- show 1/\n"
                              "  cgctl complete -- get card_info devid=1 slo");
    verb->group("");
    verb->callback(
        [&app, &session] { session.action = [&app, &session] { return complete(session, app); }; });
}

} // namespace cg
