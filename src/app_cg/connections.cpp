// One state per store database; each time all three are up, the modules are rescanned and the subscriptions
// made. A return of the store in any other way than a completed reconnection ends the process: starting
// afresh is simpler and safer than mending a belief that may be false anywhere.

#include "app_cg/connections.h"

#include <cstdlib>

#include "app_cg/app_cg.h"
#include "app_cg/card_install.h"
#include "app_cg/check_ack.h"
#include "app_cg/check_modules.h"
#include "app_cg/global_role.h"
#include "app_cg_dbg/logging.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "vx_mom.h"

app_cg_db_state_t app_cg_db_state[3] = {{APP_CG_DB_HOST, 0}, {APP_CG_DB_CAP, 0}, {APP_CG_DB_DEV_GLOBAL, 0}};

namespace
{

constexpr char MODULE_FOLDER[] = "/etc/app_cg/deny_check/";
constexpr int32_t RECONNECT_COMPLETED = 2;
constexpr int EXIT_START_AFRESH = 77;

} // namespace

int32_t app_cg_deny_check_init()
{
    vx_global_t *global = g_app_cg_global.global;
    PDev__DpLibGrole grole = P_DEV__DP_LIB_GROLE__INIT;
    PDev__CardInfoIndex card_index = P_DEV__CARD_INFO_INDEX__INIT;
    PDev__CardInfo card = P_DEV__CARD_INFO__INIT;
    card.index = &card_index;
    PLibpub__AppCgCardCheckAckIndex ack_index = P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT;
    PLibpub__AppCgCardCheckAck ack = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
    ack.index = &ack_index;

    // A missing folder leaves the registry empty, and every card is admitted.
    app_cg_deny_check_init_wait_obj(&g_app_cg_global.wait_obj, MODULE_FOLDER);

    APP_CG_CHECK_RETURN(
        vx_mom_subscribe(global, APP_CG_DB_HOST, &grole.base, 0, app_cg_dp_grole_pmsg_f, nullptr));
    APP_CG_CHECK_RETURN(
        vx_mom_subscribe(global, APP_CG_DB_HOST, &card.base, 0, app_cg_install_node_pmsg_f, nullptr));
    if (g_app_cg_global.wait_obj.app_cg_wait_obj_num > 0) {
        APP_CG_CHECK_RETURN(
            vx_mom_subscribe(global, APP_CG_DB_HOST, &ack.base, 0, app_cg_check_ack_pmsg_f, nullptr));
    }
    return 0;
}

void app_cg_set_db_state(int32_t db, int32_t state)
{
    APP_CG_WARN("db %d state %d", db, state);
    for (app_cg_db_state_t &row : app_cg_db_state) {
        if (row.db == db) {
            row.state = state;
            APP_CG_INFO("db %d state %d match", db, state);
            return;
        }
    }
}

int32_t app_cg_is_all_db_connected()
{
    for (const app_cg_db_state_t &row : app_cg_db_state) {
        if (row.state == 0) {
            APP_CG_WARN("db %d not connected", row.db);
            return 0;
        }
    }
    APP_CG_WARN("all db connected");
    return 1;
}

int32_t app_cg_client_connect_db(void * /*first*/, int32_t db, void * /*second*/)
{
    APP_CG_WARN("db %d", db);
    app_cg_set_db_state(db, 1);
    if (app_cg_is_all_db_connected() == 1) {
        app_cg_db_validate();
    }
    APP_CG_WARN("leave");
    return 0;
}

int32_t app_cg_disconnect_db(void * /*first*/, int32_t db)
{
    APP_CG_WARN("enter db %d", db);
    app_cg_set_db_state(db, 0);
    return 0;
}

int32_t app_cg_reconnect_db(void * /*first*/, int32_t db, int32_t type)
{
    APP_CG_WARN("con change, db %d type %d", db, type);
    if (type != RECONNECT_COMPLETED) {
        std::exit(EXIT_START_AFRESH);
    }
    app_cg_set_db_state(db, 1);
    if (app_cg_is_all_db_connected() == 1) {
        app_cg_db_validate();
    }
    return 0;
}

int32_t app_cg_client_set_disconnect_cb(int32_t db)
{
    vx_global_t *global = g_app_cg_global.global;
    const int32_t rv = vx_mom_client_set_disconnect_cb(global, db, app_cg_disconnect_db, nullptr);
    if (rv != 0) {
        APP_CG_ERROR("vx_mom_client_set_disconnect_cb global %p type %d failed, rv %d",
                     static_cast<void *>(global), db, rv);
    }
    return rv;
}

int32_t app_cg_client_set_reconnect_cb(int32_t db)
{
    vx_global_t *global = g_app_cg_global.global;
    const int32_t rv = vx_mom_client_set_reconnect_cb(global, db, app_cg_reconnect_db, nullptr);
    if (rv != 0) {
        APP_CG_ERROR("vx_mom_client_set_reconnect_cb global %p type %d failed, rv %d",
                     static_cast<void *>(global), db, rv);
    }
    return rv;
}

int32_t app_cg_db_validate()
{
    APP_CG_WARN("enter");
    // What failed has been logged; it is made good at the next reconnection.
    app_cg_deny_check_init();
    APP_CG_WARN("leave");
    return 0;
}
