// A grid of characters, as a terminal shows it, without a terminal.
#ifndef SCREEN_CANVAS_H
#define SCREEN_CANVAS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/terminal.h"

namespace cg
{

// One column of one line. The second column of a wide character is empty.
struct Glyph {
    std::string text = " ";
    Tone tone = Tone::plain;
    bool reverse = false;
};

struct Size {
    std::size_t width = 0;
    std::size_t height = 0;
};

class Canvas
{
public:
    explicit Canvas(Size size) : size_(size), glyphs_(size.width * size.height) {}

    [[nodiscard]] Size size() const { return size_; }
    [[nodiscard]] const Glyph &at(std::size_t x, std::size_t y) const { return glyphs_[y * size_.width + x]; }

    // Writes a text in at most `width` columns, cut with "…" where it does not fit; what lies outside is left
    // out. Text that visible() made.
    void put(std::size_t x, std::size_t y, std::string_view text, std::size_t width, Tone tone = Tone::plain,
             bool reverse = false);
    // Makes a line's columns reverse.
    void mark(std::size_t x, std::size_t y, std::size_t width);
    // Copies a line of another canvas of the same width.
    void copy_line(const Canvas &from, std::size_t from_y, std::size_t y);

    // A line as text, without the blanks at its end.
    [[nodiscard]] std::string line(std::size_t y) const;

private:
    Size size_;
    std::vector<Glyph> glyphs_;
};

} // namespace cg

#endif
