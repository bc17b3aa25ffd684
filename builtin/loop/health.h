// What is not well with this process: numbers by name.
//
// A part that runs short of something notes a number here; the store client publishes them, so that the
// recorder and the operator's command see it without asking the process. They hang on nothing: what is noted
// before there is a store, or while it is away, is published when it is there.
#ifndef LOOP_HEALTH_H
#define LOOP_HEALTH_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace platform
{

using Health = std::map<std::string, uint64_t>;

// Notes a number; the one noted before under this name is replaced. Any thread may log, and so note.
// field  lower-case letters, digits and underscores; docs/store-format.md lists them all.
// Never throws; a note for which there is no memory is lost.
void note_health(const char *field, uint64_t number) noexcept;

// All that was noted since the process started. Throws std::bad_alloc.
Health noted_health();

// Has `changed` called, on the thread that notes, after each note that changed something; in place of who was
// called before, nobody when empty. It may throw std::exception. Only for a process that notes on one thread.
void on_health_noted(std::function<void()> changed);

// Makes the numbers public: for the process that holds the lock of the single instance. Others must not speak
// for the daemon.
void make_health_public() noexcept;
[[nodiscard]] bool is_health_public() noexcept;

} // namespace platform

#endif
