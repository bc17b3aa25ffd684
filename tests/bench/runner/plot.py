"""A series as a drawing: SVG, written by hand, so that nothing but a browser is needed to look at it.

Both axes are logarithmic when sizes or costs span more than a hundredfold, so that what grows in proportion is a line
of slope one and what does not grow is level. The legend stands below, where it has the whole width.
"""
import math
import textwrap
from html import escape

WIDTH = 720
LEFT, RIGHT, TOP, PLOT_HEIGHT = 80, 30, 50, 320
FONT = 12
WIDEST = 0.65  # of a text's size: how much of the width a letter takes, bold ones too, in what browsers take for sans-serif
COLOURS = ("#1b6ca8", "#c0392b", "#2e8b57", "#8e44ad", "#b9770e", "#555555")
_BOTTOM = TOP + PLOT_HEIGHT
_LEGEND = _BOTTOM + 70  # its first line
_STEP = 18  # between lines of text


class Axis:
    """Maps values to places, in proportion or in logarithms; `whole` ones begin and end at a power of ten."""

    def __init__(self, values, begin, end, logarithmic, whole=True):
        self.logarithmic = logarithmic and min(values) > 0
        low, high = min(values), max(values)
        if self.logarithmic and whole:
            low, high = 10 ** math.floor(math.log10(low) + 1e-9), 10 ** math.ceil(math.log10(high) - 1e-9)
        elif not self.logarithmic:
            low, high = min(0, low), high * 1.05
        self.low, self.high = low, high if high > low else low * 10 or 1
        self.begin, self.end = begin, end

    def place(self, value):
        """Where a value is drawn."""
        if self.logarithmic:
            part = math.log10(value / self.low) / math.log10(self.high / self.low)
        else:
            part = (value - self.low) / (self.high - self.low)
        return self.begin + part * (self.end - self.begin)

    def ticks(self):
        """The values that are named beside the axis."""
        if self.logarithmic:
            return [10 ** power for power in range(round(math.log10(self.low)), round(math.log10(self.high)) + 1)]
        step = 10 ** math.floor(math.log10(self.high - self.low))
        step = next(step * part for part in (0.1, 0.2, 0.5, 1, 2) if (self.high - self.low) / (step * part) <= 8)
        return [step * i for i in range(math.ceil(self.low / step), math.floor(self.high / step + 1e-9) + 1)]


def _text(x, y, content, anchor="middle", more=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}"{more}>{escape(content)}</text>'


def _name(value):
    return f"{value:,.0f}" if value >= 10 or value == round(value) else f"{value:g}"


def _folded(content, x):
    """The lines of a text that begins at x, each of which ends within the drawing."""
    return textwrap.wrap(content, int((WIDTH - x) / (FONT * WIDEST)))


def _frame(series, across, up):
    middle = TOP + PLOT_HEIGHT / 2
    parts = [_text(LEFT, 18 + 16 * i, line, "start", ' font-weight="bold"')
             for i, line in enumerate(_folded(f"{series.name}: {series.what}", LEFT))]
    parts += [_text((LEFT + WIDTH - RIGHT) / 2, _BOTTOM + 42, series.size),
              _text(20, middle, ", ".join(filter(None, (series.measured, series.unit))), "middle",
                    f' transform="rotate(-90 20 {middle})"')]
    for value in up.ticks():
        y = up.place(value)
        parts.append(f'<line x1="{LEFT}" y1="{y:.1f}" x2="{WIDTH - RIGHT}" y2="{y:.1f}" stroke="#ddd"/>')
        parts.append(_text(LEFT - 8, y + 4, _name(value), "end"))
    parts += [_text(x, _BOTTOM + 20, _name(size)) for size, x in across.items()]
    parts.append(f'<rect x="{LEFT}" y="{TOP}" width="{WIDTH - RIGHT - LEFT}" height="{PLOT_HEIGHT}" '
                 'fill="none" stroke="#888"/>')
    return parts


def _axes(lines):
    """({size: place}, axis of costs)."""
    sizes = sorted({size for points in lines.values() for size, _ in points})
    values = [value for points in lines.values() for _, value in points]
    positive = [size for size in sizes if size > 0] or [1]
    wide = sizes[-1] > 100 * max(sizes[0], 1) or (min(values) > 0 and max(values) > 100 * min(values))
    # A size of nothing has no logarithm: it is drawn a step left of the others.
    axis = Axis(positive, LEFT + (100 if 0 in sizes else 30), WIDTH - RIGHT - 40, wide, whole=False)
    across = {size: axis.place(size) if size > 0 or not axis.logarithmic else LEFT + 15 for size in sizes}
    return across, Axis(values, _BOTTOM, TOP, wide and max(values) > 20 * min(values))


def _pen(number):
    """What the number-th line is drawn with: (colour, stroke's attributes); dashed where the colours begin anew."""
    colour = COLOURS[number % len(COLOURS)]
    dashes = ' stroke-dasharray="6 4"' if number >= len(COLOURS) else ""
    return colour, f'stroke="{colour}" stroke-width="2"{dashes}'


def _line(places, number):
    colour, pen = _pen(number)
    route = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
    return [f'<polyline points="{route}" fill="none" {pen}/>',
            *(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>' for x, y in places)]


def _legend(names):
    """What each line is, and where the last of these texts stands."""
    parts, y = [], _LEGEND
    for i, name in enumerate(names):
        colour, pen = _pen(i)
        parts.append(f'<line x1="{LEFT}" y1="{y - 4}" x2="{LEFT + 20}" y2="{y - 4}" {pen}/>')
        for line in _folded(name, LEFT + 28):
            parts.append(_text(LEFT + 28, y, line, "start", f' fill="{colour}"'))
            y += _STEP
    return parts, y - _STEP


def svg(series):
    """The drawing of a series as text."""
    lines = series.lines()
    across, up = _axes(lines)
    parts = _frame(series, across, up)
    for i, points in enumerate(lines.values()):
        parts += _line([(across[size], up.place(value)) for size, value in points], i)
    legend, last = _legend(lines)
    height = last + _STEP
    body = "\n".join([*parts, *legend])
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" '
            f'viewBox="0 0 {WIDTH} {height}" font-family="sans-serif" font-size="{FONT}">\n'
            f'<rect width="100%" height="100%" fill="white"/>\n{body}\n</svg>\n')


def write(series, folder):
    """Writes NAME.svg into the folder and returns its path."""
    path = folder / f"{series.name}.svg"
    path.write_text(svg(series), encoding="utf-8")
    return path
