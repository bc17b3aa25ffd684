// The check modules' answers, and the decision about a card.
#ifndef APP_CG_CHECK_ACK_H
#define APP_CG_CHECK_ACK_H

#include <cstdint>

#include "vx_mom.h"

// Subscription callback of p_libpub.app_cg_card_check_ack. Returns 0 when handled or ignored; -21 for a
// missing or failed store result; -4 for a missing part; -11 for an unknown card or module.
int32_t app_cg_check_ack_pmsg_f(void *arg, vx_mom_pmsg_t *pmsg);

#endif
