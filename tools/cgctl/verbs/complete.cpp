// cgctl complete: what a completion script has to ask, since only the running device knows it.
//
// Hidden, because nobody calls it by hand. Somebody waits at the keyboard for each answer and did not ask for
// messages: so it is silent about what fails, and gives up within a second.
#include <chrono>
#include <cstdlib>
#include <ostream>

#include "base/failure.h"
#include "base/text.h"
#include "cards/cards.h"
#include "command_line/verb_tree.h"
#include "command_line/verbs.h"
#include "loop/settings.h"
#include "modules/module_folder.h"
#include "records/position_key.h"
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
    const RecordType &type = record_type("p_dev.card_info");
    for (const Json &record : store.scan(type, type.db)) {
        words.push_back(position_in(record.at(type.index->name)).text());
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

Words candidates(const Session &session, const std::string &kind, const std::string &about)
{
    if (kind == "POS") {
        return positions(session);
    }
    if (kind == "MODULE") {
        return modules();
    }
    if (kind == "COMMAND") {
        return commands(session);
    }
    return kind == "NAME=VALUE" ? command_arguments(session, about) : fields(about);
}

int complete(const Session &session, const std::string &kind, const std::string &about)
{
    if (platform::setting_number("VX_MOM_DEADLINE_MS", patience_ms, 1, patience_ms) >= patience_ms) {
        setenv("VX_MOM_DEADLINE_MS", std::to_string(patience_ms).c_str(), 1);
    }
    try {
        for (const std::string &word : candidates(session, kind, about)) {
            // A word with a blank or a special character would have to be quoted for the shell.
            if (visible(word) == word && word.find_first_of(" \t\"'\\$`;&|<>()*?[]~#") == std::string::npos) {
                session.line(word);
            }
        }
    } catch (const std::exception &) {
        return failed; // a message would land in the middle of the line that is being typed
    }
    return done;
}

} // namespace

void add_complete(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "complete", "Print the values that there are of a kind",
                              "  cgctl complete POS\n"
                              "  cgctl complete FIELD=VALUE card_info");
    verb->group("");
    auto kind = std::make_shared<std::string>();
    auto about = std::make_shared<std::string>();
    verb->add_option("KIND", *kind, "What is completed")
        ->required()
        ->check(CLI::IsMember({"POS", "MODULE", "COMMAND", "NAME=VALUE", "FIELD=VALUE"}));
    verb->add_option("ABOUT", *about, "The record type, or the command of the debug shell");
    verb->callback([kind, about, &session] {
        session.action = [kind, about, &session] { return complete(session, *kind, *about); };
    });
}

} // namespace cg
