// Small operations on text.
//
// UTF-8 is decoded by hand: the locale's functions depend on a setting of the user, and what a module wrote
// into the store does not.
#include "base/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <numeric>

namespace cg
{

namespace
{

bool is_continuation(std::string_view text, std::size_t at)
{
    return at < text.size() && (static_cast<uint8_t>(text[at]) & 0xC0U) == 0x80U;
}

// The length of the character at a position, or 0 when no well-formed character stands there.
std::size_t character_length(std::string_view text, std::size_t at)
{
    const auto first = static_cast<uint8_t>(text[at]);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (!is_continuation(text, at + i)) {
            return 0;
        }
    }
    // Overlong forms, surrogates, and what lies beyond the last code point.
    const auto second = static_cast<uint8_t>(text[at + 1]);
    const bool wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                       (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    return wrong ? 0 : length;
}

bool is_control(std::string_view character)
{
    const auto first = static_cast<uint8_t>(character[0]);
    if (first < 0x20 || first == 0x7F) {
        return true;
    }
    // U+0080 to U+009F: a terminal obeys these, too.
    return first == 0xC2 && static_cast<uint8_t>(character[1]) < 0xA0;
}

std::string escaped(std::string_view bytes)
{
    std::string result;
    for (const char byte : bytes) {
        if (byte == '\n' || byte == '\r' || byte == '\t') {
            result += byte == '\n' ? "\\n" : byte == '\r' ? "\\r" : "\\t";
            continue;
        }
        std::array<char, 8> digits{};
        snprintf(digits.data(), digits.size(), "\\x%02X", static_cast<unsigned>(static_cast<uint8_t>(byte)));
        result += digits.data();
    }
    return result;
}

std::size_t edit_distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row.back();
}

} // namespace

std::string lower(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

std::string visible(std::string_view text, std::size_t limit)
{
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = character_length(text, at);
        const std::string_view character = text.substr(at, std::max<std::size_t>(length, 1));
        const std::string piece =
            length == 0 || is_control(character) ? escaped(character) : std::string(character);
        if (piece.size() > limit - result.size()) {
            break;
        }
        result += piece;
        at += character.size();
    }
    return result;
}

std::string in_quotes(std::string_view text)
{
    std::string result = "\"";
    std::string plain;
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            result += visible(plain) + '\\' + character;
            plain.clear();
        } else {
            plain += character;
        }
    }
    return result + visible(plain) + '"';
}

bool is_utf8(std::string_view text)
{
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = character_length(text, at);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

std::string to_hex(const uint8_t *bytes, std::size_t count)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result;
    for (std::size_t i = 0; i < count; ++i) {
        result += digits[bytes[i] >> 4U];
        result += digits[bytes[i] & 0x0FU];
    }
    return result;
}

std::optional<std::string> from_hex(std::string_view text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size(); at += 2) {
        if (text[at] == ':' && at != 0) {
            ++at;
        }
        const std::string_view digits = text.substr(std::min(at, text.size()), 2);
        unsigned value = 0;
        const auto [stopped, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (digits.size() != 2 || error != std::errc{} || stopped != digits.data() + 2) {
            return std::nullopt;
        }
        result += static_cast<char>(value);
    }
    return result;
}

std::optional<int64_t> to_number(std::string_view text, int64_t least, int64_t most)
{
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) {
        text.remove_prefix(2);
        if (text.starts_with('-')) {
            return std::nullopt;
        }
    }
    int64_t value = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || stopped != end || value < least || value > most) {
        return std::nullopt;
    }
    return value;
}

std::string joined(const std::vector<std::string> &texts, std::string_view separator)
{
    std::string result;
    for (const std::string &text : texts) {
        result += &text == &texts.front() ? "" : separator;
        result += text;
    }
    return result;
}

std::vector<std::string> split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    for (;;) {
        const std::size_t end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

std::string suggestion(std::string_view name, const std::vector<std::string> &names)
{
    constexpr std::size_t most = 3;
    const std::string wanted = lower(name);
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const std::string &candidate : names) {
        const std::string other = lower(candidate);
        const std::size_t distance = edit_distance(wanted, other);
        const bool contained = wanted.size() >= 3 && other.find(wanted) != std::string::npos;
        if (contained || distance <= std::max<std::size_t>(2, wanted.size() / 3)) {
            near.emplace_back(distance, candidate);
        }
    }
    if (near.empty()) {
        return "one of: " + joined(names);
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<std::string> nearest;
    for (std::size_t i = 0; i < std::min(most, near.size()); ++i) {
        nearest.push_back(near[i].second);
    }
    return "nearest: " + joined(nearest);
}

std::string shell_word(const std::string &text)
{
    const bool plain = !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string("/._-:@%+,=").find(c) != std::string::npos;
    });
    if (plain) {
        return text;
    }
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + '\'';
}

} // namespace cg
