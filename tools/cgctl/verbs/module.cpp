// cgctl module: the verbs for those who write check modules.
#include "command_line/verbs.h"

namespace cg
{

void add_module(CLI::App &app, Session &session)
{
    CLI::App *module =
        add_verb(app, session, "module", "Be a check module, or test one",
                 "  cgctl module run voltage -- ./check-voltage --strict\n"
                 "  cgctl module run power --timeout 10 -- sh -c 'test \"$CG_NODE_TYPE\" != DM_TYPE_SFC'");
    module->require_subcommand(1);
    add_module_run(*module, session);
    add_module_test(*module, session);
    add_module_replay(*module, session);
}

} // namespace cg
