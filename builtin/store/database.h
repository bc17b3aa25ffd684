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
    // shared  outlives the object.
    Database(Shared &shared, int32_t number)
        : loop(shared.base, shared.identity, number, shared.outage.budget(), shared.messages),
          calls(shared, number, loop), inbox(shared, calls, loop)
    {
    }

    AsyncConnection loop;
    Calls calls;
    Inbox inbox;
};

} // namespace store

#endif
