// Cards joined from the databases.
//
// Whole types are read and joined here, because the store finds records by their complete key or by type
// only.
#include "cards/cards.h"

#include <array>
#include <string_view>

#include "admission/feed.h"
#include "p_libpub.pb-c.h"
#include "records/databases.h"
#include "records/position_key.h"
#include "records/record_types.h"
#include "s_dev.pb-c.h"

namespace cg
{

namespace
{

// The module name under which the admission daemon sets a card's custom status.
constexpr std::string_view daemon_name = "APP_CG";

// A card before what is about it: so what ends meanwhile is seen as ended.
constexpr std::array types{&p_dev__dp_lib_grole__descriptor,
                           &p_dev__card_info__descriptor,
                           &p_libpub__app_cg_card_check_info__descriptor,
                           &p_libpub__app_cg_card_check_ack__descriptor,
                           &p_libpub__app_cg_mom_deny_check_result__descriptor,
                           &p_libpub__app_cg_card_deny_check_result__descriptor,
                           &p_dev__dm_set_card_custom_st__descriptor,
                           &s_dev__im_card_power_onoff__descriptor};

bool says_pass(PLibpub__AppCgCardCheckStat stat)
{
    return stat == P_LIBPUB__APP_CG_CARD_CHECK_STAT__APP_CG_CHECK_PASS;
}

void add(Card &card, const PLibpub__AppCgCardCheckInfo & /*request*/)
{
    card.request = true;
}

void add(Card &card, const PLibpub__AppCgCardDenyCheckResult &result)
{
    card.by_position = says_pass(result.stat);
}

// Where several modules set a status, the admission daemon's counts.
void add(Card &card, const PDev__DmSetCardCustomSt &custom)
{
    if (!card.custom_status || custom.index->t_mod_name == daemon_name) {
        card.custom_status = custom.status;
    }
}

void add(Card &card, const SDev__ImCardPowerOnoff &power)
{
    card.power_off = card.power_off || power.updown == 0;
}

// Adds what the records of a type say to the cards at their positions.
template <typename Record>
void add_records(std::map<Position, Card> &cards, const std::vector<store::Record> &records)
{
    for (const store::Record &record : records) {
        const auto position = position_of(*record.message);
        if (const auto found = position ? cards.find(*position) : cards.end(); found != cards.end()) {
            add(found->second, reinterpret_cast<const Record &>(*record.message));
        }
    }
}

} // namespace

const char *Card::verdict() const
{
    return by_tipc ? (*by_tipc ? "passed" : "denied") : request ? "waiting" : "none";
}

StoredRecords read_records(Store &store)
{
    StoredRecords records;
    for (const ProtobufCMessageDescriptor *type : types) {
        const int32_t db = home_of(*type);
        const bool is_there = db == card_database || store.try_connect(db);
        records[type] = is_there ? store.scan(*type) : std::vector<store::Record>{};
    }
    return records;
}

std::vector<Position> requests_in(const StoredRecords &records)
{
    std::vector<Position> positions;
    for (const store::Record &record : records.at(&p_libpub__app_cg_card_check_info__descriptor)) {
        if (const auto position = position_of(*record.message)) {
            positions.push_back(*position);
        }
    }
    return positions;
}

std::map<Position, Card> cards_in(const StoredRecords &records)
{
    std::map<int32_t, bool> by_tipc;
    for (const store::Record &record : records.at(&p_libpub__app_cg_mom_deny_check_result__descriptor)) {
        const auto &result = reinterpret_cast<const PLibpub__AppCgMomDenyCheckResult &>(*record.message);
        if (result.index != nullptr) {
            by_tipc[result.index->card_tipc_nodeid] = says_pass(result.stat);
        }
    }
    std::map<Position, Card> cards;
    for (const store::Record &record : records.at(&p_dev__card_info__descriptor)) {
        if (const auto position = position_of(*record.message)) {
            Card &card = cards[*position];
            card.facts = admission::facts_of(*record.message);
            const auto result = by_tipc.find(card.facts.tipc_nodeid);
            card.by_tipc = result == by_tipc.end() ? std::nullopt : std::optional(result->second);
        }
    }
    add_records<PLibpub__AppCgCardCheckInfo>(cards,
                                             records.at(&p_libpub__app_cg_card_check_info__descriptor));
    add_records<PLibpub__AppCgCardDenyCheckResult>(
        cards, records.at(&p_libpub__app_cg_card_deny_check_result__descriptor));
    add_records<PDev__DmSetCardCustomSt>(cards, records.at(&p_dev__dm_set_card_custom_st__descriptor));
    add_records<SDev__ImCardPowerOnoff>(cards, records.at(&s_dev__im_card_power_onoff__descriptor));
    return cards;
}

} // namespace cg
