#!/bin/bash
# The library exports exactly the names of its list, whichever compiler built it, calls its own
# functions directly, and imports of the host framework what every host has. Arguments: the library
# and the list.
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

# Unoptimised, it refers to the virtual table as well.
diff -u --label list --label library - <(nm -DC --undefined-only "$1" |
   sed -n '/vtable for/d; s/^ *U \(.*Orv::.*\)/\1/p' | sort -u) <<'END'
Orv::ActivityImplFacility::activityManagerSm()
Orv::ActivityManagerSm::activityLock()
Orv::AllocTrackTypeInfo::_trackAllocation(Orv::AllocTrackTypeInfo**, std::type_info const&, unsigned long, unsigned long)
Orv::AllocTrackTypeInfo::trackDeallocation(Orv::AllocTrackTypeInfo*)
Orv::Lock::throwFailedLock(int)
Orv::Lock::throwFailedUnlock(int)
Orv::PtrInterface::fwkType() const
Orv::PtrInterface::hasNotificationActiveIs(bool)
Orv::PtrInterface::notifieeList() const
Orv::PtrInterface::orvAllocTrackTypeInfo_
Orv::PtrInterface::zeroReferencesIs(bool)
Orv::PtrInterface::~PtrInterface()
typeinfo for Orv::PtrInterface
END
echo "passed"
