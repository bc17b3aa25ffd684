"""What is inside one process, by Google Benchmark: log messages, records, the walk of the card table."""
from .figures import Figure, Series
from .place import run


def _times(rounds, only):
    """{benchmark: [nanoseconds of processor time, one a round]}; rounds of all of them alternate."""
    report = run("bench_inside", f"--benchmark_filter={only}", f"--benchmark_repetitions={rounds}",
                 "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05",
                 "--benchmark_format=json")
    times = {}
    for row in report["benchmarks"]:
        if row.get("error_occurred"):
            raise RuntimeError(f"{row['name']}: {row['error_message']}")
        if row["run_type"] == "iteration":
            times.setdefault(row["run_name"], []).append(row["cpu_time"])
    return times


def _log(rounds):
    times = _times(rounds, "message|compare")
    disabled = {"baseline": times["one_compare"], "ours": times["disabled_message"]}
    return [Figure("log-disabled", "a disabled log message (a loop with one compare = 1)", disabled, 1.1,
                   given="one comparison", note="its arguments are not evaluated, or this would have failed"),
            Figure("log-enabled", "an enabled message up to the library's call", {"ours": times["enabled_message"]},
                   150, "ns")]


def _records(rounds):
    times = _times(rounds, "encode|decode")
    return [Figure("encode", "a record of 5 fields and its key to text", {"ours": times["encode"]}, None, "ns"),
            Figure("decode", "and back", {"ours": times["decode"]}, None, "ns")]


def _walk(rounds):
    series = Series("growth-walk", "finding the last card of the table", "cards", "ns")
    for name, values in _times(rounds, "walk").items():
        series.add(int(name.split("/")[1]), {"walk": values})
    return [series]


MEASUREMENTS = {"log": _log, "records": _records, "growth-walk": _walk}
