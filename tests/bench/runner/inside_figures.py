"""What is inside one process, by Google Benchmark: log messages, records, the walk of the card table."""
from .figures import figure, series
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
    return [figure("log-disabled", disabled, note="its arguments are not evaluated, or this would have failed"),
            figure("log-enabled", {"ours": times["enabled_message"]})]


def _records(rounds):
    times = _times(rounds, "encode|decode")
    return [figure(name, {"ours": times[name]}) for name in ("encode", "decode")]


def _walk(rounds):
    walk = series("growth-walk")
    for name, values in _times(rounds, "walk").items():
        walk.add(int(name.split("/")[1]), {"walk": values})
    return [walk]


MEASUREMENTS = {"log": _log, "records": _records, "growth-walk": _walk}
