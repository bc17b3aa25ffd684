// The table of verbs. Each is a file of its own; its function adds the verb with its arguments to the parser,
// and leaves in the session what to do when it is chosen.
#ifndef COMMAND_LINE_VERBS_H
#define COMMAND_LINE_VERBS_H

#include <array>

#include "command_line/verb.h"

namespace cg
{

void add_list(CLI::App &app, Session &session);
void add_show(CLI::App &app, Session &session);
void add_card(CLI::App &app, Session &session);
void add_role(CLI::App &app, Session &session);
void add_debug(CLI::App &app, Session &session);
void add_get(CLI::App &app, Session &session);
void add_set(CLI::App &app, Session &session);
void add_del(CLI::App &app, Session &session);
void add_watch(CLI::App &app, Session &session);
void add_history(CLI::App &app, Session &session);
void add_modules(CLI::App &app, Session &session);
void add_module(CLI::App &app, Session &session);
void add_module_run(CLI::App &module, Session &session);
void add_module_test(CLI::App &module, Session &session);
void add_module_replay(CLI::App &module, Session &session);
void add_acl(CLI::App &app, Session &session);
void add_doctor(CLI::App &app, Session &session);
void add_completion(CLI::App &app, Session &session);
void add_complete(CLI::App &app, Session &session);
void add_manual(CLI::App &app, Session &session);

// In the order of the help.
inline constexpr std::array verbs{add_list, add_show,   add_card,       add_role,     add_debug,   add_get,
                                  add_set,  add_del,    add_watch,      add_history,  add_modules, add_module,
                                  add_acl,  add_doctor, add_completion, add_complete, add_manual};

} // namespace cg

#endif
