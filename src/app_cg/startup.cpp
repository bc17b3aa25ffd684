// Start-up between the platform context and the event loop: debug commands, process manager, store.
//
// The store is first connected synchronously, so that a daemon without its store ends with a reason instead
// of waiting for ever; the asynchronous connections that carry the subscriptions report in from the loop.

#include "app_cg/startup.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include "app_cg/app_cg.h"
#include "app_cg/connections.h"
#include "app_cg_dbg/debug_commands.h"
#include "app_cg_dbg/logging.h"
#include "ham.h"
#include "vx_mom.h"

namespace
{

// Its presence turns the registration with the process manager off.
constexpr char HAM_MARKER[] = "/var/run/app_cg_ham.txt";

bool ham_marker_present()
{
    const int fd = open(HAM_MARKER, O_RDWR, 0666);
    if (fd < 0) {
        return false;
    }
    close(fd);
    return true;
}

} // namespace

int32_t app_cg_connect_host_cb(void *first, void *second)
{
    return app_cg_client_connect_db(first, APP_CG_DB_HOST, second);
}

int32_t app_cg_connect_dev_cb(void *first, void *second)
{
    return app_cg_client_connect_db(first, APP_CG_DB_DEV_GLOBAL, second);
}

int32_t app_cg_connect_cap_cb(void *first, void *second)
{
    return app_cg_client_connect_db(first, APP_CG_DB_CAP, second);
}

int32_t app_cg_indep_init()
{
    APP_CG_INFO("enter");
    // The daemon works without its debug commands; the failure has been logged.
    app_cg_ssat_init(g_app_cg_global.global, "app_cg");

    gettimeofday(&g_app_cg_global.time_ham_init, nullptr);
    if (!ham_marker_present()) {
        const int32_t rv = reg_process_exit_action(0, 2);
        if (rv != 0) {
            APP_CG_ERROR("init ham fail");
            return rv;
        }
    }
    APP_CG_INFO("leave");
    return 0;
}

int32_t app_cg_init()
{
    vx_global_t *global = g_app_cg_global.global;

    int32_t rv = app_cg_indep_init();
    if (rv != 0) {
        APP_CG_ERROR("app_cg_indep_init failed rv %d", rv);
        return rv;
    }

    rv = vx_mom_client_connect_sync(global, APP_CG_DB_HOST);
    if (rv != 0) {
        APP_CG_ERROR("connect host sync failed, rv %d", rv);
        return rv;
    }
    rv = vx_mom_client_connect_sync(global, APP_CG_DB_DEV_GLOBAL);
    if (rv != 0) {
        APP_CG_ERROR("connect dev global sync failed, rv %d", rv);
        return rv;
    }

    rv = vx_mom_client_connect(global, APP_CG_DB_HOST, app_cg_connect_host_cb, nullptr);
    if (rv != 0) {
        APP_CG_ERROR("connect host failed, rv %d", rv);
        return rv;
    }
    rv = vx_mom_client_connect(global, APP_CG_DB_DEV_GLOBAL, app_cg_connect_dev_cb, nullptr);
    if (rv != 0) {
        APP_CG_ERROR("connect dev failed, rv %d", rv);
        return rv;
    }
    rv = vx_mom_client_connect(global, APP_CG_DB_CAP, app_cg_connect_cap_cb, nullptr);
    if (rv != 0) {
        APP_CG_ERROR("connect cap failed, rv %d", rv);
        return rv;
    }

    APP_CG_INFO("vx_mom_client_set_reconnect_cb host");
    APP_CG_CHECK_RETURN(app_cg_client_set_disconnect_cb(APP_CG_DB_HOST));
    APP_CG_CHECK_RETURN(app_cg_client_set_disconnect_cb(APP_CG_DB_CAP));
    APP_CG_CHECK_RETURN(app_cg_client_set_disconnect_cb(APP_CG_DB_DEV_GLOBAL));
    APP_CG_CHECK_RETURN(app_cg_client_set_reconnect_cb(APP_CG_DB_HOST));
    APP_CG_CHECK_RETURN(app_cg_client_set_reconnect_cb(APP_CG_DB_CAP));
    APP_CG_CHECK_RETURN(app_cg_client_set_reconnect_cb(APP_CG_DB_DEV_GLOBAL));
    APP_CG_INFO("leave");
    return 0;
}
