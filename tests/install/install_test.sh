#!/bin/bash
# Installs the library and uses it from outside: by CMake, by pkg-config and from Python, on the
# stand-in and on a host of another layout. Arguments: the source folder and the build folder. CC
# and CXX are the compilers of that build.
set -euo pipefail

source=$(realpath "$1")
build=$(realpath "$2")
consumers=$source/tests/install
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"  # a place without headers
unset CFLAGS CXXFLAGS LDFLAGS LD_LIBRARY_PATH
flags=(-Wall -Wextra -Wpedantic -Werror)
prefix=$work/elsewhere/vorel
host=$work/host

fail() {
   echo "FAILED: $*" >&2
   exit 1
}

# quietly COMMAND...: the command's output is shown only when it fails.
quietly() {
   "$@" >"$work/log" 2>&1 || fail "$*: $(cat "$work/log")"
}

# expect EXPECTED-OUTPUT PROGRAM...
expect() {
   "${@:2}" >"$work/output" || fail "${*:2}: status $?: $(cat "$work/output")"
   diff -u "$1" "$work/output" || fail "${*:2}: not what was expected"
}

# build FOLDER SOURCE-FOLDER OPTION...
build() {
   quietly cmake -S "$2" -B "$work/$1" "${@:3}"
   quietly cmake --build "$work/$1" -j 2
}

# expect_cxx PROGRAM: cxx/main.cpp, however it was built
expect_cxx() {
   expect "$consumers/cxx/expected.txt" "$1" "$work/consumer/plugin.so"
}

expect_python() {
   expect "$consumers/plain/expected.txt" python3 "$consumers/plain/main.py" "$1"
}

# The names in the list of exports that a C program refers to: not the variables, and not `end`.
c_functions() {
   sed -En 's/^ {6}([[:alnum:]_]+);$/\1/p' "$source/cmake/Vorel.map" |
      grep -Ev '^(end|vorel_globalBufsize|vorel_ioFlushCount|vorel_bufferFullCount)$' | sort
}

# Fills `compile` and `link` with pkg-config's options; liborv.so.0 is in the folder $2.
package_of() {
   local -x PKG_CONFIG_PATH=$1/lib/pkgconfig
   read -ra compile <<<"$(pkg-config --cflags vorel)"
   read -ra link <<<"$(pkg-config --libs vorel) -Wl,-rpath,$1/lib:$2 -ldl"
}

# What an installation puts below DESTDIR works from another place.
test_installed_files() {
   DESTDIR=$work/stage quietly cmake --install "$build" --prefix /opt/vorel
   mkdir "$work/elsewhere"
   mv "$work/stage/opt/vorel" "$prefix"
   local file
   for file in libVorel.so libVorel.so.1 libVorel.so.1.0.0 liborv.so.0 pkgconfig/vorel.pc; do
      [[ -e $prefix/lib/$file ]] || fail "$file is not installed"
   done
   [[ -z $(find "$work/stage" -type f) ]] || fail "files outside the prefix"
   ! grep -rF -e "$build" -e "$source" "$prefix/lib/cmake" "$prefix/lib/pkgconfig" ||
      fail "the packages refer to the build"
   readelf -d "$prefix/lib/libVorel.so" | grep -q 'SONAME.*\[libVorel.so.1\]' || fail "soname"
}

