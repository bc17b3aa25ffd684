#!/bin/sh
# Denies cards whose serial number is not in a list. For `cgctl module run`, which starts it once for each card:
#
#     cgctl module run serials -- kit/examples/shell/known_serials.sh /etc/known_serials
#
# The list has one serial number on each line, in hexadecimal digits as `cgctl show` prints it; lines that begin with # are
# ignored. The exit status is the verdict, the first line that is printed the reason.
set -u

if [ $# -ne 1 ]; then
    echo "usage: known_serials.sh LIST"
    exit 2
fi
if [ ! -r "$1" ]; then
    echo "the list of serial numbers, $1, cannot be read"
    exit 1
fi
# A missing serial number is not an empty one, which would match nothing or everything.
if [ -z "${CG_SERIAL:-}" ]; then
    echo "card ${CG_CARD:-} has no serial number"
    exit 1
fi
if grep -v '^#' "$1" | grep -qixF -- "$CG_SERIAL"; then
    exit 0
fi
echo "serial number $CG_SERIAL is not in $1"
exit 1
