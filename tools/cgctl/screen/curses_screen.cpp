// The terminal by ncurses.
#include "screen/curses_screen.h"

#include <unistd.h>

#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <utility>

#define NCURSES_NOMACROS 1
#include <ncurses.h>

#include "base/failure.h"
#include "base/text.h"
#include "screen/live_view.h"

namespace cg
{

namespace
{

constexpr int escape_delay_ms = 25;

int32_t translated(int key)
{
    switch (key) {
    case KEY_UP:
        return key_up;
    case KEY_DOWN:
        return key_down;
    case KEY_LEFT:
        return key_left;
    case KEY_RIGHT:
        return key_right;
    case KEY_PPAGE:
        return key_page_up;
    case KEY_NPAGE:
        return key_page_down;
    case KEY_HOME:
        return key_home;
    case KEY_END:
        return key_end;
    case KEY_ENTER:
    case '\n':
    case '\r':
        return key_enter;
    case KEY_BACKSPACE:
    case 0x7F:
    case '\b':
        return key_backspace;
    case 0x1B:
        return key_escape;
    default:
        return key;
    }
}

// In the order of Tone, which are the numbers of the pairs.
constexpr std::array<short, 7> colours{-1, -1, -1, COLOR_GREEN, COLOR_CYAN, COLOR_YELLOW, COLOR_RED};

attr_t attributes_of(const Glyph &glyph, bool colour)
{
    attr_t attributes = glyph.reverse ? A_REVERSE : A_NORMAL;
    const bool bold = glyph.tone == Tone::heading || glyph.tone == Tone::warning || glyph.tone == Tone::bad;
    if (bold) {
        attributes |= A_BOLD;
    }
    if (glyph.tone == Tone::quiet && !glyph.reverse) {
        attributes |= A_DIM;
    }
    const auto pair = static_cast<std::size_t>(glyph.tone);
    if (colour && colours.at(pair) >= 0) {
        attributes |= static_cast<attr_t>(COLOR_PAIR(static_cast<int>(pair)));
    }
    return attributes;
}

// Characters go out as the locale has them; where the user's has no UTF-8, one that has it is used.
void set_characters()
{
    (void)setlocale(LC_CTYPE, "");
    if (MB_CUR_MAX < 3) {
        (void)setlocale(LC_CTYPE, "C.UTF-8");
    }
}

} // namespace

CursesScreen::CursesScreen(bool colour)
{
    set_characters();
    screen_ = newterm(nullptr, stdout, stdin);
    if (screen_ == nullptr) {
        const char *kind = getenv("TERM");
        throw Failure(failed, "unknown terminal type TERM=" + visible(kind == nullptr ? "" : kind) +
                                  "; use `cgctl watch --lines`");
    }
    (void)cbreak();
    (void)noecho();
    (void)nonl();
    (void)keypad(stdscr, TRUE);
    (void)nodelay(stdscr, TRUE);
    (void)set_escdelay(escape_delay_ms);
    (void)curs_set(0);
    colour_ = colour && has_colors() && start_color() == OK && use_default_colors() == OK;
    for (std::size_t i = 0; colour_ && i < colours.size(); ++i) {
        if (colours.at(i) >= 0) {
            (void)init_pair(static_cast<short>(i), colours.at(i), -1);
        }
    }
}

CursesScreen::~CursesScreen()
{
    (void)endwin();
    delscreen(static_cast<SCREEN *>(screen_));
}

Size CursesScreen::size() const
{
    return {static_cast<std::size_t>(getmaxx(stdscr)), static_cast<std::size_t>(getmaxy(stdscr))};
}

int32_t CursesScreen::key()
{
    int pressed = getch();
    while (pressed == KEY_RESIZE) {
        resized_ = true;
        pressed = getch();
    }
    return pressed == ERR ? no_key : translated(pressed);
}

bool CursesScreen::was_resized()
{
    return std::exchange(resized_, false);
}

void CursesScreen::paint(const Canvas &canvas)
{
    (void)erase();
    const Size size = canvas.size();
    for (std::size_t y = 0; y < size.height; ++y) {
        for (std::size_t x = 0; x < size.width; ++x) {
            const Glyph &glyph = canvas.at(x, y);
            if (glyph.text.empty() || (glyph.text == " " && !glyph.reverse)) {
                continue;
            }
            (void)attrset(static_cast<int>(attributes_of(glyph, colour_)));
            (void)mvaddstr(static_cast<int>(y), static_cast<int>(x), glyph.text.c_str());
        }
    }
    (void)attrset(A_NORMAL);
    (void)refresh();
}

} // namespace cg
