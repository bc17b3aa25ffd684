// A grid of characters.
#include "screen/canvas.h"

#include <algorithm>

namespace cg
{

namespace
{

// The bytes of the character at a position.
std::size_t length_at(std::string_view text, std::size_t at)
{
    std::size_t length = 1;
    while (at + length < text.size() && (static_cast<unsigned char>(text[at + length]) & 0xC0U) == 0x80U) {
        ++length;
    }
    return length;
}

} // namespace

void Canvas::put(std::size_t x, std::size_t y, std::string_view text, std::size_t width, Tone tone,
                 bool reverse)
{
    if (y >= size_.height || x >= size_.width) {
        return;
    }
    const std::string shown = cut_to(text, std::min(width, size_.width - x));
    Glyph *last = nullptr;
    for (std::size_t at = 0; at < shown.size();) {
        const std::size_t length = length_at(shown, at);
        const std::string character = shown.substr(at, length);
        const std::size_t columns = columns_of(character);
        at += length;
        if (columns == 0) {
            if (last != nullptr) {
                last->text += character;
            }
            continue;
        }
        last = &glyphs_[y * size_.width + x];
        *last = {character, tone, reverse};
        if (columns == 2) {
            glyphs_[y * size_.width + x + 1] = {"", tone, reverse};
        }
        x += columns;
    }
}

void Canvas::mark(std::size_t x, std::size_t y, std::size_t width)
{
    for (std::size_t i = x; y < size_.height && i < std::min(x + width, size_.width); ++i) {
        glyphs_[y * size_.width + i].reverse = true;
    }
}

void Canvas::copy_line(const Canvas &from, std::size_t from_y, std::size_t y)
{
    for (std::size_t x = 0; x < size_.width; ++x) {
        glyphs_[y * size_.width + x] = from.at(x, from_y);
    }
}

std::string Canvas::line(std::size_t y) const
{
    std::string text;
    for (std::size_t x = 0; x < size_.width; ++x) {
        text += at(x, y).text;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

} // namespace cg
