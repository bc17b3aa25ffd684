// The terminal, as long as this lives: however the program goes on, it is given back as it was.
#ifndef SCREEN_CURSES_SCREEN_H
#define SCREEN_CURSES_SCREEN_H

#include <cstdint>

#include "screen/canvas.h"

namespace cg
{

// There is one at a time.
class CursesScreen
{
public:
    static constexpr int32_t no_key = -1;

    // Claims the terminal. Throws Failure when its kind is not known.
    explicit CursesScreen(bool colour);
    ~CursesScreen();
    CursesScreen(const CursesScreen &) = delete;
    CursesScreen &operator=(const CursesScreen &) = delete;

    [[nodiscard]] Size size() const;
    // The next key that was pressed (a character, or a Key of live_view.h), or no_key; does not wait.
    int32_t key();
    // Whether the size changed since this was asked last.
    bool was_resized();
    void paint(const Canvas &canvas);

private:
    void *screen_; // a SCREEN; its header defines macros that nobody else should have
    bool colour_ = false;
    bool resized_ = false;
};

} // namespace cg

#endif
