// A change of a record, as far as the tracker needs to know of it.
#ifndef ADMISSION_CHANGE_H
#define ADMISSION_CHANGE_H

#include <cstdint>

#include "base/times.h"
#include "store/origin.h"

namespace admission
{

using cg::Time;

// The write that a record was left by. It is the same one as another when both have the same writer and
// number; writers of earlier builds name neither, and then the revision says it, within one set of data.
struct Write {
    uint64_t revision = 0; // of the record; 0: not known
    store::Origin origin{};

    friend bool operator==(const Write &, const Write &) = default;
};

bool is_same(const Write &one, const Write &other);

struct Change {
    Time at{};
    // No news: the record was found in the store when listening began, or began again.
    bool existing = false;
    Write write{};
};

} // namespace admission

#endif
