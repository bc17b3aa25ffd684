// What a terminal needs and a pipe does not.
#include "base/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "base/failure.h"
#include "base/output.h"
#include "base/text.h"

namespace cg
{

namespace
{

constexpr std::size_t usual_width = 80;
constexpr std::string_view ellipsis = "…";

struct Range {
    uint32_t first;
    uint32_t last;
};

// The blocks that take two columns on any terminal; finer tables change with each version of Unicode.
constexpr std::array wide{Range{0x1100, 0x115F},   Range{0x2E80, 0x303E},  Range{0x3041, 0x33FF},
                          Range{0x3400, 0x4DBF},   Range{0x4E00, 0x9FFF},  Range{0xA000, 0xA4CF},
                          Range{0xAC00, 0xD7A3},   Range{0xF900, 0xFAFF},  Range{0xFE30, 0xFE6F},
                          Range{0xFF00, 0xFF60},   Range{0xFFE0, 0xFFE6},  Range{0x1F300, 0x1F64F},
                          Range{0x1F900, 0x1F9FF}, Range{0x20000, 0x3FFFD}};
constexpr std::array combining{Range{0x0300, 0x036F}, Range{0x1AB0, 0x1AFF}, Range{0x1DC0, 0x1DFF},
                               Range{0x200B, 0x200F}, Range{0x20D0, 0x20FF}, Range{0xFE00, 0xFE0F},
                               Range{0xFE20, 0xFE2F}};

template <typename Ranges>
bool is_in(const Ranges &ranges, uint32_t character)
{
    return std::any_of(ranges.begin(), ranges.end(), [&](const Range &range) {
        return character >= range.first && character <= range.last;
    });
}

// The character at a position, which is moved behind it.
uint32_t next_character(std::string_view text, std::size_t &at)
{
    const auto first = static_cast<uint8_t>(text[at++]);
    uint32_t character = first < 0x80   ? first
                         : first < 0xE0 ? first & 0x1FU
                         : first < 0xF0 ? first & 0xFU
                                        : first & 0x7U;
    while (at < text.size() && (static_cast<uint8_t>(text[at]) & 0xC0U) == 0x80U) {
        character = (character << 6U) | (static_cast<uint8_t>(text[at++]) & 0x3FU);
    }
    return character;
}

std::size_t width_of(uint32_t character)
{
    return is_in(combining, character) ? 0 : is_in(wide, character) ? 2 : 1;
}

std::size_t width_of_terminal()
{
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
    return known ? size.ws_col : usual_width;
}

} // namespace

Terminal terminal_of(const Output &output, const std::string &colour)
{
    if (colour != "auto" && colour != "always" && colour != "never") {
        throw Failure(wrong_usage, "--color " + visible(colour) + ": use auto, always or never");
    }
    Terminal terminal;
    terminal.is_one = &output.out == &std::cout && isatty(STDOUT_FILENO) == 1;
    terminal.width = terminal.is_one ? width_of_terminal() : 0;
    const char *unwanted = getenv("NO_COLOR");
    const bool wanted = terminal.is_one && (unwanted == nullptr || *unwanted == '\0');
    terminal.colour = colour == "always" || (colour == "auto" && wanted);
    return terminal;
}

std::string toned(const Terminal &terminal, Tone tone, const std::string &text)
{
    static constexpr std::array codes{"", "2", "1", "32", "36", "1;33", "1;31"}; // in the order of Tone
    const char *code = codes.at(static_cast<std::size_t>(tone));
    if (!terminal.colour || *code == '\0' || text.empty()) {
        return text;
    }
    return std::string("\033[") + code + 'm' + text + "\033[0m";
}

std::size_t columns_of(std::string_view text)
{
    std::size_t columns = 0;
    for (std::size_t at = 0; at < text.size();) {
        columns += width_of(next_character(text, at));
    }
    return columns;
}

std::vector<std::string> wrapped(std::string_view text, std::size_t columns)
{
    std::vector<std::string> lines;
    while (columns_of(text) > columns) {
        std::size_t used = 0;
        std::size_t end = 0;   // of what fits
        std::size_t blank = 0; // the last one within it, or just behind it
        for (std::size_t at = 0; at < text.size(); end = at) {
            blank = text[at] == ' ' ? at : blank;
            used += width_of(next_character(text, at));
            if (used > columns) {
                end = end == 0 ? at : end; // one character at least
                break;
            }
        }
        const bool at_blank = blank != 0;
        lines.emplace_back(text.substr(0, at_blank ? blank : end));
        text.remove_prefix(at_blank ? blank + 1 : end);
    }
    lines.emplace_back(text);
    return lines;
}

std::string cut_to(std::string_view text, std::size_t columns)
{
    if (columns_of(text) <= columns) {
        return std::string(text);
    }
    if (columns == 0) {
        return {};
    }
    std::size_t used = 0;
    std::size_t end = 0;
    for (std::size_t at = 0; at < text.size(); end = at) {
        used += width_of(next_character(text, at));
        if (used > columns - 1) {
            break;
        }
    }
    return std::string(text.substr(0, end)) + std::string(ellipsis);
}

} // namespace cg
