/* Reads the card that cgctl has plugged at 1/3/0, and publishes this device as one of three, the master. */
#include <stdio.h>

#include "p_dev.pb-c.h"
#include "vx_mom.h"
#include "vx_thread.h"

enum { HOST = 1 };

int main(void)
{
    vx_global_t *global = vx_global_init("exchange", NULL);
    if (global == NULL || vx_mom_client_connect_sync(global, HOST) != 0) {
        return 1;
    }

    PDev__CardInfoIndex position = P_DEV__CARD_INFO_INDEX__INIT;
    position.devid = 1;
    position.slotid = 3;
    PDev__CardInfo wanted = P_DEV__CARD_INFO__INIT;
    wanted.index = &position;
    vx_mom_result_t *found = vx_mom_hgetall_sync(global, HOST, &wanted.base);
    if (found == NULL || found->error_code != 0 || found->record == NULL) {
        return 1;
    }
    const PDev__CardInfo *card = (const PDev__CardInfo *)found->record;
    printf("%s %d %d\n", card->name, card->card_tipc_nodeid, card->static_info->node_type);
    vx_mom_hash_res_free(found);

    PDev__DpLibGrole role = P_DEV__DP_LIB_GROLE__INIT;
    role.dev_num = 3;
    role.my_grole = P_DEV__DM_ROLE_E__DM_ROLE_MASTER;
    const int32_t rv = vx_mom_set_sync(global, HOST, &role.base);
    vx_global_finish(global);
    return rv == 0 ? 0 : 1;
}
