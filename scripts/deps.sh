# shellcheck shell=bash
# The Debian packages that the project needs, and their installation. Sourced, after ui.sh.
#
# Only what dpkg does not know as installed is asked of apt-get, so that a second start needs neither the
# network nor root. The package redis-server is not among them on purpose: it would start a server of the
# system. The same program comes with redis-tools, which starts nothing.

# shellcheck disable=SC2034 # used by the scripts that source this
{
    # Programs of the machine that builds and what they are made of, and headers that are the same everywhere.
    deps_builder=(g++ cmake ninja-build pkg-config protobuf-c-compiler protobuf-compiler libprotoc-dev libcli11-dev
        nlohmann-json3-dev)
    # Libraries of the machine that is built for.
    deps_libraries=(libprotobuf-c-dev libhiredis-dev libevent-dev libspdlog-dev libmd-dev libncurses-dev libutf8proc-dev
        libsqlite3-dev prometheus-cpp-dev)
    deps_run=(python3 redis-tools bubblewrap libfaketime)
    deps_test=(clang-14 libgtest-dev libgmock-dev python3-pytest python3-pytest-xdist python3-redis clang-format-14
        mandoc zsh tmux jq lua5.1)
    deps_bench=(libbenchmark-dev python3-redis)
    deps_fuzz=(libclang-rt-14-dev)
    deps_lint=(clang-tidy-14)
}
# shellcheck disable=SC2034 # used by the scripts that source this
deps_build=("${deps_builder[@]}" "${deps_libraries[@]}")

# The packages of a build for another machine, as apt calls them: deps_cross ARCHITECTURE
deps_cross()
{
    printf '%s\n' "${deps_builder[@]}" "crossbuild-essential-$1" "${deps_libraries[@]/%/:$1}"
}

# Prints those of the packages named that are not installed.
deps_missing()
{
    local package
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' || printf '%s\n' "$package"
    done
}

# Runs apt-get as root, whoever we are. Never asks a question.
deps_apt()
{
    local runner=(env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=120)
    if [ "$(id -u)" -ne 0 ]; then
        runner=(sudo "${runner[@]}")
    fi
    "${runner[@]}" "$@"
}

# Tells whether apt-get may be used: as root, or with sudo when it asks nothing or there is somebody to ask.
deps_may_install()
{
    [ "$(id -u)" -eq 0 ] && return 0
    command -v sudo >/dev/null || return 1
    [ -t 0 ] || sudo -n true 2>/dev/null
}

# Installs those of the packages named that are missing; ends the script when that cannot be.
deps_install()
{
    local missing log
    mapfile -t missing < <(deps_missing "$@")
    [ "${#missing[@]}" -eq 0 ] && return 0

    command -v apt-get >/dev/null ||
        die 1 "These packages are missing and there is no apt-get to install them: ${missing[*]}"
    deps_may_install ||
        die 1 "Missing packages. As root, run: apt-get update && apt-get install --no-install-recommends ${missing[*]}"

    say "Installing ${missing[*]}"
    log=$(mktemp "${TMPDIR:-/tmp}/app_cg-apt.XXXXXX")
    # The lists of a fresh system are empty, and those of an old one name versions that are gone: both show
    # as a failure, which an update mends. A system with good lists is spared the update.
    if ! deps_apt install --no-install-recommends "${missing[@]}" >"$log" 2>&1; then
        if ! { deps_apt update && deps_apt install --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
            tail -n 20 "$log" >&2
            rm -f "$log"
            die 1 "apt-get could not install: ${missing[*]}"
        fi
    fi
    rm -f "$log"
}
