// The records that a module reads and writes.
//
// Apart from the module, so that the generated structures show in one file.
#ifndef KIT_RECORDS_H
#define KIT_RECORDS_H

#include <optional>
#include <string>

#include "core/facts.h"
#include "vx_mom.h"

namespace kit
{

inline constexpr int32_t database = 1; // of everything here

// Subscribe to every check request, or to every card's information. Return what vx_mom_subscribe() returns.
int32_t subscribe_requests(vx_global_t *context, vx_mom_pmsg_f callback, void *arg);
int32_t subscribe_cards(vx_global_t *context, vx_mom_pmsg_f callback, void *arg);

// A notification of them: the record's content, and whether it exists. Nothing when it is about no record;
// then `error` is negative when the store could not deliver one.
struct Told {
    Facts facts;
    bool present = false;
};
std::optional<Told> request_told(const vx_mom_pmsg_t &message, int32_t &error);
std::optional<Told> card_told(const vx_mom_pmsg_t &message, int32_t &error);

// Adds the device manager's information about the card; leaves the facts without when there is none. Returns
// 0, or negative when the store failed.
int32_t read_info(vx_global_t *context, Facts &facts);

// Whether this very request stands: 1, 0 when it does not, negative when the store failed.
int32_t stands(vx_global_t *context, const Request &request);

// Writes a module's answer. Returns 0, or negative when the store did not take it.
int32_t write_answer(vx_global_t *context, const Position &position, const std::string &module, bool pass,
                     const std::string &reason);

} // namespace kit

#endif
