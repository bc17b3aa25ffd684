// How texts of the store reach a terminal, and numbers and bytes come from one.
#include "base/text.h"

#include <optional>

#include "fuzz.h"

namespace
{

using fuzz::require;

bool has_control_bytes(const std::string &text)
{
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            return true;
        }
    }
    // U+0080 to U+009F, which are well-formed.
    for (size_t at = text.find('\xC2'); at != std::string::npos; at = text.find('\xC2', at + 1)) {
        if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0) {
            return true;
        }
    }
    return false;
}

void check_visible(const std::string &text)
{
    const std::string whole = cg::visible(text);
    require(cg::is_utf8(whole), "what is shown is UTF-8", whole);
    require(!has_control_bytes(whole), "what is shown drives no terminal", whole);
    require(cg::visible(whole) == whole, "what is visible stays as it is", whole);
    require(cg::is_utf8(cg::in_quotes(text)) && !has_control_bytes(cg::in_quotes(text)),
            "nor does what is in quotes", whole);
    for (size_t limit = 0; limit <= 8; ++limit) {
        const std::string part = cg::visible(text, limit);
        require(part.size() <= limit && whole.compare(0, part.size(), part) == 0 && cg::is_utf8(part),
                "what is cut is the beginning, in whole characters", part);
    }
}

void check_hex(const std::string &text)
{
    const std::string digits = cg::to_hex(reinterpret_cast<const uint8_t *>(text.data()), text.size());
    require(cg::from_hex(digits) == text, "bytes come back from their digits", digits);
    if (const auto bytes = cg::from_hex(text)) {
        require(bytes->size() * 2 <= text.size(), "two digits make a byte", text);
        require(text.find_first_not_of("0123456789abcdefABCDEF:") == std::string::npos,
                "bytes are made of digits", text);
    }
}

void check_number(const std::string &text)
{
    const auto number = cg::to_number(text, INT32_MIN, INT32_MAX);
    if (number) {
        require(*number >= INT32_MIN && *number <= INT32_MAX, "a number is within its bounds", text);
        require(cg::to_number(std::to_string(*number), INT32_MIN, INT32_MAX) == number,
                "a number printed is the same one", text);
        require(text.find_first_not_of("-0123456789abcdefABCDEFxX") == std::string::npos,
                "a number is made of digits", text);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(fuzz::view_of(data, size));
    check_visible(text);
    check_hex(text);
    check_number(text);
    std::string joined;
    for (const std::string &part : cg::split(text, '.')) {
        joined += '.' + part;
    }
    require(joined == '.' + text, "the parts of a text make it up");
    require(!cg::suggestion(text, {"devid", "slotid", "is_online"}).empty(), "there is a suggestion");
    return 0;
}
