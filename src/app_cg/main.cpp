// The daemon's entry: brings the process up in a fixed order and hands the thread to the event loop.
//
// The order is a contract: the single-instance check comes before logging so that a second instance never
// touches the first one's log, and the debug shell is up before the store is, so that a daemon that hangs on
// its store can be asked about it.

#include <sys/time.h>

#include <csignal>
#include <cstdio>

#include "app_cg/app_cg.h"
#include "app_cg/card_nodes.h"
#include "app_cg/startup.h"
#include "app_cg_dbg/logging.h"
#include "ham.h"
#include "vx_thread.h"

int main()
{
    gettimeofday(&g_app_cg_global.time_run, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    int32_t rv = vx_initframe_duplicate_check();
    if (rv != 0) {
        std::printf("%s, ret=%d, FAIL\r\n", "app_cg", rv);
        return -1;
    }

    APP_CG_CHECK_RETURN(app_cg_zlog_init());

    gettimeofday(&g_app_cg_global.time_init_global, nullptr);
    app_cg_node_list_init(&g_app_cg_global.card_nodes);
    g_app_cg_global.global = nullptr;
    g_app_cg_global.global = vx_global_init("app_cg", nullptr);
    if (g_app_cg_global.global == nullptr) {
        APP_CG_ERROR("g_app_cg_global init failed");
        return APP_CG_ERR_RESOURCE;
    }

    gettimeofday(&g_app_cg_global.time_init_st, nullptr);
    rv = app_cg_init();
    if (rv != 0) {
        APP_CG_ERROR("failed,rv %d", rv);
        return rv;
    }

    vx_global_run(g_app_cg_global.global);
    vx_global_finish(g_app_cg_global.global);
    return 0;
}
