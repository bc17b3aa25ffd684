"""The table on standard output and the JSON file."""
import json

from .figures import Figure

VERDICTS = {True: "met", False: "MISSED", None: "-"}


def number(value):
    """A number with three significant places, and no more than makes sense."""
    return f"{value:.0f}" if abs(value) >= 100 else f"{value:.3g}"


def _row(figure):
    goal = "-" if figure.goal is None else f"<= {number(figure.goal)}"
    unit = "" if figure.unit is None else f" {figure.unit}"
    return [figure.name, figure.what, number(figure.value) + unit, goal + (unit if figure.goal is not None else ""),
            VERDICTS[figure.met], figure.given or "-"]


def _columns(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    return ["  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows]


def table(figures):
    """The lines of the table of figures."""
    heading = ["name", "what (bare hiredis = 1 where it is a ratio)", "ratio or value", "goal", "verdict",
               "peers, as given"]
    lines = _columns([heading, *map(_row, figures)])
    return [lines[0], "-" * len(lines[0]), *lines[1:]]


def series_lines(series):
    """The lines that tell a series: a column for each of its lines."""
    lines = series.lines()
    rows = [[series.size, *(f"{name}, {series.unit}" for name in lines)]]
    for size, rounds in series.points:
        known = {name: dict(points) for name, points in lines.items()}
        rows.append([str(size), *(number(known[name][size]) if name in rounds else "-" for name in lines)])
    return [f"{series.name}: {series.what}", *("  " + line for line in _columns(rows)),
            *([f"  {series.note}"] if series.note else [])]


def text(results):
    """All that is printed at the end."""
    figures = [result for result in results if isinstance(result, Figure)]
    lines = table(figures) if figures else []
    for result in results:
        if not isinstance(result, Figure):
            lines += ["", *series_lines(result)]
    return "\n".join(lines)


def write_json(results, path):
    """Writes all results with their raw rounds."""
    with open(path, "w", encoding="utf-8") as file:
        json.dump([result.as_json() for result in results], file, indent=1)
        file.write("\n")
