// Reading the published form of a change; the server's functions write it (see functions.cpp).
#include "payload.h"

#include <charconv>

namespace vx_mom
{

namespace
{

template <typename Number>
bool take_number(std::string_view &rest, char stop, Number &number)
{
    const char *end = rest.data() + rest.size();
    const auto result = std::from_chars(rest.data(), end, number);
    if (result.ec != std::errc() || result.ptr == end || *result.ptr != stop) {
        return false;
    }
    rest.remove_prefix(static_cast<size_t>(result.ptr - rest.data()) + 1);
    return true;
}

bool take_item(std::string_view &rest, std::string_view &item)
{
    size_t length = 0;
    if (!take_number(rest, ':', length) || length > rest.size()) {
        return false;
    }
    item = rest.substr(0, length);
    rest.remove_prefix(length);
    return true;
}

template <typename Number>
bool take_number_item(std::string_view &rest, Number &number)
{
    std::string_view item;
    if (!take_item(rest, item)) {
        return false;
    }
    const char *end = item.data() + item.size();
    const auto result = std::from_chars(item.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

bool take_field(std::string_view &rest, Fields &fields)
{
    std::string_view name;
    std::string_view value;
    if (!take_item(rest, name) || !take_item(rest, value)) {
        return false;
    }
    fields.emplace_back(name, value);
    return true;
}

} // namespace

bool decode_change(std::string_view payload, Change &change)
{
    uint64_t count = 0;
    if (!take_number_item(payload, change.revision) || !take_number_item(payload, change.command) ||
        !take_number_item(payload, count)) {
        return false;
    }
    change.fields.clear();
    for (uint64_t i = 0; i < count; i++) {
        if (!take_field(payload, change.fields)) {
            return false;
        }
    }
    return payload.empty();
}

} // namespace vx_mom
