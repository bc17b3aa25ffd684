# shellcheck shell=bash
# How the scripts talk: headings, failures, elapsed time. Sourced.
#
# Colours only on a terminal, and never when NO_COLOR is set: the same scripts run in a CI server's log.

# shellcheck disable=SC2034 # used by the scripts that source this
if [ -t 1 ] && [ -z "${NO_COLOR:-}" ]; then
    ui_bold=$'\e[1m' ui_red=$'\e[31m' ui_green=$'\e[32m' ui_plain=$'\e[0m'
else
    ui_bold='' ui_red='' ui_green='' ui_plain=''
fi

# A heading on standard output.
say() { printf '%s== %s%s\n' "$ui_bold" "$*" "$ui_plain"; }

# One line on standard error.
complain() { printf '%s%s%s\n' "$ui_red" "$*" "$ui_plain" >&2; }

# One line on standard error, and the end. $1 is the exit status.
die()
{
    local status=$1
    shift
    complain "$@"
    exit "$status"
}
