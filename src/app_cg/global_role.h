// The device's global role, as the store tells it.
#ifndef APP_CG_GLOBAL_ROLE_H
#define APP_CG_GLOBAL_ROLE_H

#include <cstdint>

#include "vx_mom.h"

// Subscription callback of p_dev.dp_lib_grole. Returns 0; -4 for a missing part; -21 for a missing or
// failed store result.
int32_t app_cg_dp_grole_pmsg_f(void *arg, vx_mom_pmsg_t *pmsg);

// Takes the role from a store result. Returns 0, -21 or -4 as above, with the role unchanged.
int32_t app_cg_dp_grole_pro(const vx_mom_result_t *result);

#endif
