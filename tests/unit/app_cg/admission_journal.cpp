// What the daemon shall say about cards, typed out once. The texts are not taken from the daemon's headers:
// a wrong text there has to be wrong here too before a test lets it through.
#include <cstdarg>
#include <cstdio>

#include "admission.h"

namespace admission
{
namespace
{

std::string log_line(int32_t level, const std::string &function, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp " + function + ": " + line;
}

// A field as the journal shows it: nothing when it is at its default.
std::string field(const std::string &name, int32_t value)
{
    return value == 0 ? "" : name + "=" + std::to_string(value) + " ";
}

std::string trimmed(std::string line)
{
    while (!line.empty() && line.back() == ' ') {
        line.pop_back();
    }
    return line;
}

std::string node_type_field(int32_t node_type)
{
    static const char *const names[] = {"",
                                        "DM_TYPE_BOX",
                                        "DM_TYPE_MB",
                                        "DM_TYPE_LC",
                                        "DM_TYPE_SUB_LC",
                                        "DM_TYPE_SFC",
                                        "DM_TYPE_MSC",
                                        "DM_TYPE_HPSC"};
    if (node_type > 0 && node_type < 8) {
        return std::string("node_type=") + names[node_type];
    }
    return trimmed(field("node_type", node_type));
}

// What two parts of a record look like one after the other.
std::string fields(std::initializer_list<std::string> parts)
{
    std::string all;
    for (const std::string &part : parts) {
        all += part.empty() ? "" : trimmed(part) + " ";
    }
    return trimmed(all);
}

std::string stored(int32_t stat)
{
    return stat == 1 ? "stat=APP_CG_CHECK_PASS" : "";
}

std::string mom_trace(const Card &card, int32_t stat, const char *op)
{
    return text("update dev[%d] slot[%d] sslot[%d], stat[%d] op[%s], node_type[%d] tipc_nodeid[%d|0x%x]",
                card.devid, card.slotid, card.sslotid, stat, op, card.node_type, card.tipc_node,
                static_cast<uint32_t>(card.tipc_node));
}

std::string card_trace(const Card &card, int32_t stat, const char *op)
{
    return text("update dev[%d] slot[%d] sslot[%d], stat[%d] op[%s], node_type[%d], card_nodeid[%d|0x%x] "
                "config_dev_type[%d]",
                card.devid, card.slotid, card.sslotid, stat, op, card.node_type, card.card_nodeid,
                static_cast<uint32_t>(card.card_nodeid), card.config_dev_type);
}

std::string dev_trace(const Card &card, int32_t stat, const char *op)
{
    return text("update dev[%d] slot[%d] sslot[%d], stat[%d] op[%s]", card.devid, card.slotid, card.sslotid,
                stat, op);
}

// The text of a removal: which verdict went, by the flag.
const char *verdict(int32_t flag)
{
    return flag == 0 ? "pass" : "deny";
}

bool removes(int32_t flag, int32_t stat)
{
    return (flag == 0 && stat == 1) || (flag == 1 && stat == 2);
}

} // namespace

std::string fatal(const std::string &function, const std::string &text)
{
    return log_line(120, function, text);
}

std::string error(const std::string &function, const std::string &text)
{
    return log_line(100, function, text);
}

std::string warn(const std::string &function, const std::string &text)
{
    return log_line(80, function, text);
}

std::string notice(const std::string &function, const std::string &text)
{
    return log_line(60, function, text);
}

std::string info(const std::string &function, const std::string &text)
{
    return log_line(40, function, text);
}

Journal join(std::initializer_list<Journal> parts)
{
    Journal all;
    for (const Journal &part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::string text(const char *format, ...)
{
    char buffer[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

std::string dump_text(const CardNode &node)
{
    return text("node[0x%08x] config_dev_type[%d] devid[%d] slotid[%d] sslotid[%d] is_online[%d] "
                "tipc_node[%d] node_type[%d], dm_install[%d] reported[%d] reason[%s] stat[%d] "
                "app_cg_wait_obj_num[%d] app_cg_wait_obj_bmp[%u] timer[%p]\n",
                static_cast<uint32_t>(node.node), node.config_dev_type, node.devid, node.slotid, node.sslotid,
                node.is_online, node.tipc_node, node.node_type, node.dm_install, node.reported, node.reason,
                node.stat, node.wait_obj.app_cg_wait_obj_num, node.wait_obj.app_cg_wait_obj_bmp,
                static_cast<void *>(node.timer));
}

Journal dumped(const CardNode &node)
{
    return {info("app_cg_dump_node", dump_text(node))};
}

CardNode fresh_node(const Card &card)
{
    CardNode node{};
    node.node = card.card_nodeid;
    node.config_dev_type = card.config_dev_type;
    node.devid = card.devid;
    node.slotid = card.slotid;
    node.sslotid = card.sslotid;
    node.is_online = card.is_online ? 1 : 0;
    node.node_type = card.node_type;
    node.tipc_node = card.tipc_node;
    node.dm_install = 1;
    node.wait_obj = g_app_cg_global.wait_obj;
    return node;
}

Journal found(const Card &card, int32_t nodeid)
{
    return {notice("app_cg_node_pos_search", text("node:0x%x, config_dev_type:%d\r\n",
                                                  static_cast<uint32_t>(nodeid), card.config_dev_type))};
}

Journal found(const Card &card)
{
    return found(card, card.card_nodeid);
}

Journal created(const Card &card)
{
    CardNode templ{};
    templ.devid = card.devid;
    templ.slotid = card.slotid;
    templ.sslotid = card.sslotid;
    return join(
        {{notice("app_cg_node_init", "enter")}, dumped(templ), {notice("app_cg_node_init", "leave")}});
}

std::string position(const Card &card)
{
    return trimmed(field("devid", card.devid) + field("slotid", card.slotid) +
                   field("sslotid", card.sslotid));
}

std::string mom_key(const Card &card)
{
    return "index={" + trimmed(field("card_tipc_nodeid", card.tipc_node)) + "}";
}

std::string card_key(const Card &card)
{
    return "index={" + position(card) + "}";
}

std::string dev_key(const Card &card)
{
    const std::string where =
        field("t_devid", card.devid) + field("t_slotid", card.slotid) + field("t_sslotid", card.sslotid);
    return "index={" + where + R"(t_mod_name="APP_CG" t_reason="not compatible"})";
}

std::string request_key(const Card &card)
{
    return "p_libpub.app_cg_card_check_info{" + card_key(card) + "}";
}

Journal mom_result_set(const Card &card, int32_t stat)
{
    const std::string record = fields({mom_key(card), stored(stat), node_type_field(card.node_type)});
    return {info("app_cg_update_mom_check_result", mom_trace(card, stat, "SET")),
            "vx_mom_set(1, p_libpub.app_cg_mom_deny_check_result{" + record + "})",
            info("app_cg_update_mom_check_result", "leave")};
}

Journal mom_result_deleted(const Card &card, int32_t stat)
{
    return {info("app_cg_update_mom_check_result", mom_trace(card, stat, "DEL")),
            "vx_mom_del(1, p_libpub.app_cg_mom_deny_check_result{" + mom_key(card) + "})",
            info("app_cg_update_mom_check_result", "leave")};
}

Journal card_result_set(const Card &card, int32_t stat)
{
    const std::string record =
        fields({card_key(card), stored(stat), field("config_dev_type", card.config_dev_type),
                field("card_nodeid", card.card_nodeid)});
    return {info("app_cg_update_card_check_result", card_trace(card, stat, "SET")),
            "vx_mom_hmset(28, p_libpub.app_cg_card_deny_check_result{" + record + "}, [6 7 8])",
            info("app_cg_update_card_check_result", "leave")};
}

Journal card_result_deleted(const Card &card, int32_t stat)
{
    return {info("app_cg_update_card_check_result", card_trace(card, stat, "DEL")),
            "vx_mom_del(28, p_libpub.app_cg_card_deny_check_result{" + card_key(card) + "})",
            info("app_cg_update_card_check_result", "leave")};
}

Journal dev_status_set(const Card &card)
{
    return {info("app_cg_update_dev_check_result", dev_trace(card, 2, "SET")),
            "vx_mom_set(33, p_dev.dm_set_card_custom_st{" + dev_key(card) +
                " level=DM_CTM_APP_CG status=CANNOT_STARTUP})",
            info("app_cg_update_dev_check_result", "leave")};
}

Journal dev_status_deleted(const Card &card, int32_t stat, int32_t op)
{
    return {info("app_cg_update_dev_check_result", dev_trace(card, stat, op == 0 ? "DEL" : "SET")),
            "vx_mom_del(33, p_dev.dm_set_card_custom_st{" + dev_key(card) + "})",
            info("app_cg_update_dev_check_result", "leave")};
}

Journal all_passed(const Card &card)
{
    return join({mom_result_set(card, 1), card_result_set(card, 1), dev_status_deleted(card, 1, 1)});
}

Journal all_denied(const Card &card)
{
    return join({mom_result_set(card, 2), card_result_set(card, 2), dev_status_set(card)});
}

Journal refused(const Journal &lines, const std::string &function, int32_t role)
{
    return {lines.front(), warn(function, text("not master, no need to pro, role %d", role))};
}

Journal mom_result_removed(const Card &card, int32_t flag, int32_t stat)
{
    const std::string function = "app_cg_del_mom_check_result";
    Journal lines = join(
        {{info(function, text("del check result devid: %d, slotid: %d, sslotid: %d, tipc_nodeid: %d,flag: %d",
                              card.devid, card.slotid, card.sslotid, card.tipc_node, flag))},
         found(card),
         {info(function, text("node state :%d, flag:%d", stat, flag))}});
    if (removes(flag, stat)) {
        lines.push_back("vx_mom_del(1, p_libpub.app_cg_mom_deny_check_result{" + mom_key(card) + "})");
        lines.push_back(
            warn(function, text("del mom check result %s dev[%d] slot[%d] sslot[%d] card_tipc_nodeid[%d]",
                                verdict(flag), card.devid, card.slotid, card.sslotid, card.tipc_node)));
    }
    return lines;
}

Journal card_result_removed(const Card &card, int32_t flag, int32_t stat)
{
    const std::string function = "app_cg_del_card_check_result";
    Journal lines = join({{info(function, text("del check result devid: %d, slotid: %d, sslotid: %d,flag: %d",
                                               card.devid, card.slotid, card.sslotid, flag))},
                          found(card),
                          {info(function, text("node state :%d, flag :%d", stat, flag))}});
    if (removes(flag, stat)) {
        lines.push_back("vx_mom_del(28, p_libpub.app_cg_card_deny_check_result{" + card_key(card) + "})");
        lines.push_back(warn(function, text("del card check result %s dev[%d] slot[%d]", verdict(flag),
                                            card.devid, card.slotid)));
    }
    return lines;
}

Journal ack_deleted(const Card &card, const std::string &module)
{
    const std::string function = "app_cg_del_check_ack";
    const std::string index =
        trimmed(field("devid", card.devid) + field("slotid", card.slotid) + field("t_sslotid", card.sslotid) +
                (module.empty() ? "" : "mod_name=\"" + module + "\""));
    return {info(function, text("del dev[%d] slot[%d] sslot[%d], mod_name[%s], batch[0]", card.devid,
                                card.slotid, card.sslotid, module.c_str())),
            "vx_mom_del(1, p_libpub.app_cg_card_check_ack{index={" + index + "}})", info(function, "leave")};
}

Journal acks_deleted(const Card &card)
{
    const std::string function = "app_cg_del_check_ack";
    const std::string index =
        trimmed(field("devid", card.devid) + field("slotid", card.slotid) + field("t_sslotid", card.sslotid));
    return {info(function, text("del dev[%d] slot[%d] sslot[%d], mod_name[], batch[1]", card.devid,
                                card.slotid, card.sslotid)),
            "vx_mom_pdel(1, p_libpub.app_cg_card_check_ack{index={" + index + "}}, 3)",
            info(function, "leave")};
}

Journal check_started(const CardNode &node, const std::string &timer)
{
    const std::string function = "app_cg_noti_start_deny_info";
    const Card card{node.devid, node.slotid, node.sslotid};
    const std::string record = fields({card_key(card), field("type", node.config_dev_type),
                                       node_type_field(node.node_type), field("card_nodeid", node.node)});
    return join({dumped(node),
                 {info(function, text("enter devid[%d] slotid[%d] sslotid[%d]start 1", node.devid,
                                      node.slotid, node.sslotid)),
                  "vx_mom_hmset(1, p_libpub.app_cg_card_check_info{" + record + "}, [6 7 8])",
                  "vx_thread_add_timer(300.000000) = " + timer, info(function, "leave")}});
}

Journal check_ended(const CardNode &node, const std::string &timer)
{
    const std::string function = "app_cg_noti_start_deny_info";
    const Card card{node.devid, node.slotid, node.sslotid};
    Journal lines = join({dumped(node),
                          {info(function, text("enter devid[%d] slotid[%d] sslotid[%d]start 0", node.devid,
                                               node.slotid, node.sslotid)),
                           "vx_mom_del(1, " + request_key(card) + ")"}});
    if (!timer.empty()) {
        lines.push_back("vx_thread_cancel(" + timer + ")");
    }
    lines.push_back(info(function, "leave"));
    return lines;
}

} // namespace admission
