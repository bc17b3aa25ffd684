# shellcheck shell=bash
# The stages of ./test, what each of them counts, and the summary. Sourced, after ui.sh.
#
# Counts come from the JUnit files that both test runners write: their printed summaries are made for
# people and differ from version to version. A stage without such a file counts as one test.
# shellcheck disable=SC2154 # project_root and the colours are the sourcing script's

stages_logs=$project_root/build/test-logs
stages_passed=0
stages_failed=0
stages_lines=()
stages_beside=()
stages_beside_pids=()

stages_begin()
{
    trap stages_stop EXIT
    if ! mkdir -p "$stages_logs" 2>/dev/null || [ ! -w "$stages_logs" ]; then
        die 1 "$stages_logs cannot be written by $(id -un); remove build/ (another user built there)"
    fi
    rm -rf "${stages_logs:?}"/*
}

# Prints "passed failed skipped" of a JUnit file.
stages_count()
{
    /usr/bin/python3 - "$1" <<'END'
import sys
import xml.etree.ElementTree as tree

passed = failed = skipped = 0
for case in tree.parse(sys.argv[1]).iter("testcase"):
    if case.find("failure") is not None or case.find("error") is not None:
        failed += 1
    elif case.find("skipped") is not None:
        skipped += 1
    else:
        passed += 1
print(passed, failed, skipped)
END
}

# The name of a stage as a file's.
stages_slug()
{
    local slug=${1//,/}
    printf '%s' "${slug// /-}"
}

# Runs a stage's function and leaves what came of it in NAME.result: stages_run NAME FUNCTION [argument...]. The function
# finds the name of the JUnit file that it may write in $junit.
stages_run()
{
    local slug began=$SECONDS status=0 passed=0 failed=0 skipped=0
    slug=$(stages_slug "$1")
    junit=$stages_logs/$slug.xml
    shift
    "$@" || status=$?
    if [ -s "$junit" ]; then
        read -r passed failed skipped < <(stages_count "$junit")
    elif [ "$status" -eq 0 ]; then
        passed=1
    fi
    # A run that broke down without naming a test, and one that tried no test at all, has failed.
    if [ "$failed" -eq 0 ] && { [ "$status" -ne 0 ] || [ "$passed" -eq 0 ]; }; then
        failed=1
    fi
    printf '%d %d %d %d\n' "$passed" "$failed" "$skipped" $((SECONDS - began)) >"$stages_logs/$slug.result"
}

# Counts a stage that is over: stages_collect NAME. Returns whether it passed.
stages_collect()
{
    local passed=0 failed=1 skipped=0 seconds=0 verdict="${ui_green}pass$ui_plain" result
    result=$stages_logs/$(stages_slug "$1").result
    # One that was killed has left nothing.
    [ ! -s "$result" ] || read -r passed failed skipped seconds <"$result"
    [ "$failed" -eq 0 ] || verdict="${ui_red}FAIL$ui_plain"
    stages_passed=$((stages_passed + passed))
    stages_failed=$((stages_failed + failed))
    stages_lines+=("$(printf '%s  %-26s %4d s  %d passed, %d failed, %d skipped' "$verdict" "$1" "$seconds" "$passed" \
        "$failed" "$skipped")")
    [ "$failed" -eq 0 ]
}

# Runs a stage: stage NAME FUNCTION [argument...]. Returns whether it passed.
stage()
{
    say "$1"
    stages_run "$@"
    stages_collect "$1"
}

# Runs a stage beside what follows, after those that were given so before: stage_beside NAME FUNCTION [argument...].
# Tests mostly wait, and a compiler never does; so tests run while the next build goes on. What such a stage prints comes
# when all builds are done.
stage_beside()
{
    local previous=
    [ "${#stages_beside_pids[@]}" -eq 0 ] || previous=${stages_beside_pids[-1]}
    # A process group of its own, to be ended as a whole.
    set -m
    (
        [ -z "$previous" ] || tail --pid="$previous" -s 0.1 -f /dev/null
        stages_run "$@"
    ) >"$stages_logs/$(stages_slug "$1").out" 2>&1 </dev/null &
    set +m
    stages_beside_pids+=($!)
    stages_beside+=("$1")
}

# Ends what still runs beside.
stages_stop()
{
    local pid
    for pid in ${stages_beside_pids[@]+"${stages_beside_pids[@]}"}; do
        kill -TERM -- "-$pid" 2>/dev/null || true
    done
}

# Waits for what runs beside, and shows it.
stages_join()
{
    local number
    for number in ${stages_beside[@]+"${!stages_beside[@]}"}; do
        wait "${stages_beside_pids[number]}" || true
        say "${stages_beside[number]}"
        cat "$stages_logs/$(stages_slug "${stages_beside[number]}").out"
        stages_collect "${stages_beside[number]}" || true
    done
    stages_beside=()
    stages_beside_pids=()
}

# Prints the summary and ends the script.
stages_end()
{
    stages_join
    say "Summary"
    printf '%s\n' "${stages_lines[@]}"
    printf '%d passed, %d failed\n' "$stages_passed" "$stages_failed"
    [ "$stages_failed" -eq 0 ]
    exit
}

# The C and C++ files of the project, one a line; those not yet committed too.
stages_sources()
{
    (cd "$project_root" && find . -path ./build -prune -o -type f \
        \( -name '*.c' -o -name '*.h' -o -name '*.cpp' \) -printf '%P\n' | sort)
}

check_format()
{
    local log=$stages_logs/format.log
    (cd "$project_root" && stages_sources | xargs -d '\n' clang-format-14 --dry-run --Werror) 2>"$log" && return 0
    head -n 40 "$log" >&2
    complain "Run: clang-format-14 -i on the files named above."
    return 1
}

check_tidy()
{
    # The records' headers are generated; nothing else needs to be built to be looked at.
    build_preset lint app_cg_schemas || return 1
    /usr/bin/python3 -B "$project_root/scripts/tidy.py" --build "$project_root/build/lint" \
        --log "$stages_logs/clang-tidy.log" --junit "$junit"
}

# Puts the tests of each program that left results of its own (NAME.xml) in the place of the one that ctest took it for:
# unit_results JUNIT FOLDER.
unit_results()
{
    /usr/bin/python3 - "$@" <<'END'
import pathlib
import sys
import xml.etree.ElementTree as tree

junit, folder = map(pathlib.Path, sys.argv[1:])
suite = tree.parse(junit)
for case in suite.getroot().findall("testcase"):
    own = folder / f"{case.get('name')}.xml"
    if own.exists():
        suite.getroot().remove(case)
        suite.getroot().extend(tree.parse(own).iter("testcase"))
suite.write(junit)
END
}

# unit_tests PRESET
unit_tests()
{
    local log=$stages_logs/unit-$1.log results=$project_root/build/$1/unit-tests status=0
    rm -rf "$results"
    # Most of their time they wait for servers.
    (cd "$project_root" && ctest --preset "$1" -j $((3 * $(nproc))) --no-tests=error --output-junit "$junit") >"$log" 2>&1 ||
        status=1
    [ ! -s "$junit" ] || unit_results "$junit" "$results"
    if [ "$status" -eq 0 ]; then
        grep 'tests passed' "$log"
        return 0
    fi
    grep -vE '^ *[0-9]+/[0-9]+ Test +#.* Passed|^ *Start +[0-9]+:' "$log" | tail -n 80 >&2
    return 1
}

# The fuzz targets, all at the same time, behind whatever else runs: fuzz_targets PRESET SECONDS
fuzz_targets()
{
    nice -n 19 "$project_root/tests/fuzz/run" --build "$project_root/build/$1/tests/fuzz" --seconds "$2" --junit "$junit" 2>&1 |
        tee "$stages_logs/fuzz.log"
}

# system_tests PRESET
system_tests()
{
    # Most of their time they wait, so there may be more of them than processors.
    APP_CG_BUILD=$project_root/build/$1 PYTHONDONTWRITEBYTECODE=1 \
        /usr/bin/python3 -m pytest -q -p no:cacheprovider -n $((2 * $(nproc))) --dist loadgroup \
        --rootdir "$project_root/tests/system" --basetemp "$stages_logs/tmp-$1" --junitxml "$junit" "$project_root/tests/system" 2>&1 | tee "$stages_logs/system-$1.log"
}

# fault_tests PRESET
fault_tests()
{
    # The short form. Its seed is fixed: what fails here fails again.
    APP_CG_BUILD=$project_root/build/$1 PYTHONDONTWRITEBYTECODE=1 \
        /usr/bin/python3 -m pytest -q -p no:cacheprovider -n $((2 * $(nproc))) --rootdir "$project_root/tests/faults" \
        --basetemp "$stages_logs/tmp-faults" --junitxml "$junit" "$project_root/tests/faults" 2>&1 |
        tee "$stages_logs/faults-$1.log"
}

# soak_tests PRESET
soak_tests()
{
    # Two minutes with a fixed seed, and the wrongs that the soak has to find.
    APP_CG_BUILD=$project_root/build/$1 PYTHONDONTWRITEBYTECODE=1 \
        /usr/bin/python3 -m pytest -q -p no:cacheprovider -n $((2 * $(nproc))) --rootdir "$project_root/tests/soak" \
        --basetemp "$stages_logs/tmp-soak" --junitxml "$junit" "$project_root/tests/soak" 2>&1 |
        tee "$stages_logs/soak-$1.log"
}
