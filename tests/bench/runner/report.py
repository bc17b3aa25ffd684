"""The table on standard output and the JSON file."""
import json

from .figures import Series, Unmeasured, notes
from .lines import LINES

VERDICTS = {True: "met", False: "MISSED", None: "-"}
_LONGEST_REASON = 100  # in the table; all of it is said on standard error and in the JSON


def number(value):
    """A number with three significant places, and no more than makes sense."""
    return f"{value:.0f}" if abs(value) >= 100 else f"{value:.3g}"


def _goal(goal, unit):
    return "-" if goal is None else " ".join(filter(None, (f"<= {number(goal)}", unit)))


def _row(result):
    if isinstance(result, Unmeasured):
        line = LINES[result.name]
        why = result.why if len(result.why) <= _LONGEST_REASON else result.why[:_LONGEST_REASON] + "..."
        return [result.name, f"not measured: {why}", "-", _goal(line.goal, line.unit), "-", line.given or "-"]
    return [result.name, result.what, " ".join(filter(None, (number(result.value), result.unit))),
            _goal(result.goal, result.unit), VERDICTS[result.met], result.given or "-"]


def _columns(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    return ["  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows]


def table(figures):
    """The lines of the table of figures, and of what could not be measured."""
    heading = ["name", "what (bare hiredis = 1 where it is a ratio)", "ratio or value", "goal", "verdict",
               "peers, as given"]
    lines = _columns([heading, *map(_row, figures)])
    return [lines[0], "-" * len(lines[0]), *lines[1:]]


def note_lines(results):
    """What is to be known about the figures: each note once, behind the names of all that it is about."""
    told = {}
    for result in results:
        for note in notes(result):
            told.setdefault(note, []).append(result.name)
    return [f"{', '.join(names)}: {note}" for note, names in told.items()]


def series_lines(series):
    """The lines that tell a series: a column for each of its lines."""
    lines = series.lines()
    rows = [[series.size, *(f"{name}, {series.unit}" for name in lines)]]
    for size, rounds in series.points:
        known = {name: dict(points) for name, points in lines.items()}
        rows.append([str(size), *(number(known[name][size]) if name in rounds else "-" for name in lines)])
    return [f"{series.name}: {series.what}", *("  " + line for line in _columns(rows)),
            *(f"  {note}" for note in notes(series))]


def text(results):
    """All that is printed at the end."""
    figures = [result for result in results if not isinstance(result, Series)]
    lines = table(figures) if figures else []
    told = note_lines(result for result in figures if not isinstance(result, Unmeasured))
    if told:
        lines += ["", *told]
    for result in results:
        if isinstance(result, Series):
            lines += ["", *series_lines(result)]
    return "\n".join(lines)


def complaints(results):
    """One line for each reason why something was not measured."""
    told = {}
    for result in results:
        if isinstance(result, Unmeasured):
            told.setdefault(result.why, []).append(result.name)
    return [f"not measured: {', '.join(names)}: {why}" for why, names in told.items()]


def write_json(results, path):
    """Writes all results with their raw rounds."""
    with open(path, "w", encoding="utf-8") as file:
        json.dump([shown for result in results for shown in result.as_json()], file, indent=1)
        file.write("\n")
