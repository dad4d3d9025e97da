# What the tests of programs share; sourced by them. $work is a folder of theirs.

fail() {
   echo "FAILED: $*" >&2
   exit 1
}

# expect_status STATUS MESSAGE COMMAND...: standard error holds the message, or nothing for "".
expect_status() {
   local status=0
   "${@:3}" 2>"$work/errors" || status=$?
   [[ $status == "$1" ]] || fail "${*:3}: status $status, not $1: $(cat "$work/errors")"
   if [[ -z $2 ]]; then
      [[ ! -s $work/errors ]] || fail "${*:3}: $(cat "$work/errors")"
   else
      grep -qF -- "$2" "$work/errors" || fail "${*:3}: message: $(cat "$work/errors")"
   fi
}
