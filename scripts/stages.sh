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

stages_begin()
{
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

# Runs a stage: stage NAME FUNCTION [argument...]. The function finds the name of the JUnit file that it may
# write in $junit. Returns the function's status.
stage()
{
    local name=$1 began=$SECONDS status=0 passed=0 failed=0 skipped=0 verdict
    junit=${name//,/}
    junit=$stages_logs/${junit// /-}.xml
    shift
    say "$name"
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
    verdict="${ui_green}pass$ui_plain"
    [ "$failed" -eq 0 ] || verdict="${ui_red}FAIL$ui_plain"
    stages_passed=$((stages_passed + passed))
    stages_failed=$((stages_failed + failed))
    stages_lines+=("$(printf '%s  %-22s %4d s  %d passed, %d failed, %d skipped' "$verdict" "$name" \
        $((SECONDS - began)) "$passed" "$failed" "$skipped")")
    [ "$failed" -eq 0 ]
}

# Prints the summary and ends the script.
stages_end()
{
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
    local log=$stages_logs/clang-tidy.log
    # The records' headers are generated; nothing else needs to be built to be looked at.
    build_preset lint app_cg_schemas || return 1
    # Headers are seen through the files that include them; what no build compiles has no command to check by.
    # One file at a time: the analyzer of this version sees va_lists wrongly from the second file on.
    (cd "$project_root" && stages_sources | grep -E '\.(c|cpp)$' |
        grep -E '^(src|builtin|lib|tools/(cgctl|recorder|sim)|kit|tests/unit|tests/recording_platform)/' |
        xargs -d '\n' -n 1 -P "$(nproc)" clang-tidy-14 --quiet -p build/lint) >"$log" 2>&1 && return 0
    grep -E '(warning|error):' "$log" | sort -u | head -n 60 >&2
    return 1
}

# unit_tests PRESET
unit_tests()
{
    local log=$stages_logs/unit-$1.log
    # Many of them wait for servers.
    if (cd "$project_root" && ctest --preset "$1" -j $((2 * $(nproc))) --no-tests=error --output-junit "$junit") >"$log" 2>&1; then
        grep 'tests passed' "$log"
        return 0
    fi
    grep -vE '^ *[0-9]+/[0-9]+ Test +#.* Passed|^ *Start +[0-9]+:' "$log" | tail -n 80 >&2
    return 1
}

# The fuzz targets, all at the same time: fuzz_targets SECONDS
fuzz_targets()
{
    "$project_root/tests/fuzz/run" --seconds "$1" --junit "$junit" 2>&1 | tee "$stages_logs/fuzz.log"
}

# system_tests PRESET [file...]: of the daemon and the tools of a build; without files all of them
system_tests()
{
    local name=$1 files=("$project_root/tests/system")
    shift
    [ $# -eq 0 ] || files=("${@/#/$project_root/tests/system/}")
    # Most of their time they wait, so there may be more of them than processors.
    APP_CG_BUILD=${APP_CG_BUILD:-$project_root/build/$name} PYTHONDONTWRITEBYTECODE=1 \
        /usr/bin/python3 -m pytest -q -p no:cacheprovider -n $((2 * $(nproc))) --rootdir "$project_root/tests/system" \
        --basetemp "$stages_logs/tmp-$name" --junitxml "$junit" "${files[@]}" 2>&1 | tee "$stages_logs/system-$name.log"
}

# daemon_tests PRESET TOOLS: the daemon of one build, with the tools of another
daemon_tests()
{
    APP_CG_BUILD=$project_root/build/$2 APP_CG_DAEMON=$project_root/build/$1/bin/app_cg \
        system_tests "$1" test_admission.py test_debug_shell.py test_process.py test_role.py test_store_loss.py
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
