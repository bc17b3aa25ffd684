// Card positions.
#include "records/position.h"

#include <array>
#include <optional>
#include <vector>

#include "base/failure.h"
#include "base/text.h"

namespace cg
{

namespace
{

// One to three numbers between slashes; nothing for anything else.
std::optional<PositionPrefix> ids_in(const std::string &text)
{
    const std::vector<std::string> parts = split(text, '/');
    std::array<int32_t, 3> numbers{};
    if (parts.size() > numbers.size()) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const auto number = to_number(parts[i], INT32_MIN, INT32_MAX);
        if (!number) {
            return std::nullopt;
        }
        numbers.at(i) = static_cast<int32_t>(*number);
    }
    return PositionPrefix{{numbers[0], numbers[1], numbers[2]}, static_cast<int>(parts.size())};
}

} // namespace

std::string Position::text() const
{
    return std::to_string(devid) + '/' + std::to_string(slotid) + '/' + std::to_string(sslotid);
}

Position parse_position(const std::string &text)
{
    const std::optional<PositionPrefix> prefix = ids_in(text);
    if (!prefix || prefix->parts < 2) {
        throw Failure(wrong_usage,
                      in_quotes(text) +
                          " is not a card position; devid/slotid/sslotid as in 1/3/0, or devid/slotid");
    }
    return prefix->position;
}

PositionPrefix parse_prefix(const std::string &text)
{
    const std::optional<PositionPrefix> prefix = ids_in(text);
    if (!prefix) {
        throw Failure(wrong_usage, in_quotes(text) +
                                       " is not a position; a card as in 1/3/0, a slot as in 1/3, "
                                       "or a device as in 1");
    }
    return *prefix;
}

bool PositionPrefix::holds(const Position &other) const
{
    return position.devid == other.devid && (parts < 2 || position.slotid == other.slotid) &&
           (parts < 3 || position.sslotid == other.sslotid);
}

} // namespace cg
