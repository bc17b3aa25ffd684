// Clean-up of backup card records whose card information exists.
#ifndef APP_CG_BACKUP_CARDS_H
#define APP_CG_BACKUP_CARDS_H

#include <cstdint>

#include "vx_mom.h"

// Scan callback of p_libpub.app_cg_card_bak_info. Returns 0 when handled or ignored; -4 for a missing part;
// -11 when the existence probe failed; the store's result when the deletion failed.
int32_t app_cg_scan_bak_card_info(void *arg, vx_mom_pmsg_t *pmsg);

#endif