# By CMake with the library's compiler, by pkg-config with another one, where there is one.
test_consumers() {
   build consumer "$consumers/cxx" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="${flags[*]}"
   expect_cxx "$work/consumer/consumer"
   build from_build "$consumers/cxx" -DVorel_DIR="$build"
   expect_cxx "$work/from_build/consumer"

   local other=g++
   [[ $CXX == *clang++* ]] || other=$(command -v clang++) || other=$CXX
   package_of "$prefix" "$prefix/lib"
   quietly "$other" -std=c++20 -O2 -no-pie "${flags[@]}" "${compile[@]}" \
      "$consumers/cxx/main.cpp" -o "$work/cxx" "${link[@]}"
   expect_cxx "$work/cxx"
   quietly "$CC" -std=c99 "${flags[@]}" "${compile[@]}" "$consumers/plain/main.c" \
      -o "$work/plain" "${link[@]}"
   expect "$consumers/plain/expected.txt" "$work/plain"
   diff <(c_functions) <(nm -D --undefined-only "$work/plain" | awk '{ print $2 }' |
      grep -Fx -f <(c_functions) | sort) || fail "main.c does not call every function"
   expect_python "$prefix/lib/libVorel.so"
}

# Each header stands for itself, and its short and its long name mean the same file.
test_headers() {
   # header NAME LANGUAGE STANDARD
   header() {
      quietly "$CXX" -x "$2" -std="$3" -fsyntax-only "${flags[@]}" "${compile[@]}" - \
         <<<"#include \"$1\""$'\n'"#include <vorel/$1>"
   }
   local name
   while read -r name; do
      local standard=c++17  # but for the document layer and what it inlines
      [[ $name != document/* && $name != text/* ]] || standard=c++20
      header "$name" c++ $standard
      [[ $name != plain/* ]] || header "$name" c c99
   done < <(cd "$prefix/include/vorel" && find . -name '*.h' -printf '%P\n')
}

test_subproject() {
   build parent "$consumers/subproject" -DVOREL_SOURCE="$source"
   expect_cxx "$work/parent/consumer"
}

# A host framework: the stand-in, with other fields before and behind those that it has.
make_host() {
   mkdir -p "$host/lib" "$host/include/orv"
   sed -e 's/^   std::atomic<uint64_t> allocations/   char host_name[40] = {};\n&/' \
      -e 's/^   pthread_mutex_t mutex.*/&\n   long host_owner = 0;/' \
      -e 's/^   Lock lock_;/   long host_queue_[40] = {};\n&\n   long host_events_ = 0;/' \
      "$source/orv/Orv.h" >"$host/include/orv/Orv.h"
   [[ $(grep -c host_ "$host/include/orv/Orv.h") -eq 4 ]] || fail "the host is like the stand-in"
   quietly "$CXX" -std=c++20 -shared -fPIC -I"$host/include" -Wl,-soname,liborv.so.0 \
      "$source/orv/Orv.cpp" -o "$host/lib/liborv.so.0"
}

# runs_on_host PREFIX: with the library there, however it was built
runs_on_host() {
   package_of "$1" "$host/lib"
   quietly "$CXX" -std=c++17 "${flags[@]}" -I"$host/include" "${compile[@]}" \
      "$consumers/cxx/host.cpp" -o "$work/on_host" "${link[@]}"
   LD_LIBRARY_PATH=$host/lib "$work/on_host" || fail "the library in $1 on a host: status $?"
}

# The library runs on any host, and can be built for one: nothing of the stand-in is used then.
test_host_framework() {
   make_host
   runs_on_host "$prefix"
   local installed=$work/for_host_installed
   build for_host "$source" -DVOREL_ORV_ROOT="$host" -DVOREL_BUILD_EXAMPLES=OFF \
      -DCMAKE_BUILD_TYPE=Debug
   quietly cmake --install "$work/for_host" --prefix "$installed"
   [[ -z $(find "$installed" -iname '*orv.*') ]] || fail "the stand-in is installed"
   runs_on_host "$installed"
   build host_consumer "$consumers/cxx" -DCMAKE_PREFIX_PATH="$installed"
   expect_cxx "$work/host_consumer/consumer"
   expect_python "$installed/lib/libVorel.so.1"
   # The stand-in can play the host.
   quietly cmake -S "$source" -B "$work/for_stand_in" -DVOREL_ORV_ROOT="$prefix"
}

test_installed_files
test_consumers
test_headers
test_subproject
test_host_framework
echo "passed"
