#!/bin/sh
# run.sh PROGRAM [OPTION...]: counts instructions under callgrind, where it is installed, then
# measures times and prints the table. The options are Google Benchmark's.
set -eu
program=$1
shift
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
if command -v valgrind >/dev/null 2>&1; then
   echo "Counting instructions ..."
   valgrind -q --tool=callgrind --callgrind-out-file="$dir/out" "$program" --count-instructions
   # Each dump names what it counted.
   awk -F': ' '/^desc: Trigger: Client Request/ { key = $NF }
               /^summary:/ && key != "" { print $2, key; key = "" }' "$dir"/out.* >"$dir/counts"
fi
echo "Measuring times ..."
BENCH_INSTRUCTIONS="$dir/counts" "$program" "$@"
