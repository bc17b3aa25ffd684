// Card positions: refused as wrong usage, or the same after they were printed.
#include "cgctl/position.h"

#include "cgctl/failure.h"
#include "cgctl/text.h"

#include "fuzz.h"

namespace
{

using fuzz::require;

void check(const cgctl::Position &position)
{
    require(cgctl::parse_position(position.text()) == position, "a position printed is the same one",
            position.text());
    require(cgctl::position_in(position.key()) == position, "a position is the one in its key",
            position.text());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text = fuzz::c_text(fuzz::view_of(data, size));
    try {
        check(cgctl::parse_position(text));
    } catch (const cgctl::Failure &failure) {
        const std::string message = failure.what();
        require(failure.status() == cgctl::wrong_usage, "a refusal is for wrong usage");
        require(cgctl::visible(message) == message, "a refusal is one line", message);
    }
    return 0;
}
