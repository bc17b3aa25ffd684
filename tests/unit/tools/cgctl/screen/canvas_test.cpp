// A grid of characters.
#include "screen/canvas.h"

#include <gtest/gtest.h>

namespace cg
{

TEST(Canvas, TextIsCutAndStaysInside)
{
    Canvas canvas({6, 1});
    canvas.put(2, 0, "線卡板", 9);
    EXPECT_EQ(canvas.line(0), "  線…");
    canvas.put(5, 0, "abc", 3);
    canvas.put(9, 0, "x", 1);
    canvas.put(0, 7, "x", 1);
    EXPECT_EQ(canvas.line(0), "  線……");
}

} // namespace cg
