#!/bin/bash
# What users do with the example plain_show. Arguments: a command that runs it, with its options.
source "$(dirname "$0")/expect.sh"

expect_status 0 "" "$@" --format json >"$work/document"
jq -r '.devices | to_entries[] | .key + "/" + (.value | keys[])' "$work/document" | sort |
   diff - <(cd /sys/class && find . -mindepth 2 -maxdepth 2 -type l -printf '%P\n' | sort) || fail "other devices"
expect_status 0 "" "$@" >"$work/text"
[[ $(sed 1,2d "$work/text" | sort) == $(jq -r '.devices | to_entries[] | .key, "   " + (.value | keys[])' \
   "$work/document" | sort) ]] || fail "text shows other devices: $(cat "$work/text")"
expect_status 2 usage "$@" --format xml
expect_status 1 "cannot write: No space left on device" "$@" >/dev/full
expect_status 141 "" "$@" --format json >&9
