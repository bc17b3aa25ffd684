#!/bin/sh
# A check module: do the power supplies have enough for the card? Not for type 220.
if [ "$CG_DEV_TYPE" = 220 ]; then
    echo "needs 900 W, 600 W are left"
    exit 1
fi
