// The device around the daemon, as it writes into the store: the device manager, and the check modules.
#ifndef SIM_CHASSIS_H
#define SIM_CHASSIS_H

#include <string>

#include "played_modules.h"
#include "records/new_card.h"
#include "scenario.h"
#include "store/client.h"

namespace cg
{

// Throws Failure, "cannot WHAT: the client's reason", when a call has failed; of wrong usage when the
// settings are of no use.
void require(const store::Status &status, const std::string &what);

// Each function throws Failure when the store refuses or does not answer.
class Chassis
{
public:
    // The client lives longer.
    explicit Chassis(store::Client &client) : client_(client) {}

    // Whether there is a card's information at the position.
    [[nodiscard]] bool has_card(const Position &position);
    // Writes a card's information, in place of an earlier one.
    void plug(const NewCard &card);
    // Switches the card there online or offline, or deletes its information.
    void change(const Position &position, scenario::Move move);
    // Writes this device's global role.
    void set_role(PDev__DmRoleE role);
    // Unless the request is gone: a late answer would count as the reply to the card's next request.
    void answer(const DueAnswer &answer);
    // Deletes the requests to power the card off: nobody acts on them here, and one that is left would
    // count as the next card's.
    void forget_power_off(const Position &position);

private:
    store::Client &client_;
};

} // namespace cg

#endif
