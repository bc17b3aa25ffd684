# shellcheck shell=bash
# Bare Debian trees, for tests that must not change the system that they run on. Sourced, after ui.sh; as root, with the
# packages ${trees_need[@]}.
#
# $trees is the folder that keeps them, with the logs of what made them. They are fetched from APP_CG_MIRROR.

# shellcheck disable=SC2034,SC2154 # used by, and set by, the scripts that source this
trees_need=(debootstrap systemd-container)

# Fetches a bare tree unless it is there: tree_fetch NAME [package...]
tree_fetch()
{
    local tree=$trees/$1
    shift
    [ ! -e "$tree" ] || return 0
    say "Fetching a bare Debian tree"
    rm -rf --one-file-system "$tree.new"
    debootstrap --variant=minbase ${1+"--include=$(IFS=,; printf '%s' "$*")"} bookworm "$tree.new" \
        "${APP_CG_MIRROR:-http://deb.debian.org/debian}" >"$trees/debootstrap.log" 2>&1 ||
        die 1 "debootstrap failed; see $trees/debootstrap.log"
    mv "$tree.new" "$tree"
}

# Has apt install what is missing in a tree: tree_satisfy NAME DEPENDENCY...
tree_satisfy()
{
    local tree=$trees/$1
    shift
    chroot "$tree" sh -c 'apt-get -q update && apt-get -q -y --no-install-recommends satisfy "$1" && apt-get clean' \
        sh "$(printf '%s\n' "$@" | paste -sd ,)" >"$trees/apt.log" 2>&1 ||
        die 1 "apt-get failed; see $trees/apt.log"
}

# Makes a tree from another unless it is there: tree_derive NAME FROM FUNCTION, which is given the new tree's name and
# changes what it likes in it.
tree_derive()
{
    [ ! -e "$trees/$1" ] || return 0
    rm -rf --one-file-system "$trees/$1.new"
    cp -a --reflink=auto "$trees/$2" "$trees/$1.new"
    "$3" "$1.new"
    mv "$trees/$1.new" "$trees/$1"
}
