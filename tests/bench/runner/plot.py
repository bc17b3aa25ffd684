"""A series as a drawing: SVG, written by hand, so that nothing but a browser is needed to look at it.

Both axes are logarithmic when the sizes span more than a hundredfold, so that what grows in proportion is a line of
slope one and what does not grow is level.
"""
import math
from html import escape

WIDTH, HEIGHT = 720, 440
LEFT, RIGHT, TOP, BOTTOM = 80, 190, 50, 60
COLOURS = ("#1b6ca8", "#c0392b", "#2e8b57", "#8e44ad", "#b9770e", "#555555")


class Axis:
    """Maps values to places, in proportion or in logarithms."""

    def __init__(self, values, begin, end, logarithmic):
        self.logarithmic = logarithmic and min(values) > 0
        low, high = min(values), max(values)
        if self.logarithmic:
            low, high = 10 ** math.floor(math.log10(low) + 1e-9), 10 ** math.ceil(math.log10(high) - 1e-9)
            high = high if high > low else low * 10
        else:
            low, high = min(0, low), high * 1.05 or 1
        self.low, self.high, self.begin, self.end = low, high, begin, end

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


def _frame(series, across, up):
    parts = [_text(LEFT, 24, f"{series.name}: {series.what}", "start", ' font-weight="bold"'),
             _text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 16, series.size),
             _text(20, (TOP + HEIGHT - BOTTOM) / 2, series.unit, "middle",
                   f' transform="rotate(-90 20 {(TOP + HEIGHT - BOTTOM) / 2})"')]
    for value in up.ticks():
        y = up.place(value)
        parts.append(f'<line x1="{LEFT}" y1="{y:.1f}" x2="{WIDTH - RIGHT}" y2="{y:.1f}" stroke="#ddd"/>')
        parts.append(_text(LEFT - 8, y + 4, _name(value), "end"))
    for value in across:
        parts.append(_text(across[value], HEIGHT - BOTTOM + 20, _name(value)))
    parts.append(f'<rect x="{LEFT}" y="{TOP}" width="{WIDTH - RIGHT - LEFT}" height="{HEIGHT - BOTTOM - TOP}" '
                 'fill="none" stroke="#888"/>')
    return parts


def svg(series):
    """The drawing of a series as text."""
    lines = series.lines()
    sizes = sorted({size for size, _ in series.points})
    wide = len(sizes) > 1 and sizes[-1] > 100 * max(sizes[0], 1)
    # A size of nothing has no logarithm: it is drawn a step left of the others.
    positive = [size for size in sizes if size > 0]
    axis = Axis(positive or [1], LEFT + (60 if len(positive) < len(sizes) else 20), WIDTH - RIGHT - 20, wide)
    across = {size: axis.place(size) if size > 0 or not axis.logarithmic else LEFT + 15 for size in sizes}
    values = [value for points in lines.values() for _, value in points]
    up = Axis(values, HEIGHT - BOTTOM, TOP, wide and max(values) > 20 * min(values))
    parts = _frame(series, across, up)
    for i, (name, points) in enumerate(lines.items()):
        colour = COLOURS[i % len(COLOURS)]
        places = [(across[size], up.place(value)) for size, value in points]
        route = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
        parts.append(f'<polyline points="{route}" fill="none" stroke="{colour}" stroke-width="2"/>')
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>' for x, y in places]
        parts.append(_text(WIDTH - RIGHT + 12, TOP + 16 + 20 * i, name, "start", f' fill="{colour}"'))
    body = "\n".join(parts)
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{HEIGHT}" '
            f'viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" font-size="12">\n'
            f'<rect width="100%" height="100%" fill="white"/>\n{body}\n</svg>\n')


def write(series, folder):
    """Writes NAME.svg into the folder and returns its path."""
    path = folder / f"{series.name}.svg"
    path.write_text(svg(series), encoding="utf-8")
    return path
