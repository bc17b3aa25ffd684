// The commands that a process offers, and how a request becomes a handler's call and a reply.
#ifndef SHELL_COMMANDS_H
#define SHELL_COMMANDS_H

#include <string>
#include <vector>

#include "shell/arguments.h"
#include "shell/output.h"
#include "shell/protocol.h"
#include "ssat.h"

namespace ssat
{

class CommandTable
{
public:
    // Adds a command, or puts it in the place of the one of the same name. Returns false when the name is not
    // one that a user could type, or when the template is none.
    bool add(const std::string &module, const std::string &command, const std::string &args_template,
             ssat_handler_f handler);

    // Answers a request; the handler that it asks for is called before this returns.
    // original_output  what descriptor 1 was when the shell was opened.
    Fields answer(const Fields &request, const Identity &original_output) const;

private:
    struct Entry {
        std::string module;
        std::string name;
        std::string args_template;
        Names arguments;
        ssat_handler_f handler;
    };

    const Entry *find(const std::string &module, const std::string &command) const;
    Fields run(const Fields &request, const Identity &original_output) const;
    Fields help() const;

    std::vector<Entry> entries_; // in the order of registration
};

} // namespace ssat

#endif
