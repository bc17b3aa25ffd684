// A change of a record, as far as the tracker needs to know of it.
#include "admission/change.h"

namespace admission
{

bool is_same(const Write &one, const Write &other)
{
    const store::Origin &a = one.origin;
    const store::Origin &b = other.origin;
    if (a.number != 0 || b.number != 0) {
        return a.number == b.number && a.instance == b.instance;
    }
    return one.revision != 0 && one.revision == other.revision;
}

} // namespace admission
