// The device's global role. A change of role publishes nothing: it only decides what the next event of a card
// may write.

#include "app_cg/global_role.h"

#include "app_cg/app_cg.h"
#include "app_cg/record_enum.h"
#include "app_cg/store_result.h"
#include "app_cg_dbg/logging.h"
#include "p_dev.pb-c.h"

int32_t app_cg_dp_grole_pro(const vx_mom_result_t *result)
{
    APP_CG_CHECK_STORE_RESULT(result);
    const auto *dp = reinterpret_cast<const PDev__DpLibGrole *>(result->record);
    if (dp == nullptr) {
        APP_CG_ERROR("dp NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    const int32_t my_grole = app_cg_enum_get(dp->my_grole);
    APP_CG_WARN("dp grole %d", my_grole);
    g_app_cg_global.grole = my_grole;
    APP_CG_INFO("leave");
    return 0;
}

int32_t app_cg_dp_grole_pmsg_f(void * /*arg*/, vx_mom_pmsg_t *pmsg)
{
    if (pmsg == nullptr) {
        APP_CG_ERROR("pmsg NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    switch (pmsg->cmd) {
    case VX_MOM_CMD_DELETED:
        APP_CG_ERROR("del"); // the last role stays in force
        return 0;
    case VX_MOM_CMD_SET:
    case VX_MOM_CMD_HMSET:
        APP_CG_CHECK_RETURN(app_cg_dp_grole_pro(pmsg->result));
        return 0;
    case VX_MOM_CMD_SUBSCRIBED: {
        const PDev__DpLibGrole key = P_DEV__DP_LIB_GROLE__INIT;
        vx_mom_result_t *result = vx_mom_hgetall_sync(g_app_cg_global.global, APP_CG_DB_HOST, &key.base);
        const int32_t rv = app_cg_dp_grole_pro(result);
        vx_mom_hash_res_free(result);
        if (rv != 0) {
            APP_CG_ERROR("failed,rv %d", rv);
            return rv;
        }
        g_app_cg_global.grole_ready = 1;
        return 0;
    }
    default:
        APP_CG_INFO("pmsg->cmd %d", pmsg->cmd);
        return 0;
    }
}
