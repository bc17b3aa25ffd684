# shellcheck shell=bash
# Configures and builds a preset. Sourced, after ui.sh; $project_root is the root of the tree.
#
# On a terminal ninja's one changing line is the progress; elsewhere a line now and then is, so that a log
# shows that something moves and is not filled with a line per file.
# shellcheck disable=SC2154 # project_root is the sourcing script's

# Shows every 20th of ninja's status lines, and all that is none.
build_thin_out()
{
    awk '!/^\[[0-9]+\/[0-9]+\]/ { print; next }
         { split(substr($1, 2), part, /[\/\]]/); if (part[1] > 0 && part[1] % 20 == 0 || part[1] == part[2]) print $1, "built" }
         { fflush() }'
}

# Builds a preset: build_preset NAME [-DOPTION=VALUE...] [target...]. Returns non-zero when it does not build.
build_preset()
{
    local preset=$1 folder=$project_root/build/$1 log options=()
    shift
    while [[ ${1:-} == -D* ]]; do
        options+=("$1")
        shift
    done
    if ! mkdir -p "$folder" 2>/dev/null || [ ! -w "$folder" ]; then
        complain "$folder cannot be written by $(id -un); remove it (another user built there) and start again"
        return 1
    fi
    log=$folder/configure.log
    if ! (cd "$project_root" && cmake --preset "$preset" "${options[@]}") >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        complain "configuring $preset failed; see $log"
        return 1
    fi
    # Tests may run beside, and have deadlines; a build has none.
    local command=(nice -n 5 cmake --build "$folder" -j "$(nproc)")
    if [ $# -gt 0 ]; then
        command+=(--target "$@")
    fi
    if [ -t 1 ]; then
        "${command[@]}"
    else
        "${command[@]}" 2>&1 | build_thin_out
    fi
}
