# What the checks of the examples share; sourced by them.
set -euo pipefail
export LC_ALL=C
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkfifo "$work/pipe"
exec 8<>"$work/pipe" 9>"$work/pipe" 8<&-  # 9: a pipe whose reader has gone

fail() {
   echo "FAILED: $*" >&2
   exit 1
}

# expect_status STATUS MESSAGE COMMAND...: standard error holds the message, or nothing for "".
expect_status() {
   local status=0
   "${@:3}" 2>"$work/errors" || status=$?
   [[ $status == "$1" ]] || fail "${*:3}: status $status: $(cat "$work/errors")"
   grep -qF -- "$2" "$work/errors" || [[ -z $2 && ! -s $work/errors ]] ||
      fail "${*:3}: message: $(cat "$work/errors")"
}
