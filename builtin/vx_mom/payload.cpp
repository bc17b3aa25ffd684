// The published form of a change; both writing (on the server) and reading stand here, next to each other.
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

const char *const publish_function = R"lua(
local function publish(channel, revision, command, key, fields)
    local parts = {}
    local function item(text)
        parts[#parts + 1] = string.format('%d:', #text)
        parts[#parts + 1] = text
    end
    item(revision)
    item(command)
    item(key)
    item(string.format('%d', #fields / 2))
    for _, text in ipairs(fields) do
        item(text)
    end
    redis.call('PUBLISH', channel, table.concat(parts))
end
)lua";

bool decode_change(std::string_view payload, Change &change)
{
    std::string_view key;
    uint64_t count = 0;
    if (!take_number_item(payload, change.revision) || !take_number_item(payload, change.command) ||
        !take_item(payload, key) || !take_number_item(payload, count)) {
        return false;
    }
    change.key = key;
    change.fields.clear();
    for (uint64_t i = 0; i < count; i++) {
        if (!take_field(payload, change.fields)) {
            return false;
        }
    }
    return payload.empty();
}

std::string counter_key(const std::string &type)
{
    return "@rev:" + type;
}

std::string index_key(const std::string &type)
{
    return "@idx:" + type;
}

std::string channel_name(int32_t database, const std::string &type)
{
    return "@chg:" + std::to_string(database) + ":" + type;
}

} // namespace vx_mom
