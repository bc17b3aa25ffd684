// What happens to cards, and to what is needed to know of them, as plain data.
#ifndef CARDS_EVENT_H
#define CARDS_EVENT_H

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "admission/decision.h"

namespace cg
{

struct CardChange {
    enum class Kind { plugged, changed, online, offline, pulled };
    Kind kind = Kind::plugged;
    admission::CardFacts card{}; // as it now is
};
struct Asked {
    std::vector<std::string> modules{};
};
struct PowerChange {
    bool off = false; // a request to power the card off stands
};
struct RoleChange {
    std::optional<int32_t> role{}; // of this device; nothing: not known
};
struct StoreChange {
    int32_t db = 0;
    bool connected = false;
    bool same_data = false; // of a store that is back: with what it had
    std::string problem{};  // why it is lost
    std::string server{};   // its endpoint, where there are several; else empty
};
struct DaemonChange {
    bool answers = false;
    std::string problem{}; // why not
};
struct RecorderChange {
    bool at_work = false;
    admission::Time alive_at{}; // its last heartbeat
};
// Whether the recorder's file can be read.
struct HistoryChange {
    std::string problem{}; // why not; empty: it can
};

struct Event {
    admission::Time at{};
    std::optional<admission::Position> position{}; // nothing for what is not about a card
    std::string name{};                            // the card's, as it wrote it
    bool meanwhile = false;                        // it happened while the store was away, or before
    std::variant<CardChange, Asked, admission::Answer, admission::Decision, PowerChange, RoleChange,
                 StoreChange, DaemonChange, RecorderChange, HistoryChange>
        what{};
};

} // namespace cg

#endif
