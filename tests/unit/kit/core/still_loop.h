// What the kit's core wants of the built-in platform beyond platform/, beside the recording platform: a loop
// that turns only when told, messages that nobody hears, settings that are in order.
#ifndef STILL_LOOP_H
#define STILL_LOOP_H

#include <functional>

namespace still_loop
{

// What happens while the loop runs; it ends when `story` returns.
void on_run(std::function<void()> story);

// Takes what other threads have called the loop for. Returns whether there was something.
bool turn();

} // namespace still_loop

#endif
