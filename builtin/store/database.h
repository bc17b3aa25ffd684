// One numbered database of the store: its connection on the loop, its calls, and what the connection brings.
#ifndef STORE_DATABASE_H
#define STORE_DATABASE_H

#include <cstdint>

#include "store/calls.h"
#include "store/connection/async_connection.h"
#include "store/inbox.h"

namespace store
{

struct Database {
    // server  outlives the object.
    Database(Server &server, int32_t number)
        : loop(server.shared.base, server.identity, number, server.outage.budget(), server.shared.messages),
          calls(server, number, loop), inbox(calls, loop)
    {
    }

    AsyncConnection loop;
    Calls calls;
    Inbox inbox;
};

} // namespace store

#endif
