// The check request of a card and the time that its modules have to answer.
#ifndef APP_CG_CHECK_REQUEST_H
#define APP_CG_CHECK_REQUEST_H

#include <cstdint>

#include "app_cg/app_cg.h"

// Starts the card's check (start not 0: request written, timer armed) or ends it (0: request deleted, timer
// cancelled). Returns the store's result of the write or delete; -4 for a null node.
int32_t app_cg_noti_start_deny_info(CardNode *node, uint32_t start);

// Arms the card's timer. Returns 0; -11 when the event loop refused, and the card has no deadline then.
int32_t app_cg_check_add_slot_timer(CardNode *node);

// Cancels every timer that is still armed for the node, those included whose handle a later start
// overwrote. To be called before the node is freed: the timers carry it as their argument.
void app_cg_check_cancel_slot_timers(CardNode *node);

// Timer callback: the modules had their time, the card is admitted. Returns 0; -4 without event or node.
int32_t app_cg_pro_timeout_card(vx_thread_t *t);

#endif
