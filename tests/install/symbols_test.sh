#!/bin/bash
# The library exports exactly the names of its list, whichever compiler built it, and calls its own
# functions directly. Arguments: the library and the list.
set -euo pipefail
export LC_ALL=C

diff -u --label list --label library \
   <(sed -En '/^ +local:/q; s/^ +"?([^":{}]+|[^"]+::[^"]+)"?;$/\1/p' "$2" | sort) \
   <(nm -DC --defined-only "$1" | cut -d' ' -f3- | sort -u)

# A call through the linkage table is one that another library could take over.
relocations=$(readelf -rW "$1" | c++filt)
if grep 'JUMP_SLO.* vorel' <<<"$relocations"; then
   echo "the library calls these functions of its own through the linkage table" >&2
   exit 1
fi
echo "passed"
