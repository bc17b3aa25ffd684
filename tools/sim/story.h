// What happens in a play, as events to report.
#ifndef SIM_STORY_H
#define SIM_STORY_H

#include <protobuf-c/protobuf-c.h>

#include <optional>
#include <string>

#include "admission/card_tracker.h"
#include "base/json.h"
#include "base/terminal.h"
#include "expectation.h"

namespace cg
{

struct Event {
    std::string kind{}; // one word, for programs
    std::optional<Position> card{};
    std::string text{}; // for people; empty: nothing that they need to read
    Tone tone = Tone::plain;
    Json more = Json::object(); // further members, for programs
};

// What a record that was written, or deleted, means; nothing when it is not worth reporting. `tracker` is as
// it was before the change.
std::optional<Event> event_of(bool deleted, const ProtobufCMessage &record,
                              const admission::CardTracker &tracker);

// A check has ended.
Event event_of(const admission::Decision &decision);

// An expectation was decided. For people only when it was missed: those that held stand in the table.
Event event_of(const ExpectationResult &result);

} // namespace cg

#endif
