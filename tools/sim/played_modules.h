// The check modules that a scenario plays: who answers what to which request.
//
// No clock and no store: what is to be written, and after what time, is handed back. A module answers each
// request once, also when the store reports the request again.
#ifndef SIM_PLAYED_MODULES_H
#define SIM_PLAYED_MODULES_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "scenario.h"

namespace cg
{

// An answer to be given when its time has come.
struct DueAnswer {
    Position position{};
    std::string module{};
    bool pass = true;
    std::string reason{};
    scenario::Milliseconds after{0};
    uint64_t request = 0; // which one it is to
};

class PlayedModules
{
public:
    // A module behaves so from here on. Returns what it owes to requests that it hears of only now.
    std::vector<DueAnswer> set_rule(const scenario::ModuleRule &rule);

    // A request was written; `again` when the store only reports it once more. `type` is the card's
    // configured type. Returns what the modules owe to it.
    std::vector<DueAnswer> requested(const Position &position, int32_t type, bool again);
    // The request for the card there was deleted.
    void withdrawn(const Position &position) { requests_.erase(position); }

    // Whether the request that it answers still stands.
    [[nodiscard]] bool is_wanted(const DueAnswer &answer) const;

    // No module is played any more.
    void clear() { modules_.clear(); }

private:
    struct Behaviour {
        scenario::ModuleRule general{};
        std::vector<scenario::ModuleRule> exceptions{}; // the later one counts
    };
    struct Request {
        uint64_t number = 0;
        int32_t type = 0;
        std::set<std::string> heard_by{};
    };

    static void hear(const std::string &module, const Behaviour &behaviour, const Position &position,
                     Request &request, std::vector<DueAnswer> &due);
    static const scenario::ModuleRule &rule_for(const Behaviour &behaviour, const Position &position,
                                                int32_t type);

    std::map<std::string, Behaviour> modules_;
    std::map<Position, Request> requests_;
    uint64_t last_number_ = 0;
};

} // namespace cg

#endif
