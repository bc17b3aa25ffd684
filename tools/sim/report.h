// How a play is shown: its story while it happens, its expectations at the end.
#ifndef SIM_REPORT_H
#define SIM_REPORT_H

#include "base/output.h"
#include "player.h"

namespace cg
{

// One event: a line on standard error, or with --json an object on standard output.
void report_event(const Output &output, admission::Time at, const Event &event);

// The expectations that were decided, and a summary.
void report_results(const Output &output, const Player &player);

} // namespace cg

#endif
