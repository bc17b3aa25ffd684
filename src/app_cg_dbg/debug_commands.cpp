// The debug commands. They print to standard output, so that "collect" can send all of it into a file.
#define APP_CG_LOG_SOURCE "app_cg_dbg.cpp"

#include "app_cg_dbg/debug_commands.h"

#include <cstdio>

#include "app_cg/app_cg.h"
#include "app_cg/card_nodes.h"
#include "app_cg/check_modules.h"
#include "app_cg/check_result.h"
#include "app_cg_dbg/collect.h"
#include "app_cg_dbg/logging.h"
#include "ssat.h"

namespace
{

struct DebugCommand {
    const char *name;
    const char *args_template;
    ssat_handler_f handler;
};

// The shell calls a handler with as many int32_t as its template names, through the type it was written in.
template <typename... Args>
ssat_handler_f handler_of(int32_t (*function)(Args...))
{
    // By way of void (*)(), the type that the compiler takes for "some function or other".
    return reinterpret_cast<ssat_handler_f>(reinterpret_cast<void (*)()>(function));
}

void print_time(const char *label, const timeval &time)
{
    std::printf("%s %lu:%lu\r\n", label, static_cast<unsigned long>(time.tv_sec),
                static_cast<unsigned long>(time.tv_usec));
}

} // namespace

int32_t app_cg_ssat_init(vx_global_t *global, const char *module)
{
    APP_CG_INFO("enter");
    APP_CG_CHECK_RETURN(ssat_lib_init(global, module));

    const DebugCommand commands[] = {
        {"log-level", "level=%d", handler_of(app_cg_log_level)},
        {"dump_node", "void", handler_of(app_cg_dump_all_node)},
        {"show_time", "void", handler_of(app_cg_show_time)},
        {"dump_all", "void", handler_of(app_cg_dump_all)},
        {"collect", "void", handler_of(app_cg_collect)},
        {"dump_check_module", "void", handler_of(app_cg_dump_wait_obj)},
        {"update_dev", "dev=%d slot=%d sslotid=%d compa=%d op=%d", handler_of(app_cg_dbg_update_dev)},
    };
    for (const DebugCommand &command : commands) {
        ssat_reg_mod_cmd(module, command.name, 0, command.args_template, command.handler);
    }
    APP_CG_INFO("leave");
    return 0;
}

int32_t app_cg_show_time()
{
    static constexpr char separator[] = "\r\n=====================================\r";
    std::puts(separator);
    print_time("app_cg run", g_app_cg_global.time_run);
    print_time("init global", g_app_cg_global.time_init_global);
    print_time("ham init ok", g_app_cg_global.time_ham_init);
    print_time("cg init st", g_app_cg_global.time_init_st);
    std::puts(separator);
    return 0;
}

int32_t app_cg_dump_all()
{
    app_cg_dump_wait_obj();
    app_cg_show_time();
    return app_cg_dump_all_node();
}

int32_t app_cg_dbg_update_dev(int32_t dev, int32_t slot, int32_t sslotid, int32_t compa, int32_t op)
{
    std::printf("begin set_chk_ack, devid %d slotid %d sslotid %d stat %d op %d\n", dev, slot, sslotid, compa,
                op);
    return app_cg_update_dev_check_result(dev, slot, sslotid, compa, op);
}
