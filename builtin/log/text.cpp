// Texts for log lines: formatted like printf's, and with control bytes made visible.
//
// Not fmt, which the logging library brings along: formats reach us as printf's, checked by the compiler at
// the place of the call.
#include "log/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace platform
{

namespace
{

bool is_control(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

} // namespace

std::optional<std::string> formatted(const char *format, va_list values)
{
    std::array<char, 1024> near{}; // long enough for all but rare texts
    va_list again;
    va_copy(again, values);
    const int length = vsnprintf(near.data(), near.size(), format, values);
    std::optional<std::string> text;
    if (length >= 0 && static_cast<size_t>(length) < near.size()) {
        text.emplace(near.data(), static_cast<size_t>(length));
    } else if (length >= 0) {
        std::string longer(static_cast<size_t>(length), '\0');
        vsnprintf(longer.data(), longer.size() + 1, format, again);
        text = std::move(longer);
    }
    va_end(again);
    return text;
}

std::string visible(std::string_view text)
{
    if (std::none_of(text.begin(), text.end(), is_control)) {
        return std::string(text); // as nearly all are
    }
    constexpr std::string_view digits = "0123456789abcdef";
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        if (is_control(c)) {
            const auto byte = static_cast<unsigned char>(c);
            line += "\\x";
            line += digits[byte >> 4U];
            line += digits[byte & 0xfU];
        } else {
            line += c;
        }
    }
    return line;
}

std::string_view without_line_break(std::string_view text)
{
    if (text.ends_with("\r\n")) {
        text.remove_suffix(2);
    } else if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace platform
