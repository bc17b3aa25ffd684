// The negative results of the store client, in one place.
//
// The numbers follow errno where one fits. -5 is left out on purpose: users of the store interface read it as
// "tolerated", so no failure of this client may carry it. A daemon that cannot start ends with such a result
// as its status, modulo 256: none may mean there what another status means, as -1 would.
#ifndef CONNECTION_ERRORS_H
#define CONNECTION_ERRORS_H

#include <cstdint>

namespace store
{

enum Error : int32_t {
    ok = 0,
    no_memory = -12,        // memory ran out
    denied = -13,           // authentication failed, or the user lacks a right
    invalid = -22,          // an argument, the configuration or the database number is wrong
    internal_failure = -71, // the server answered with something that this client does not expect
    bad_data = -74,         // what is stored does not decode
    timed_out = -110,       // no answer before the deadline
    other_data_set = -116,  // the store that came back holds other data than the one that was known
    refused = -121          // the server refused the command; nothing was changed
};

} // namespace store

#endif
