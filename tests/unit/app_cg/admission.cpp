// What happens to cards in the tests of admission. The callbacks are called as the store client would call
// them; going through subscriptions is left to the tests that are about whole lives.
#include "admission.h"

#include <cstdio>

#include "app_cg/card_install.h"
#include "app_cg/card_nodes.h"
#include "app_cg/check_ack.h"
#include "app_cg_dbg/logging.h"

namespace admission
{
namespace
{

int32_t count_node(CardNode * /*node*/, void *arg)
{
    ++*static_cast<std::size_t *>(arg);
    return 0;
}

int32_t note_position(CardNode *node, void *arg)
{
    const std::string name = text("%d/%d/%d", node->devid, node->slotid, node->sslotid);
    static_cast<std::vector<std::string> *>(arg)->push_back(name);
    return 0;
}

struct Wanted {
    Card card;
    CardNode *node;
};

int32_t match_position(CardNode *node, void *arg)
{
    auto *wanted = static_cast<Wanted *>(arg);
    const bool same = node->devid == wanted->card.devid && node->slotid == wanted->card.slotid &&
                      node->sslotid == wanted->card.sslotid;
    wanted->node = same ? node : nullptr;
    return same ? 1 : 0;
}

// Walks the table without leaving a trace.
void walk(app_cg_node_f callback, void *arg)
{
    const uint32_t verbosity = app_cg_verbosity;
    app_cg_verbosity = 0;
    app_cg_node_foreach(callback, arg);
    app_cg_verbosity = verbosity;
}

} // namespace

Card Card::online() const
{
    Card card = *this;
    card.is_online = true;
    return card;
}

Card Card::offline() const
{
    Card card = *this;
    card.is_online = false;
    return card;
}

Card Card::board() const
{
    Card card = *this;
    card.node_type = 2;
    return card;
}

records::CardRecord record_of(const Card &card)
{
    records::CardRecord record = records::card(card.devid, card.slotid, card.sslotid);
    record.type(card.config_dev_type).node_type(card.node_type).nodeid(card.card_nodeid).tipc(card.tipc_node);
    return card.is_online ? record.online() : record.offline();
}

int32_t card_written(const Card &card, int32_t cmd)
{
    records::CardRecord record = record_of(card);
    vx_mom_result_t result{0, &record.record()->base};
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = cmd;
    pmsg.result = &result;
    return app_cg_install_node_pmsg_f(nullptr, &pmsg);
}

int32_t card_deleted(const Card &card)
{
    records::CardRecord record = record_of(card);
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = VX_MOM_CMD_DELETED;
    pmsg.record = &record.record()->base;
    return app_cg_install_node_pmsg_f(nullptr, &pmsg);
}

int32_t acknowledged(const Card &card, const std::string &module, int32_t ret, const std::string &reason,
                     int32_t cmd)
{
    records::AckRecord record = records::ack(card.devid, card.slotid, card.sslotid, module);
    record.deny(reason).ret(ret);
    vx_mom_result_t result{0, &record.record()->base};
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = cmd;
    pmsg.result = &result;
    return app_cg_check_ack_pmsg_f(nullptr, &pmsg);
}

int32_t passed_by(const Card &card, const std::string &module)
{
    return acknowledged(card, module, 0);
}

int32_t denied_by(const Card &card, const std::string &module, const std::string &reason)
{
    return acknowledged(card, module, 1, reason);
}

void register_modules(const std::vector<std::string> &names)
{
    app_cg_wait_obj_t registry{};
    for (const std::string &name : names) {
        const auto index = static_cast<std::size_t>(registry.app_cg_wait_obj_num);
        std::snprintf(registry.app_cg_wait_obj_name[index], APP_CG_WAIT_OBJ_NAME_LEN, "%s", name.c_str());
        registry.app_cg_wait_obj_bmp |= 1U << index;
        ++registry.app_cg_wait_obj_num;
    }
    g_app_cg_global.wait_obj = registry;
}

void become(int32_t role)
{
    g_app_cg_global.grole = role;
}

CardNode *node_of(const Card &card)
{
    Wanted wanted{card, nullptr};
    walk(match_position, &wanted);
    return wanted.node;
}

std::size_t node_count()
{
    std::size_t count = 0;
    walk(count_node, &count);
    return count;
}

std::vector<std::string> table()
{
    std::vector<std::string> positions;
    walk(note_position, &positions);
    return positions;
}

void look_inside(const std::string &function, const Card &card, std::vector<std::string> *seen)
{
    recording::script_action(function, [function, card, seen] {
        const CardNode *node = node_of(card);
        seen->push_back(function + (node == nullptr
                                        ? ": no node"
                                        : text(": stat %d reported %d", node->stat, node->reported)));
    });
}

void AdmissionTest::SetUp()
{
    DaemonTest::SetUp();
    become(1);
    register_modules({"m1", "m2", "m3"});
    recording::take();
}

void EveryVerbosity::SetUp()
{
    AdmissionTest::SetUp();
    app_cg_verbosity = GetParam();
}

Journal EveryVerbosity::heard(std::initializer_list<Journal> parts) const
{
    return heard_at(GetParam(), join(parts));
}

std::string verbosity_name(const testing::TestParamInfo<uint32_t> &info)
{
    return info.param == 0xffffffffU ? "VMinus1" : "V" + std::to_string(info.param);
}

} // namespace admission
