// Card positions.
#include "position.h"

#include <array>
#include <vector>

#include "failure.h"
#include "text.h"

namespace cgctl
{

namespace
{

int32_t part(const Json &key, const std::string &name)
{
    const auto found = key.contains(name) ? key.find(name) : key.find("t_" + name);
    return found == key.end() ? 0 : found->get<int32_t>();
}

} // namespace

Json key_of(const Position &position)
{
    return {{"devid", position.devid}, {"slotid", position.slotid}, {"sslotid", position.sslotid}};
}

Position parse_position(const std::string &text)
{
    const std::vector<std::string> parts = split(text, '/');
    std::array<int32_t, 3> numbers{};
    bool good = parts.size() == 2 || parts.size() == 3;
    for (std::size_t i = 0; good && i < parts.size(); ++i) {
        const auto number = to_number(parts[i], INT32_MIN, INT32_MAX);
        good = number.has_value();
        numbers.at(i) = good ? static_cast<int32_t>(*number) : 0;
    }
    if (!good) {
        throw Failure(wrong_usage,
                      in_quotes(text) +
                          " is no card position; devid/slotid/sslotid as in 1/3/0, or devid/slotid");
    }
    return {numbers[0], numbers[1], numbers[2]};
}

Position position_in(const Json &key)
{
    return {part(key, "devid"), part(key, "slotid"), part(key, "sslotid")};
}

} // namespace cgctl
