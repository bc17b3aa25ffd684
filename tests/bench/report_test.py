"""What ./bench makes of rounds: the table, the JSON and the drawings, from rounds that are given here."""
import json
import pathlib
import sys
import tempfile
import unittest
import xml.etree.ElementTree as tree
from statistics import median
from unittest import mock

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parents[1] / "tools")]

from runner import growth, lines, place, plot, report  # noqa: E402  (needs the path above)
from runner.figures import Figure, Series, Unmeasured, figure, series as known_series  # noqa: E402


def ratio(bare, ours, goal):
    """A figure that is a ratio."""
    return Figure("written", "a record", {"baseline": bare, "ours": ours}, goal, given="1.5")


class Figures(unittest.TestCase):
    def test_a_ratio_is_the_median_of_the_rounds_ratios(self):
        # The medians of both are 2 and 3; one round on a slow machine changes nothing.
        self.assertEqual(ratio([1, 2, 100], [2, 3, 110], None).value, 1.5)

    def test_a_goal_is_met_when_it_is_reached_exactly(self):
        self.assertIs(ratio([10.0], [12.0], 1.2).met, True)
        self.assertIs(ratio([10.0], [12.1], 1.2).met, False)
        self.assertIsNone(ratio([10.0], [12.1], None).met)

    def test_a_value_is_the_median_of_ours(self):
        self.assertEqual(Figure("memory", "", {"baseline": [1], "ours": [5, 9, 7]}, 6, "MB").value, 7)

    def test_of_what_must_not_happen_at_all_the_worst_round_counts(self):
        self.assertEqual(figure("stall", {"ours": [1, 9, 2]}).value, 9)
        self.assertEqual(figure("start", {"ours": [1, 9, 2]}).value, 2)

    def test_rounds_that_have_no_partner_are_no_figure(self):
        with self.assertRaises(ValueError):
            _ = ratio([1, 2], [1], None).value


class Growth(unittest.TestCase):
    def test_a_machine_that_slows_down_meanwhile_is_no_growth(self):
        calls = iter(range(100))

        def take():
            return {"delivery": [33.0 if next(calls) < 14 else 56.0]}  # from the middle of the fifth round on

        taken = growth.in_turn({0: take, 1000: take, 1000000: take}, 9)
        grown = growth.growth(taken[0], taken[1000000], "delivery")
        self.assertEqual(median(grown), 1)
        self.assertEqual(sum(value != 1 for value in grown), 1)

    def test_growth_is_seen(self):
        takes = {0: lambda: {"road": [10.0, 20.0]}, 1000000: lambda: {"road": [15.0, 30.0]}}
        taken = growth.in_turn(takes, 3)
        self.assertEqual(growth.growth(taken[0], taken[1000000], "road"), [1.5] * 6)

    def test_each_size_begins_a_round_in_its_turn(self):
        seen = []
        growth.in_turn({size: lambda size=size: seen.append(size) or {} for size in "abc"}, 4)
        self.assertEqual("".join(seen), "abc" "bca" "cab" "abc")


class Remarks(unittest.TestCase):
    def test_rounds_that_somebody_disturbed_are_counted_until_asked(self):
        place.remarks()
        self.assertEqual(place.rounds_of('{"ours": [1, 2, 3], "shared": 2}'), {"ours": [1, 2, 3]})
        self.assertEqual(place.rounds_of('{"baseline": [4], "ours": [5], "shared": 0}'), {"baseline": [4], "ours": [5]})
        self.assertEqual(place.rounds_of("{}"), {})
        self.assertEqual(place.remarks(), ["somebody else used the core during 2 of 4 rounds"])
        self.assertEqual(place.remarks(), [])

    def test_undisturbed_rounds_need_no_remark(self):
        place.rounds_of('{"ours": [1], "shared": 0}')
        self.assertEqual(place.remarks(), [])

    def test_rounds_that_were_not_taken_again_for_want_of_time_are_told(self):
        place.rounds_of('{"ours": [1], "shared": 1}')
        with mock.patch.object(place, "_BEGAN", place.time.monotonic() - 60 * place.AGAIN_MINUTES - 1):
            self.assertRegex(place.remarks()[0], "during 1 of 1 rounds, which were not taken again once .* 6 minutes")


