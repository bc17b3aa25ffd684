// The vocabulary of the admission tests: cards, what happens to them, and the journal that must follow.
//
// A test states the journal of the talkative daemon and lets heard() leave out what a verbosity hides. The
// alternative, one journal per verbosity, would repeat every text six times and hide which one differs.
#ifndef ADMISSION_H
#define ADMISSION_H

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "app_cg/app_cg.h"
#include "fixture.h"
#include "recording_platform/recording_platform.h"

namespace admission
{

using Journal = std::vector<std::string>;

// ---- what the tests say ----

// A card as the device manager describes it. No field is 0, so that the journal shows all of them.
struct Card {
    int32_t devid = 1;
    int32_t slotid = 3;
    int32_t sslotid = 2;
    int32_t config_dev_type = 17;
    int32_t node_type = 3; // a line card
    int32_t card_nodeid = 0x21;
    int32_t tipc_node = 0x1001;
    bool is_online = true;

    Card online() const;
    Card offline() const;
    Card board() const; // the same position with a main board in it
};

// The card's record, for tests that take a part away or deliver it themselves.
records::CardRecord record_of(const Card &card);

// A written record with this card arrives. Returns the callback's result.
int32_t card_written(const Card &card, int32_t cmd = VX_MOM_CMD_SET);

// The card's record was deleted. Returns the callback's result.
int32_t card_deleted(const Card &card);

// A module answers. Returns the callback's result.
int32_t acknowledged(const Card &card, const std::string &module, int32_t ret, const std::string &reason = "",
                     int32_t cmd = VX_MOM_CMD_SET);
int32_t passed_by(const Card &card, const std::string &module);
int32_t denied_by(const Card &card, const std::string &module, const std::string &reason);

// The registry from now on, as a rescan of the folder would leave it.
void register_modules(const std::vector<std::string> &names);

// The role from now on.
void become(int32_t role);

// The node of the card's position, or null; leaves nothing in the journal.
CardNode *node_of(const Card &card);

// How many nodes the table holds; leaves nothing in the journal.
std::size_t node_count();

// The positions in table order, e.g. "1/3/2"; leaves nothing in the journal.
std::vector<std::string> table();

// Looks at the card from inside the next call of a platform function, and appends what it finds to `seen`,
// which must live until then: "vx_mom_set: stat 0 reported 0". Leaves nothing in the journal. Looking again
// at the same function means the call after that.
void look_inside(const std::string &function, const Card &card, std::vector<std::string> *seen);

// ---- what the journal shall say ----

std::string fatal(const std::string &function, const std::string &text);
std::string error(const std::string &function, const std::string &text);
std::string warn(const std::string &function, const std::string &text);
std::string notice(const std::string &function, const std::string &text);
std::string info(const std::string &function, const std::string &text);

Journal join(std::initializer_list<Journal> parts);

// printf into a string.
std::string text(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The line of a node in dumps.
std::string dump_text(const CardNode &node);
Journal dumped(const CardNode &node);

// A node as the install callback leaves it for this card, with the registry as it stands now.
CardNode fresh_node(const Card &card);

// The search's own message when it finds the card.
Journal found(const Card &card, int32_t nodeid);
Journal found(const Card &card);

// A node is made for the card's position, which is all that it knows at first.
Journal created(const Card &card);

// The operations on results, each with its traces. `stat` and `op` as passed to the operation.
Journal mom_result_set(const Card &card, int32_t stat);
Journal mom_result_deleted(const Card &card, int32_t stat);
Journal card_result_set(const Card &card, int32_t stat);
Journal card_result_deleted(const Card &card, int32_t stat);
Journal dev_status_set(const Card &card);
Journal dev_status_deleted(const Card &card, int32_t stat, int32_t op);
Journal all_passed(const Card &card);
Journal all_denied(const Card &card);

// A gated writer's lines on a device that is not the master: its first trace and the refusal.
Journal refused(const Journal &lines, const std::string &function, int32_t role);

// The conditional removers, for a card that is in the table.
Journal mom_result_removed(const Card &card, int32_t flag, int32_t stat);
Journal card_result_removed(const Card &card, int32_t flag, int32_t stat);

Journal ack_deleted(const Card &card, const std::string &module);
Journal acks_deleted(const Card &card);

// The check request comes and goes; `node` is the node at that moment. An empty timer: none is cancelled.
Journal check_started(const CardNode &node, const std::string &timer);
Journal check_ended(const CardNode &node, const std::string &timer);

// Records of the journal.
std::string position(const Card &card);
std::string mom_key(const Card &card);
std::string card_key(const Card &card);
std::string dev_key(const Card &card);
std::string request_key(const Card &card);

// ---- test classes ----

// The daemon as master with the modules m1, m2, m3 and an empty journal, at the default verbosity.
class AdmissionTest : public DaemonTest
{
protected:
    void SetUp() override;
};

// The same at each verbosity that makes a difference; -1 is stored as the unsigned number that it becomes.
class EveryVerbosity : public AdmissionTest, public testing::WithParamInterface<uint32_t>
{
protected:
    void SetUp() override;

    // The journal that `lines` come down to at this verbosity.
    Journal heard(std::initializer_list<Journal> parts) const;
};

inline auto every_verbosity()
{
    return testing::Values(0U, 1U, 2U, 3U, 4U, 0xffffffffU);
}

std::string verbosity_name(const testing::TestParamInfo<uint32_t> &info);

} // namespace admission

#endif
