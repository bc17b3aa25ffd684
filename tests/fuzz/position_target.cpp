// Card positions: refused as wrong usage, or the same after they were printed.
#include "records/position.h"
#include "records/position_key.h"

#include "base/failure.h"
#include "base/text.h"

#include "fuzz.h"

namespace
{

using fuzz::require;

// The numbers between the slashes, read another way.
std::vector<long long> numbers_in(const std::string &text)
{
    std::vector<long long> numbers;
    for (const std::string &part : fuzz::parts_of(text, '/')) {
        const bool hexadecimal = part.compare(0, 2, "0x") == 0 || part.compare(0, 2, "0X") == 0;
        numbers.push_back(std::strtoll(part.c_str(), nullptr, hexadecimal ? 16 : 10));
    }
    numbers.resize(numbers.size() == 2 ? 3 : numbers.size());
    return numbers;
}

void check(const std::string &text, const cg::Position &position)
{
    require(numbers_in(text) == std::vector<long long>{position.devid, position.slotid, position.sslotid},
            "a position is the numbers that were typed", text);
    require(cg::parse_position(position.text()) == position, "a position printed is the same one",
            position.text());
    require(cg::position_of(cg::CardInfoAt(position).record.base) == position,
            "a position is the one in its key", position.text());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text = fuzz::c_text(fuzz::view_of(data, size));
    try {
        check(text, cg::parse_position(text));
    } catch (const cg::Failure &failure) {
        const std::string message = failure.what();
        require(failure.status() == cg::wrong_usage, "a refusal is for wrong usage");
        require(cg::visible(message) == message, "a refusal is one line", message);
    }
    return 0;
}
