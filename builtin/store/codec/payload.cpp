// Reading the published form of a change; the server's functions write it (see functions.lua).
#include "store/codec/payload.h"

#include <algorithm>

#include "store/codec/number.h"

namespace store
{

namespace
{

bool parse_item(std::string_view &rest, std::string_view &item)
{
    const size_t colon = rest.find(':');
    size_t length = 0;
    if (colon == std::string_view::npos || !parse_shortest(rest.substr(0, colon), length)) {
        return false;
    }
    rest.remove_prefix(colon + 1);
    if (length > rest.size()) {
        return false;
    }
    item = rest.substr(0, length);
    rest.remove_prefix(length);
    return true;
}

template <typename Number>
bool parse_number_item(std::string_view &rest, Number &number)
{
    std::string_view item;
    return parse_item(rest, item) && parse_shortest(item, number);
}

} // namespace

bool decode_change(std::string_view payload, PublishedChange &change)
{
    uint64_t count = 0;
    if (!parse_number_item(payload, change.revision) || !parse_number_item(payload, change.command) ||
        !parse_number_item(payload, count)) {
        return false;
    }
    change.fields.clear();
    change.mark.clear();
    // An empty name and value are "0:0:", and the last of them is the mark: subscribers keep the fields of
    // each record.
    change.fields.reserve(std::max<uint64_t>(std::min<uint64_t>(count, payload.size() / 4), 1) - 1);
    for (uint64_t i = 0; i < count; i++) {
        std::string_view name;
        std::string_view value;
        if (!parse_item(payload, name) || !parse_item(payload, value)) {
            return false;
        }
        if (name != writer_field) {
            change.fields.emplace_back(name, value);
        } else if (i + 1 == count && !value.empty()) {
            change.mark = value; // the last one, as the functions write it
        } else {
            return false;
        }
    }
    return payload.empty();
}

} // namespace store
