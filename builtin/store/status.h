// What became of a call.
#ifndef STORE_STATUS_H
#define STORE_STATUS_H

#include <cstdint>
#include <string>

namespace store
{

struct Status {
    int32_t code = 0;     // 0, or negative as results of vx_mom.h
    std::string reason{}; // of a failure, one line without control characters; else empty

    explicit operator bool() const { return code == 0; }
};

} // namespace store

#endif
