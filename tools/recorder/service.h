// The recorder on the event loop: subscriptions, timers, metrics over HTTP.
#ifndef RECORDER_SERVICE_H
#define RECORDER_SERVICE_H

#include "options.h"
#include "session.h"

namespace recorder
{

// Serves until SIGTERM or SIGINT. Throws cgctl::Failure, history::Error and what the standard library
// throws.
void serve(const cgctl::Session &session, const Options &options);

} // namespace recorder

#endif
