#!/bin/bash
# What users do with the example show. Argument: the program.
source "$(dirname "$0")/expect.sh"
show=$(realpath "$1")

# json COMMAND FILTER [JQ-OPTION...]: the filter holds for the document, which is one line.
json() {
   expect_status 0 "" "$show" "$1" --format json >"$work/document"
   [[ $(wc -l <"$work/document") == 1 ]] && jq -e "${@:2}" "$work/document" >/dev/null ||
      fail "$1: $2: $(cat "$work/document")"
}
# text COMMAND PATTERN: some line matches.
text() {
   expect_status 0 "" "$show" "$1" >"$work/text"
   grep -Eq -- "$2" "$work/text" || fail "$1: $2: $(cat "$work/text")"
}

json interfaces '[.interfaces[].name] == $ARGS.positional and (.interfaces[] | select(.name == "lo") |
   .mtu == $mtu and (.flags | index("loopback") != null) and (.counters | has("rxBytes")))' \
   --argjson mtu "$(cat /sys/class/net/lo/mtu)" --args $(ls /sys/class/net)
text interfaces "^lo +(up|down) +$(cat /sys/class/net/lo/mtu) "
json mounts '(.mounts | length) == $count and ([.types[]] | add) == $count and
   .mounts["/proc"].type == "proc"' --argjson count "$(cut -d' ' -f2 /proc/mounts | sort -u | wc -l)"
text mounts '^/proc +proc +proc '

# A name with what JSON needs escaped, a character of two bytes, and a byte that starts none.
name=$'q"b\\\t\x1b\xc3\xa9\xe2\x82\xac\xe2\x82\xc0'
cp /bin/sleep "$work/$name"
"$work/$name" 60 & pid=$!
until [[ $(cat /proc/$pid/comm) == q* ]]; do sleep 0.01; done
json processes '([.states[]] | add) == (.processes | length) and (.processes[$pid] | .threads == 1 and
   .parent == $parent and .name == "q\"b\\\t\u001b\u00e9\u20ac\ufffd\ufffd\ufffd")' \
   --arg pid $pid --argjson parent $$
text processes "^ *$pid +$$ "$'.*  q"b\\\\\\?\\?\xc3\xa9\xe2\x82\xac\\?\\?\\?$'
kill $pid

json routes '.routes | all(.destination.address != null and (.metric | type) == "number")'
json sockets '.sockets | all((.protocol == "udp") == (has("state") | not) and .local.port >= 0)'
json disks '[.disks[].name] == $ARGS.positional and (.disks | all(.reads.bytes >= 0))' \
   --args $(awk '{ print $3 }' /proc/diskstats)
text disks '^Name +Bytes +Reads +Read bytes'

for arguments in "" router "mounts --format xml" "mounts --format"; do
   expect_status 2 usage: "$show" $arguments
done
expect_status 1 "show: cannot write: No space left on device" "$show" mounts >/dev/full
expect_status 1 "show: cannot write: Bad file descriptor" "$show" mounts >&-
expect_status 141 "" "$show" mounts >&9

# Control-c while the program waits in write, for a pipe that is full. It counts from when the
# program has blocked SIGINT: bash starts background jobs with that ignored.
exec 8<>"$work/pipe"
dd if=/dev/zero of="$work/pipe" oflag=nonblock bs=4096 2>"$work/errors" || true
for delay in 0 0.3; do
   "$show" interfaces >"$work/pipe" 2>"$work/errors" & pid=$!
   until [[ $(cat /proc/$pid/comm) == show ]] && grep -q '^SigBlk:.*[2367abef]$' /proc/$pid/status; do
      sleep 0.01
   done
   sleep $delay
   kill -INT $pid
   expect_status 130 "" wait $pid
   [[ ! -s $work/errors ]] || fail "control-c: $(cat "$work/errors")"
done