class Table(unittest.TestCase):
    def test_tells_ratio_goal_verdict_and_peers(self):
        lines = report.table([ratio([10.0], [11.0], 1.2), ratio([10.0], [25.0], 1.2),
                              Figure("memory", "empty", {"ours": [5250.0]}, None, "KB")])
        self.assertEqual(len(lines), 5)
        self.assertRegex(lines[2], r"^written +a record +1\.1 +<= 1\.2 +met +1\.5$")
        self.assertRegex(lines[3], r"^written +a record +2\.5 +<= 1\.2 +MISSED +1\.5$")
        self.assertRegex(lines[4], r"^memory +empty +5250 KB +- +- +-$")

    def test_a_series_has_a_column_for_each_line_and_a_row_for_each_size(self):
        series = Series("cards", "an event", "cards", "µs")
        series.add(10, {"road": [3, 1, 2], "walk": [7]})
        series.add(100, {"road": [4]})
        lines = report.series_lines(series)
        self.assertEqual([line.split() for line in lines[1:]],
                         [["cards", "road,", "µs", "walk,", "µs"], ["10", "2", "7"], ["100", "4", "-"]])

    def test_notes_stand_below_once_for_all_that_they_are_about(self):
        first, second = figure("written", {"baseline": [1], "ours": [2]}), figure("start", {"ours": [3]}, "cold")
        first.remarks = second.remarks = ["disturbed"]
        self.assertEqual(report.text([first, second]).splitlines()[4:], ["", "written, start: disturbed", "start: cold"])

    def test_what_was_not_measured_has_its_row_with_the_goal(self):
        rows = report.table([Unmeasured("stall", "the server " + "x" * 200)])
        self.assertRegex(rows[2], r"^stall +not measured: the server x{89}\.\.\. +- +<= 5 ms +- +-$")
        self.assertEqual(report.complaints([Unmeasured("road", "why"), Unmeasured("road-unlogged", "why")]),
                         ["not measured: road, road-unlogged: why"])

    def test_nothing_measured_prints_nothing(self):
        self.assertEqual(report.text([]), "")


class Json(unittest.TestCase):
    def written(self, results):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "results.json")
            report.write_json(results, path)
            return json.loads(path.read_text(encoding="utf-8"))

    def test_a_ratio_and_a_value_have_their_goal_and_raw_rounds(self):
        first, second = self.written([ratio([10.0], [25.0], 1.2), Figure("start", "", {"ours": [9]}, 15, "ms")])
        self.assertEqual((first["name"], first["ratio"], first["goal"], first["met"]), ("written", 2.5, 1.2, False))
        self.assertEqual(first["rounds"], {"baseline": [10.0], "ours": [25.0]})
        self.assertNotIn("value", first)
        self.assertEqual((second["value"], second["unit"], second["met"]), (9, "ms", True))
        self.assertNotIn("ratio", second)

    def test_a_series_has_an_object_for_each_point_and_line(self):
        series = Series("cards", "an event", "cards", "µs")
        series.add(10, {"road": [3, 1, 2], "walk": [7]})
        series.add(100, {"road": [4]})
        written = self.written([series])
        self.assertEqual([(shown["name"], shown["value"], shown["rounds"]["ours"]) for shown in written],
                         [("cards/10/road", 2, [3, 1, 2]), ("cards/10/walk", 7, [7]), ("cards/100/road", 4, [4])])

    def test_each_object_has_what_a_reader_looks_for(self):
        series = known_series("room")
        series.add(1, {"one store": [2]})
        for shown in self.written([ratio([1], [2], None), series, Unmeasured("written", "no"), Unmeasured("room", "no")]):
            self.assertLessEqual({"name", "goal", "met", "rounds"}, set(shown))
            self.assertTrue("ratio" in shown or {"value", "unit"} <= set(shown), shown)

    def test_what_was_not_measured_tells_why_and_is_not_met(self):
        (shown,) = self.written([Unmeasured("written", "no server")])
        self.assertEqual((shown["ratio"], shown["goal"], shown["met"], shown["rounds"], shown["why"]),
                         (None, 1.2, None, {}, "no server"))


