// The card node table: one node for every card position heard of since the daemon started.
#ifndef APP_CG_CARD_NODES_H
#define APP_CG_CARD_NODES_H

#include <cstdint>

#include "app_cg/app_cg.h"

// Called for each node; a result other than 0 ends the walk. The node may be deleted meanwhile.
using app_cg_node_f = int32_t (*)(CardNode *node, void *arg);

// Makes a list head empty.
void app_cg_node_list_init(app_cg_list_t *head);

// Returns the first node of this position, or null. The pointer is good until the callback returns.
CardNode *app_cg_node_pos_search(int32_t devid, int32_t slotid, int32_t sslotid);

// Inserts a node made from the template, with the module registry copied into it. Returns the node, owned
// by the list; null when memory runs out.
CardNode *app_cg_node_init(CardNode templ, app_cg_list_t *head);

// Frees the first node of this position, if there is one. Its timers must have been cancelled. Returns 0.
int32_t app_cg_node_del(int32_t devid, int32_t slotid, int32_t sslotid);

// Logs a node, when traces are on.
void app_cg_dump_node(CardNode node);

// Prints a node to standard output. Returns what printf returned.
int32_t app_cg_print_node(CardNode node);

// Logs each node and calls back with it, in list order. A null callback does nothing.
void app_cg_node_foreach(app_cg_node_f callback, void *arg);

// Logs and prints the whole table. Returns 0.
int32_t app_cg_dump_all_node();

#endif
