// The recorder on the event loop: subscriptions, timers, metrics over HTTP.
#ifndef RECORDER_SERVICE_H
#define RECORDER_SERVICE_H

#include "base/output.h"
#include "options.h"

namespace recorder
{

// Serves until SIGTERM or SIGINT. Throws cg::Failure, history::Error and what the standard library
// throws.
void serve(const cg::Output &output, const Options &options);

} // namespace recorder

#endif
