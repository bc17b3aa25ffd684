// libevent's handles with an owner.
#ifndef LOOP_LIBEVENT_HANDLES_H
#define LOOP_LIBEVENT_HANDLES_H

#include <memory>

#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>

namespace platform
{

// Gives a handle back to libevent.
struct FreeLibeventHandle {
    void operator()(event_base *base) const noexcept { event_base_free(base); }
    void operator()(event_config *config) const noexcept { event_config_free(config); }
    void operator()(event *ev) const noexcept { event_free(ev); }
    void operator()(bufferevent *buffer) const noexcept { bufferevent_free(buffer); }
    void operator()(evconnlistener *listener) const noexcept { evconnlistener_free(listener); }
};

using EventBase = std::unique_ptr<event_base, FreeLibeventHandle>;
using EventConfig = std::unique_ptr<event_config, FreeLibeventHandle>;
using Event = std::unique_ptr<event, FreeLibeventHandle>;
using BufferEvent = std::unique_ptr<bufferevent, FreeLibeventHandle>;
using Listener = std::unique_ptr<evconnlistener, FreeLibeventHandle>;

} // namespace platform

#endif
