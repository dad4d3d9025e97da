#!/bin/bash
# Runs the example `show` the way people and programs do. Argument: the path of the program.
set -euo pipefail

show=$(realpath "$1")
work=$(mktemp -d)
started=()
clean_up() {
   kill "${started[@]}" || true
   wait "${started[@]}" || true
   rm -rf "$work"
}
trap 'clean_up 2>/dev/null' EXIT

. "$(dirname "$0")/expect.sh"

# expect_json COMMAND FILTER [JQ-OPTION...]: the filter holds for the command's document.
expect_json() {
   "$show" "$1" --format json >"$work/document"
   [[ $(wc -l <"$work/document") == 1 ]] || fail "$1: the document is not one line"
   jq -e "${@:3}" "$2" "$work/document" >"$work/result" || fail "$1: $2: $(cat "$work/document")"
}

wait_until() {
   for _ in {1..500}; do
      if "$@"; then return; fi
      sleep 0.01
   done
   fail "waited in vain for: $*"
}

# The rows of the first table in $work/text.
rows() {
   sed '1,3d; /^$/,$d' "$work/text"
}

test_interfaces() {
   expect_json interfaces '.interfaces[] | select(.name == "lo") |
         .mtu == $mtu and (.flags | index("loopback") != null) and .up == (.flags[0] == "up") and
         (has("speed") | not) and (.counters | .rxBytes == .txBytes and has("rxPackets"))' \
      --argjson mtu "$(cat /sys/class/net/lo/mtu)"
   expect_json interfaces '[.interfaces[].name] | sort == ($names | split("\n") | sort)' \
      --arg names "$(ls /sys/class/net)"
   "$show" interfaces >"$work/text"
   [[ $(head -1 "$work/text") == "Network interfaces" && -z $(sed -n 2p "$work/text") ]] ||
      fail "no heading: $(cat "$work/text")"
   [[ $(rows | awk '{print $1}') == $(jq -r '.interfaces[].name' "$work/document") ]] ||
      fail "text and JSON name other interfaces: $(cat "$work/text")"
   # The address begins under its heading, and the last counter ends under its own.
   awk 'NR == 3 { address = index($0, "Address"); packets = index($0, "Tx packets") + 9 }
        NR > 3 { if (index($0, $5) != address || substr($0, packets, 2) !~ /[0-9] /) exit 1 }' \
      "$work/text" || fail "columns are not aligned: $(cat "$work/text")"
}

test_processes() {
   expect_json processes '.processes[$pid] | .parent == $parent and .threads == 1 and
         .residentBytes > 100000 and .cpuSeconds >= 0 and (.state | length > 1)' \
      --arg pid $$ --argjson parent $PPID
   expect_json processes '([.states[]] | add) == (.processes | length) and .states.running >= 1'
   "$show" processes >"$work/text"
   rows | awk '$1 == pid && $2 == parent { found = 1 } END { exit !found }' pid=$$ parent=$PPID ||
      fail "this shell is not in the table"
   grep -Eq '^running +[0-9]+$' "$work/text" || fail "no counts under the table"

   # A name with all that JSON needs escaped, two characters of several bytes, one that is cut off,
   # and a byte that starts none.
   local name=$'q"b\\\t\x1b\xc3\xa9\xe2\x82\xac\xe2\x82\xc0' pid
   cp /bin/sleep "$work/$name"
   "$work/$name" 60 &
   pid=$!
   started+=("$pid")
   wait_until grep -q '^q' "/proc/$pid/comm"
   expect_json processes '.processes[$pid].name == "q\"b\\\t\u001b\u00e9\u20ac\ufffd\ufffd\ufffd"' \
      --arg pid "$pid"
   "$show" processes >"$work/text"
   grep -qF $'  q"b\\??\xc3\xa9\xe2\x82\xac???' "$work/text" || fail "a name unfit for a terminal"
}

test_mounts() {
   expect_json mounts '(.mounts | length) == $count and ([.types[]] | add) == $count and
         .mounts["/proc"].type == "proc" and (.mounts["/proc"].options | index("rw") != null)' \
      --argjson count "$(cut -d' ' -f2 /proc/self/mounts | sort -u | wc -l)"
   "$show" mounts >"$work/text"
   rows | grep -Eq '^/proc +proc +proc +rw' || fail "/proc is not in the table"

   # The kernel writes spaces and backslashes in octal. Where it lets us, mount such a thing, on top
   # of another, which it hides.
   local odd="$work/a b\\040\"c"
   mkdir "$odd"
   if unshare -rm mount -t tmpfs hidden "$odd" 2>/dev/null; then
      unshare -rm bash -c 'mount -t tmpfs hidden "$1" && mount -t tmpfs "x y" "$1" &&
            "$2" mounts --format json' - "$odd" "$show" |
         jq -e --arg point "$odd" '.mounts[$point].source == "x y"' >/dev/null ||
         fail "a mount point with odd characters"
   else
      echo "not run: mounting is not allowed here"
   fi
}

test_failures() {
   local status
   expect_status 2 usage: "$show"
   expect_status 2 usage: "$show" routes
   expect_status 2 usage: "$show" mounts --format xml
   expect_status 2 usage: "$show" mounts --format
   expect_status 1 "show: cannot write: No space left on device" "$show" mounts >/dev/full
   expect_status 1 "show: cannot write: Bad file descriptor" "$show" mounts >&-
   # The reader goes before the writer starts: the writer waits for it on its standard input.
   expect_status 141 "" bash -c '{ read -r _ <"$2"; "$1" mounts; } | { exec <&-; echo >"$2"; }
      exit "${PIPESTATUS[0]}"' - "$show" "$work/go"
}

# Whether process $1 is the program by now, and has blocked SIGINT.
blocks_sigint() {
   awk '/^Name:\tshow$/ { name = 1 } /^SigBlk:.*[2367abef]$/ { blocked = 1 }
        END { exit !(name && blocked) }' "/proc/$1/status"
}

# Standard output is a full pipe that nobody reads, so that the program waits in write. Bash starts
# background jobs with SIGINT ignored: control-c can count from when the program has blocked it.
test_control_c() {
   local delay pid status
   mkfifo "$work/full"
   exec 9<>"$work/full"
   dd if=/dev/zero of="$work/full" oflag=nonblock bs=4096 status=none 2>/dev/null || true
   for delay in 0 0.3; do
      "$show" interfaces >"$work/full" 2>"$work/errors" &
      pid=$!
      wait_until blocks_sigint "$pid"
      sleep $delay
      kill -INT "$pid" || fail "the program did not wait for its reader"
      (sleep 2; kill -KILL "$pid") >/dev/null 2>&1 &
      started+=($!)
      status=0
      wait "$pid" || status=$?
      [[ $status == 130 ]] || fail "control-c after $delay s: status $status"
      [[ ! -s $work/errors ]] || fail "control-c after $delay s: $(cat "$work/errors")"
   done
}

mkfifo "$work/go"
test_interfaces
test_processes
test_mounts
test_failures
test_control_c
echo "passed"
