#!/bin/sh
# A check module: is the card's firmware released for this chassis? The one of type 210 is not.
if [ "$CG_DEV_TYPE" = 210 ]; then
    echo "firmware 1.4 is older than 2.0"
    exit 1
fi
