// The card node table: a circular list with a sentinel head, one heap block for each node.
//
// A map keyed by position was the alternative; but the order of the printed table is part of what operators
// know, and it is made by where nodes are inserted. A chassis has few cards, so every walk is short.

#include "app_cg/card_nodes.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "app_cg_dbg/logging.h"

namespace
{

struct CardNodeEntry {
    app_cg_list_t links;
    CardNode card;
};

CardNodeEntry *entry_of(app_cg_list_t *links)
{
    return reinterpret_cast<CardNodeEntry *>(links);
}

CardNodeEntry *entry_of(CardNode *card)
{
    return reinterpret_cast<CardNodeEntry *>(reinterpret_cast<char *>(card) - offsetof(CardNodeEntry, card));
}

void insert_before(app_cg_list_t *links, app_cg_list_t *point)
{
    links->next = point;
    links->prev = point->prev;
    point->prev->next = links;
    point->prev = links;
}

void unlink(app_cg_list_t *links)
{
    links->prev->next = links->next;
    links->next->prev = links->prev;
}

// The first entry whose node id is greater, or the head. New cards come with node id 0, so they queue up in
// front of the first positive one.
app_cg_list_t *insertion_point(app_cg_list_t *head, int32_t node)
{
    app_cg_list_t *links = head->next;
    while (links != head && entry_of(links)->card.node <= node) {
        links = links->next;
    }
    return links;
}

#define APP_CG_NODE_LINE                                                                                     \
    "node[0x%08x] config_dev_type[%d] devid[%d] slotid[%d] sslotid[%d] is_online[%d] tipc_node[%d] "         \
    "node_type[%d], dm_install[%d] reported[%d] reason[%s] stat[%d] app_cg_wait_obj_num[%d] "                \
    "app_cg_wait_obj_bmp[%d] timer[%p]\n"

#define APP_CG_NODE_VALUES(card)                                                                             \
    static_cast<uint32_t>((card).node), (card).config_dev_type, (card).devid, (card).slotid, (card).sslotid, \
        (card).is_online, (card).tipc_node, (card).node_type, (card).dm_install, (card).reported,            \
        (card).reason, (card).stat, (card).wait_obj.app_cg_wait_obj_num,                                     \
        static_cast<int32_t>((card).wait_obj.app_cg_wait_obj_bmp), static_cast<void *>((card).timer)

} // namespace

void app_cg_node_list_init(app_cg_list_t *head)
{
    head->next = head;
    head->prev = head;
}

CardNode *app_cg_node_pos_search(int32_t devid, int32_t slotid, int32_t sslotid)
{
    app_cg_list_t *head = &g_app_cg_global.card_nodes;
    for (app_cg_list_t *links = head->next; links != head; links = links->next) {
        CardNode &card = entry_of(links)->card;
        if (card.devid == devid && card.slotid == slotid && card.sslotid == sslotid) {
            APP_CG_NOTICE("node:0x%x, config_dev_type:%d\r\n", static_cast<uint32_t>(card.node),
                          card.config_dev_type);
            return &card;
        }
    }
    return nullptr;
}

// By value: the daemon's callers hand over a template, never a node of the table.
CardNode *app_cg_node_init(CardNode templ, app_cg_list_t *head)
{
    APP_CG_NOTICE("enter");
    app_cg_dump_node(templ);

    void *block = std::malloc(sizeof(CardNodeEntry));
    if (block == nullptr) {
        APP_CG_ERROR("new_node malloc failed");
        return nullptr;
    }
    auto *entry = new (block) CardNodeEntry{};
    entry->card = templ;
    entry->card.wait_obj = g_app_cg_global.wait_obj;
    insert_before(&entry->links, insertion_point(head, templ.node));

    APP_CG_NOTICE("leave");
    return &entry->card;
}

int32_t app_cg_node_del(int32_t devid, int32_t slotid, int32_t sslotid)
{
    APP_CG_NOTICE("devid[%d] slotid[%d] sslotid[%d]", devid, slotid, sslotid);
    CardNode *node = app_cg_node_pos_search(devid, slotid, sslotid);
    if (node != nullptr) {
        CardNodeEntry *entry = entry_of(node);
        unlink(&entry->links);
        std::free(entry);
    }
    APP_CG_NOTICE("leave");
    return 0;
}

void app_cg_dump_node(CardNode node)
{
    APP_CG_INFO(APP_CG_NODE_LINE, APP_CG_NODE_VALUES(node));
}

int32_t app_cg_print_node(CardNode node)
{
    return std::printf(APP_CG_NODE_LINE, APP_CG_NODE_VALUES(node));
}

void app_cg_node_foreach(app_cg_node_f callback, void *arg)
{
    if (callback == nullptr) {
        return;
    }
    app_cg_list_t *head = &g_app_cg_global.card_nodes;
    app_cg_list_t *next = nullptr;
    for (app_cg_list_t *links = head->next; links != head; links = next) {
        next = links->next; // the callback may delete the node
        CardNode *node = &entry_of(links)->card;
        app_cg_dump_node(*node);
        if (callback(node, arg) != 0) {
            return;
        }
    }
}

int32_t app_cg_dump_all_node()
{
    std::puts("===================CURRENT_NODE_INFO===================");
    const app_cg_list_t *head = &g_app_cg_global.card_nodes;
    for (app_cg_list_t *links = head->next; links != head; links = links->next) {
        app_cg_dump_node(entry_of(links)->card);
        app_cg_print_node(entry_of(links)->card);
    }
    return 0;
}
