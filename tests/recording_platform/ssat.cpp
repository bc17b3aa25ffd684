// The debug shell: keeps the registered handlers for a test to call, as the shell would for an operator.
#include "ssat.h"

#include <algorithm>

#include "state.h"

namespace
{

// Any other type of function can be cast to and from this one without a warning.
using AnyFunction = void (*)();

// A handler is called with exactly the arguments of its template: any other number would be undefined.
template <typename... Arguments>
int32_t call_as(ssat_handler_f handler, Arguments... arguments)
{
    return reinterpret_cast<int32_t (*)(Arguments...)>(reinterpret_cast<AnyFunction>(handler))(arguments...);
}

int32_t call_handler(ssat_handler_f handler, const std::vector<int32_t> &a)
{
    switch (a.size()) {
    case 0:
        return call_as(handler);
    case 1:
        return call_as(handler, a[0]);
    case 2:
        return call_as(handler, a[0], a[1]);
    case 3:
        return call_as(handler, a[0], a[1], a[2]);
    case 4:
        return call_as(handler, a[0], a[1], a[2], a[3]);
    default:
        return call_as(handler, a[0], a[1], a[2], a[3], a[4]);
    }
}

std::size_t arguments_in(const std::string &args_template)
{
    return static_cast<std::size_t>(std::count(args_template.begin(), args_template.end(), '%'));
}

} // namespace

using namespace recording;

int32_t ssat_lib_init(vx_global_t *global, const char *module)
{
    record_line("ssat_lib_init(" + printable(module) + ")" + context_suffix(global));
    return finish_call("ssat_lib_init");
}

int32_t ssat_reg_mod_cmd(const char *module, const char *command, int32_t flags, const char *args_template,
                         ssat_handler_f handler)
{
    record_line("ssat_reg_mod_cmd(" + printable(module) + ", " + printable(command) + ", " +
                std::to_string(flags) + ", \"" + printable(args_template) + "\")" +
                (handler == nullptr ? " callback=null" : ""));
    const int32_t result = finish_call("ssat_reg_mod_cmd");
    if (result == 0) {
        state().commands[printable(command)] = {arguments_in(printable(args_template)), handler};
    }
    return result;
}

namespace recording
{

bool run_command(const std::string &command, const std::vector<int32_t> &arguments, int32_t *result)
{
    const auto found = state().commands.find(command);
    if (found == state().commands.end() || found->second.argument_count != arguments.size() ||
        arguments.size() > 5) {
        return false;
    }
    const int32_t returned = call_handler(found->second.handler, arguments);
    if (result != nullptr) {
        *result = returned;
    }
    return true;
}

} // namespace recording
