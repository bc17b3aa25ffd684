// Debug-command shell: the doors that the porting surface knows.
//
// Registration names a module and no context, so the open shell is found through a weak pointer; the context
// owns it. One process has one shell.
#include "ssat.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include "loop/platform_context.h"
#include "loop/standard_error.h"
#include "shell/server.h"

namespace
{

std::weak_ptr<ssat::Shell> open_shell;

bool is_file_name(const std::string &module)
{
    return !module.empty() && module.find('/') == std::string::npos;
}

// A client that goes away while its reply is written must not end the process. A handler that the program
// installed itself stays.
void survive_clients()
{
    struct sigaction action {
    };
    if (sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
        action.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &action, nullptr);
    }
}

} // namespace

int32_t ssat_lib_init(vx_global_t *global, const char *module)
try {
    if (global == nullptr || module == nullptr || !is_file_name(module)) {
        return -EINVAL;
    }
    if (const auto shell = open_shell.lock()) {
        return shell->module() == module ? 0 : -EBUSY;
    }
    const std::string path = ssat::socket_path(module);
    auto shell = std::make_shared<ssat::Shell>(platform::event_base_of(global), module);
    const int32_t result = shell->open(path);
    if (result != 0) {
        platform::report_on_standard_error("platform: no debug shell on %s: %s\n", path.c_str(),
                                           strerror(-result));
        return result;
    }
    platform::slot_of(global, platform::Slot::debug_shell) = shell;
    open_shell = shell;
    survive_clients();
    return 0;
} catch (const std::exception &) {
    return -ENOMEM;
}

int32_t ssat_reg_mod_cmd(const char *module, const char *command, int32_t flags, const char *args_template,
                         ssat_handler_f handler)
try {
    if (module == nullptr || command == nullptr || flags != 0 || args_template == nullptr) {
        return -EINVAL;
    }
    const auto shell = open_shell.lock();
    if (!shell || shell->module() != module) {
        return -ENOENT;
    }
    return shell->commands().add(module, command, args_template, handler) ? 0 : -EINVAL;
} catch (const std::exception &) {
    return -ENOMEM;
}
