// Decisions over time, as a picture that any browser shows.
//
// Colours come with the letters of the terminal's chart in the legend, and each piece says in its title what
// it is, for readers who cannot distinguish the colours. What modules wrote is not in it.
#include "screen/decision_svg.h"

#include <algorithm>
#include <sstream>

#include "admission/words.h"

namespace cg
{

namespace
{

using admission::Outcome;

constexpr int width = 960;
constexpr int height = 360;
constexpr int left = 56;
constexpr int right = 16;
constexpr int top = 56;
constexpr int bottom = 40;
constexpr int plot_width = width - left - right;
constexpr int plot_height = height - top - bottom;

constexpr const char *style = R"(<style>
  svg { font: 12px system-ui, sans-serif; background: #fff }
  text { fill: #222 } .line { stroke: #999 } .gap { fill: #ddd }
  .passed { fill: #2e8b57 } .silence { fill: #e69f00 } .denied { fill: #c0392b } .exempt { fill: #56b4e9 }
  .unasked { fill: #0072b2 } .withdrawn { fill: #8a8a8a } .unseen { fill: #b08fc7 }
  @media (prefers-color-scheme: dark) {
    svg { background: #16181c } text { fill: #eee } .line { stroke: #777 } .gap { fill: #3a3d44 }
    .withdrawn { fill: #a8a8a8 }
  }
</style>
)";

std::string escaped(const std::string &text)
{
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

struct Box {
    double x;
    double y;
    double width;
    double height;
};

void draw(std::ostream &out, const Box &box, const std::string &kind, const std::string &title)
{
    out << "<rect class=\"" << kind << "\" x=\"" << box.x << "\" y=\"" << box.y << "\" width=\"" << box.width
        << "\" height=\"" << box.height << "\"><title>" << escaped(title) << "</title></rect>\n";
}

void draw_legend(std::ostream &out)
{
    int x = left;
    for (std::size_t i = 0; i < outcome_count; ++i) {
        constexpr int letter_width = 7;
        const auto outcome = static_cast<Outcome>(i);
        const std::string text = std::string(1, letter_of(outcome)) + ' ' + admission::text_of(outcome);
        out << "<rect class=\"" << admission::word_of(outcome) << "\" x=\"" << x
            << "\" y=\"20\" width=\"12\" height=\"12\"/><text x=\"" << x + 16 << "\" y=\"30\">" << text
            << "</text>\n";
        x += 32 + letter_width * static_cast<int>(text.size());
    }
    out << "<rect class=\"gap\" x=\"" << x << "\" y=\"20\" width=\"12\" height=\"12\"/><text x=\"" << x + 16
        << "\" y=\"30\">not recorded</text>\n";
}

void draw_bar(std::ostream &out, const Bar &bar, double x, double bar_width, double scale)
{
    const std::string when = minute_text(bar.from);
    for (const std::string &why : bar.gaps) {
        draw(out, {x, top, bar_width, plot_height}, "gap", std::string(when).append(": ").append(why));
    }
    double y = top + plot_height;
    for (std::size_t i = 0; i < outcome_count; ++i) {
        if (bar.counts.at(i) > 0) {
            const auto outcome = static_cast<Outcome>(i);
            const double tall = static_cast<double>(bar.counts.at(i)) * scale;
            y -= tall;
            draw(out, {x + bar_width * 0.1, y, bar_width * 0.8, tall}, admission::word_of(outcome),
                 when + ": " + std::to_string(bar.counts.at(i)) + ' ' + admission::text_of(outcome));
        }
    }
}

void draw_axes(std::ostream &out, const Chart &chart, std::size_t most)
{
    constexpr int base = top + plot_height;
    out << "<line class=\"line\" x1=\"" << left << "\" y1=\"" << base << "\" x2=\"" << width - right
        << "\" y2=\"" << base << "\"/>\n";
    out << "<text x=\"" << left - 8 << "\" y=\"" << top + 4 << "\" text-anchor=\"end\">" << most
        << "</text>\n";
    out << "<text x=\"" << left - 8 << "\" y=\"" << base << "\" text-anchor=\"end\">0</text>\n";
    out << "<text x=\"" << left << "\" y=\"" << base + 20 << "\">" << minute_text(chart.bars.front().from)
        << "</text>\n";
    out << "<text x=\"" << width - right << "\" y=\"" << base + 20 << "\" text-anchor=\"end\">"
        << minute_text(chart.bars.back().from + chart.step) << "</text>\n";
}

} // namespace

std::string chart_svg(const Chart &chart)
{
    std::size_t most = 1;
    for (const Bar &bar : chart.bars) {
        most = std::max(most, bar.total());
    }
    const double bar_width = static_cast<double>(plot_width) / static_cast<double>(chart.bars.size());
    const double scale = static_cast<double>(plot_height) / static_cast<double>(most);
    std::ostringstream out;
    out.precision(6);
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" aria-label=\"Decisions on line cards over "
           "time\""
        << " viewBox=\"0 0 " << width << ' ' << height << "\">\n"
        << style;
    draw_legend(out);
    for (std::size_t i = 0; i < chart.bars.size(); ++i) {
        draw_bar(out, chart.bars[i], left + static_cast<double>(i) * bar_width, bar_width, scale);
    }
    draw_axes(out, chart, most);
    out << "</svg>\n";
    return out.str();
}

} // namespace cg
