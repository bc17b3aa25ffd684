// What the fuzz targets share.
//
// A target is one decoder and what must hold for every input of it; it is a program of its own,
// tests/fuzz/run runs them, and HACKING.md says how. libFuzzer makes the inputs: it changes those that it has
// and keeps what reaches code that nothing reached before, so that it gets past the first length or name
// without being told of it. Random records and texts were the alternative; the unit tests have some, and they
// stay at the surface.
//
// Nearly all inputs are text, so that the first ones, in corpus/, can be read and written by people: a part
// ends at the line's end, and any byte can be written as '%' and two hexadecimal digits.
#ifndef FUZZ_H
#define FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

// libFuzzer's way in. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fuzz
{

inline std::string_view view_of(const uint8_t *data, size_t size)
{
    return {reinterpret_cast<const char *>(data), size};
}

// Ends the run with this input as a finding unless the condition holds.
inline void require(bool holds, const char *what)
{
    if (!holds) {
        (void)std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

// The same, showing the text that it is about.
inline void require(bool holds, const char *what, const std::string &about)
{
    if (!holds) {
        (void)std::fprintf(stderr, "about: %s\n", about.c_str());
    }
    require(holds, what);
}

// The parts between the separators, one more than there are separators.
inline std::vector<std::string> parts_of(std::string_view text, char separator)
{
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

inline int digit_value(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// The bytes that a text stands for: "%0A" is a line end. A '%' without digits stands for itself.
inline std::string bytes_of(std::string_view text)
{
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && digit_value(text[i + 1]) >= 0 &&
            digit_value(text[i + 2]) >= 0) {
            bytes += static_cast<char>(digit_value(text[i + 1]) * 16 + digit_value(text[i + 2]));
            i += 2;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

// A text as arguments and environment variables have it: it ends at the first zero byte.
inline std::string c_text(std::string_view text)
{
    return std::string(text.substr(0, text.find('\0')));
}

} // namespace fuzz

#endif
