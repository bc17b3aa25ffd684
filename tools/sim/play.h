// A play on a real store and daemon.
#ifndef SIM_PLAY_H
#define SIM_PLAY_H

#include <vector>

#include "base/output.h"
#include "scenario.h"
#include "sim_options.h"

namespace cg
{

// Plays the scenarios until the end or a signal, reports what happens, and pulls the cards that are left.
// Returns the exit status. Throws Failure when the store cannot be used, when a module that is played is none
// of the daemon's, and when a card to be plugged is there already.
int play(const Output &output, const SimOptions &options, const std::vector<scenario::Scenario> &scenarios);

} // namespace cg

#endif
