// Card information as it comes from the store: cards arrive, go on line and off line, and leave.
#ifndef APP_CG_CARD_INSTALL_H
#define APP_CG_CARD_INSTALL_H

#include <cstdint>

#include "vx_mom.h"

// Subscription callback of p_dev.card_info. Returns 0 when handled or ignored; -4 for a missing part; -21
// for a missing or failed store result; -11 when no node could be made; a failed scan's result.
int32_t app_cg_install_node_pmsg_f(void *arg, vx_mom_pmsg_t *pmsg);

#endif
