// What is known of one position, for who shows it.
#ifndef ADMISSION_TRACKED_CARD_H
#define ADMISSION_TRACKED_CARD_H

#include "admission/state.h"

namespace admission
{

struct TrackedCard {
    CardFacts card{}; // only its position counts in State::absent
    State state = State::absent;
    std::optional<Time> since{}; // when it came to be so; nothing when that was before we listened
    bool request = false;        // a check request stands; it may outlast its check
    bool open = false;           // a check is not decided
    std::optional<Time> requested_at{};
    Write asked{};                          // the last request
    std::vector<std::string> waiting_for{}; // in the order of the modules' folder
    bool any_will_do = false;               // the PASS of any module admits it: nobody is left on the list
    std::vector<Answer> answers{};          // to the last request
    std::optional<Decision> last{};         // the last check that ended
    bool explained = false; // `last` is how it came to the result that stands, and so to the state
    std::string decider{};  // whose answer led to the result that stands; empty: nobody's, or the result does
                            // not say
    bool denied = false;    // now, or when it went offline; the denial stands
    bool power_off = false; // a request to power it off stands
    bool cannot_start = false; // the daemon marked it as unable to start
};

} // namespace admission

#endif
