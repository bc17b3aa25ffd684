// Small operations on text that several verbs need.
#ifndef BASE_TEXT_H
#define BASE_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cg
{

// Returns the text with control characters and bytes that are no UTF-8 written as \n, \r, \t or \xHH, so
// that a value from the store can neither forge a line nor drive a terminal. The result is valid UTF-8, has
// at most `limit` bytes, and ends with a whole character.
std::string visible(std::string_view text, std::size_t limit = std::string::npos);

// Returns visible() in double quotes, with quotes and backslashes inside escaped by a backslash.
std::string in_quotes(std::string_view text);

// Returns the text with the letters of ASCII in lower case.
std::string lower(std::string_view text);

// Whether the whole text is well-formed UTF-8.
bool is_utf8(std::string_view text);

// Lower-case hexadecimal digits, two per byte.
std::string to_hex(const uint8_t *bytes, std::size_t count);

// The bytes that hexadecimal digits stand for; colons between them are passed over. Nothing when the text is
// something else.
std::optional<std::string> from_hex(std::string_view text);

// A whole number, decimal or after 0x hexadecimal, from `least` to `most`. Nothing when the text is something
// else.
std::optional<int64_t> to_number(std::string_view text, int64_t least, int64_t most);

// The texts with a separator between them.
std::string joined(const std::vector<std::string> &texts, std::string_view separator = ", ");

// Splits at every separator; n separators give n + 1 parts.
std::vector<std::string> split(std::string_view text, char separator);

// Returns "nearest: a, b" with the names that are spelled most like `name`, or "one of: ..." with all of them
// when none is near.
std::string suggestion(std::string_view name, const std::vector<std::string> &names);

// A text as one word of a shell's command line.
std::string shell_word(const std::string &text);

} // namespace cg

#endif
