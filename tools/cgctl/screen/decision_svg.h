// Decisions over time as a picture for browsers.
#ifndef SCREEN_DECISION_SVG_H
#define SCREEN_DECISION_SVG_H

#include <string>

#include "screen/decision_chart.h"

namespace cg
{

// A whole SVG file that needs no other; readable in light and dark.
std::string chart_svg(const Chart &chart);

} // namespace cg

#endif
