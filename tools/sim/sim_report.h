// How a play is shown: its story while it happens, its expectations at the end.
#ifndef SIM_SIM_REPORT_H
#define SIM_SIM_REPORT_H

#include "command_line/session.h"
#include "sim_player.h"

namespace cg
{

// One event: a line on standard error, or with --json an object on standard output.
void report_event(const Session &session, const SimEvent &event);

// The expectations that were looked at, and a sum. `complete` is false when the play was broken off.
void report_results(const Session &session, const SimPlayer &player, bool complete);

// The mistakes of a scenario: each with its line and a caret, or with --json in one object.
void report_mistakes(const Session &session, const scenario::Scenario &scenario, std::string_view text);

} // namespace cg

#endif
