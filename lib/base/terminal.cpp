// What a terminal needs and a pipe does not.
#include "base/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <utf8proc.h>

#include <array>
#include <cstdlib>
#include <iostream>

#include "base/output.h"

namespace cg
{

namespace
{

constexpr std::size_t usual_width = 80;
constexpr std::string_view ellipsis = "…";

// The columns of the character at a position, which is moved behind it.
std::size_t next_width(std::string_view text, std::size_t &at)
{
    utf8proc_int32_t character = 0;
    const auto *bytes = reinterpret_cast<const utf8proc_uint8_t *>(text.data() + at);
    const utf8proc_ssize_t length =
        utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size() - at), &character);
    at += length > 0 ? static_cast<std::size_t>(length) : 1;
    // What Unicode does not know yet is a box on the terminal.
    const bool unknown = length <= 0 || utf8proc_category(character) == UTF8PROC_CATEGORY_CN;
    return unknown ? 1 : static_cast<std::size_t>(utf8proc_charwidth(character));
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
        columns += next_width(text, at);
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
            used += next_width(text, at);
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
        used += next_width(text, at);
        if (used > columns - 1) {
            break;
        }
    }
    return std::string(text.substr(0, end)) + std::string(ellipsis);
}

} // namespace cg