class Plot(unittest.TestCase):
    def drawn(self, points):
        series = Series("cards", "a < b & c", "cards", "µs")
        for size, value in points:
            series.add(size, {"road": [value], "walk": [value * 2]})
        return tree.fromstring(plot.svg(series))

    def places(self, points):
        line = self.drawn(points).findall(".//{*}polyline")[0]
        return [tuple(map(float, place.split(","))) for place in line.get("points").split()]

    def test_is_well_formed_and_has_a_line_for_each_name(self):
        self.assertEqual(len(self.drawn([(1, 1), (2, 5)]).findall(".//{*}polyline")), 2)

    def test_small_spans_are_in_proportion(self):
        (x1, y1), (x2, y2), (x3, y3) = self.places([(1, 10), (2, 20), (3, 30)])
        self.assertAlmostEqual(x2 - x1, x3 - x2, delta=0.2)
        self.assertAlmostEqual(y1 - y2, y2 - y3, delta=0.2)
        self.assertLess(y3, y1)

    def test_wide_spans_are_logarithmic(self):
        (x1, _), (x2, _), (x3, _) = self.places([(10, 1), (100, 10), (10000, 1000)])
        self.assertAlmostEqual(2 * (x2 - x1), x3 - x2, delta=0.3)

    def test_a_size_of_nothing_has_a_place(self):
        (x0, _), (x1, _), _ = self.places([(0, 5), (100000, 5), (1000000, 5)])
        self.assertLess(x0, x1)

    def test_costs_that_span_much_are_logarithmic_over_few_sizes(self):
        (x1, y1), (x2, y2), (x3, y3) = self.places([(1, 20), (4, 320), (16, 5120)])
        self.assertAlmostEqual(x2 - x1, x3 - x2, delta=0.2)
        self.assertAlmostEqual(y1 - y2, y2 - y3, delta=0.2)

    def test_every_text_lies_within_the_drawing(self):
        for name, line in lines.LINES.items():
            if line.size:
                series = known_series(name)
                series.add(0, {"a store each": [1], "a line whose name goes on and on " * 5: [900]})
                series.add(1000000, {"a store each": [100000]})
                self.assert_within(tree.fromstring(plot.svg(series)))

    def assert_within(self, drawing):
        _, _, width, height = map(float, drawing.get("viewBox").split())
        for text in drawing.findall(".//{*}text"):
            x, y, long = float(text.get("x")), float(text.get("y")), len(text.text) * 12 * 0.65
            before = {"start": 0, "middle": long / 2, "end": long}[text.get("text-anchor")]
            turned = text.get("transform") is not None  # about its own place: what was left of it is below
            low, high, end = (y - long + before, y + before, height) if turned else (x - before, x - before + long, width)
            self.assertGreaterEqual(low, 0, text.text)
            self.assertLessEqual(high, end, text.text)
            self.assertTrue(12 <= y <= height - 4 and 0 <= x <= width, text.text)

    def test_the_upward_axis_says_what_is_measured(self):
        texts = [text.text for text in tree.fromstring(plot.svg(self.series_of_room())).findall(".//{*}text")]
        self.assertIn("until the last verdict, ms", texts)

    def series_of_room(self):
        series = known_series("room")
        series.add(1, {"one store": [2]})
        return series

    def test_more_lines_than_colours_differ_by_dashes(self):
        series = known_series("room")
        series.add(1, {f"line {i}": [i + 1] for i in range(len(plot.COLOURS) + 1)})
        drawn = tree.fromstring(plot.svg(series)).findall(".//{*}polyline")
        pens = {(line.get("stroke"), line.get("stroke-dasharray")) for line in drawn}
        self.assertEqual(len(pens), len(plot.COLOURS) + 1)

    def test_one_point_is_drawn(self):
        self.assertEqual(len(self.places([(5, 7)])), 1)


if __name__ == "__main__":
    unittest.main()
