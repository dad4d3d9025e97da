#!/bin/bash
# Runs the example plain_show. Arguments: a command that runs it, with its options.
set -euo pipefail
source "$(dirname "$0")/expect.sh"
export LC_ALL=C

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(cd /sys/class && find . -mindepth 2 -maxdepth 2 -type l -printf '%P\n') | sort >"$work/devices"
[[ -s $work/devices ]] || fail "this machine shows no devices"

expect_status 0 "" "$@" --format json >"$work/document"
[[ $(wc -l <"$work/document") == 1 ]] || fail "the document is not one line"
jq -e '.devices | all(.[][]; . == {})' "$work/document" >/dev/null || fail "$(cat "$work/document")"
jq -r '.devices | to_entries[] | .key + "/" + (.value | keys[])' "$work/document" | sort |
   diff "$work/devices" - || fail "JSON shows other devices"

expect_status 0 "" "$@" >"$work/text"
[[ $(head -2 "$work/text") == "Devices by class" ]] || fail "no heading: $(cat "$work/text")"
awk 'NR > 2 { if (sub(/^   /, "")) print class "/" $0; else class = $0 }' "$work/text" | sort |
   diff "$work/devices" - || fail "text shows other devices"

expect_status 2 usage "$@" --format xml
expect_status 1 "cannot write: No space left on device" "$@" >/dev/full
mkfifo "$work/pipe"
exec 8<>"$work/pipe" 9>"$work/pipe" 8<&-  # without a reader
expect_status 141 "" "$@" --format json >&9
echo "passed"
