#!/bin/bash
# Installs the library and uses it from outside: by CMake, by pkg-config and from Python, with both
# compilers. Argument: the source folder. CC and CXX compile the library.
set -euo pipefail

source=$(realpath "$1")
consumers=$source/tests/install
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset CFLAGS CXXFLAGS LDFLAGS LD_LIBRARY_PATH MAKEFLAGS MFLAGS MAKELEVEL
flags=(-Wall -Wextra -Wpedantic -Werror)

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

# The names in the list of exports that a C program refers to: not the variables, and not `end`.
c_functions() {
   sed -En 's/^ {6}([[:alnum:]_]+);$/\1/p' "$source/cmake/Vorel.map" |
      grep -Ev '^(end|vorel_globalBufsize|vorel_ioFlushCount|vorel_bufferFullCount)$' | sort
}

# use PREFIX CC CXX ORV: consumers of the library in PREFIX; liborv.so.0 is in the folder ORV.
use() {
   local prefix=$1 cc=$2 cxx=$3 lib=$1/lib
   local -x PKG_CONFIG_PATH=$lib/pkgconfig
   rm -rf "$work/consumer"
   build consumer "$consumers/cxx" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
      -DCMAKE_CXX_FLAGS="${flags[*]}"
   expect "$consumers/cxx/expected.txt" "$work/consumer/consumer"

   local -a compile link
   read -ra compile <<<"$(pkg-config --cflags vorel)"
   read -ra link <<<"$(pkg-config --libs vorel) -Wl,-rpath,$lib:$4"
   quietly "$cxx" -std=c++20 -O2 -no-pie "${flags[@]}" "${compile[@]}" "$consumers/cxx/main.cpp" \
      -o "$work/cxx" "${link[@]}"
   expect "$consumers/cxx/expected.txt" "$work/cxx"
   quietly "$cc" -std=c99 "${flags[@]}" "${compile[@]}" "$consumers/plain/main.c" \
      -o "$work/plain" "${link[@]}"
   expect "$consumers/plain/expected.txt" "$work/plain"

   local header
   while read -r header; do  # each stands for itself, and includes nothing that is not installed
      quietly "$cxx" -std=c++17 -fsyntax-only "${flags[@]}" "${compile[@]}" -x c++ - \
         <<<"#include \"$header\""
   done < <(cd "$prefix/include/vorel" && find . -name '*.h' -printf '%P\n')
}

# What `make install` puts below DESTDIR works from another place.
test_install() {
   quietly make -C "$source" install BUILD="$work/build" PREFIX=/opt/vorel DESTDIR="$work/stage"
   prefix=$work/elsewhere/vorel
   mkdir "$work/elsewhere"
   mv "$work/stage/opt/vorel" "$prefix"
   local file
   for file in libVorel.so libVorel.so.1 libVorel.so.1.0.0 liborv.so.0 pkgconfig/vorel.pc; do
      [[ -e $prefix/lib/$file ]] || fail "$file is not installed"
   done
   [[ -z $(find "$work/stage" -type f) ]] || fail "files outside PREFIX"
   ! grep -rF -e "$work" -e "$source" "$prefix/lib/cmake" "$prefix/lib/pkgconfig" ||
      fail "the packages refer to the build"
   readelf -d "$prefix/lib/libVorel.so" | grep -q 'SONAME.*\[libVorel.so.1\]' || fail "soname"

   local compilers
   for compilers in "gcc g++" "clang clang++"; do
      if command -v "${compilers#* }" >/dev/null; then
         # shellcheck disable=SC2086
         use "$prefix" $compilers "$prefix/lib"
      else
         echo "not run: ${compilers#* } is not installed"
      fi
   done
   diff <(c_functions) <(nm -D --undefined-only "$work/plain" | awk '{ print $2 }' |
      grep -Fx -f <(c_functions) | sort) || fail "main.c does not call every function"
   expect "$consumers/plain/expected.txt" \
      python3 "$consumers/plain/main.py" "$prefix/lib/libVorel.so"
}

test_build_folder() {
   build from_build "$consumers/cxx" -DVorel_DIR="$work/build"
   expect "$consumers/cxx/expected.txt" "$work/from_build/consumer"
}

test_subproject() {
   build parent "$consumers/subproject" -DVOREL_SOURCE="$source"
   expect "$consumers/cxx/expected.txt" "$work/parent/consumer"
}

# On a host that has the framework, without a link for developers: nothing of the stand-in is used.
test_host_framework() {
   local host=$work/host
   mkdir -p "$host/lib" "$host/include"
   cp -L "$prefix/lib/liborv.so.0" "$host/lib"
   cp -r "$prefix/include/vorel/orv" "$host/include"
   build for_host "$source" -DVOREL_ORV_ROOT="$host" -DVOREL_BUILD_TESTS=OFF \
      -DVOREL_BUILD_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=Debug
   quietly cmake --install "$work/for_host" --prefix "$work/for_host_installed"
   [[ -z $(find "$work/for_host_installed" -iname '*orv.*') ]] || fail "the stand-in is installed"
   use "$work/for_host_installed" "$CC" "$CXX" "$host/lib"
   expect "$consumers/plain/expected.txt" \
      python3 "$consumers/plain/main.py" "$work/for_host_installed/lib/libVorel.so.1"
   # The stand-in can play the host.
   quietly cmake -S "$source" -B "$work/for_stand_in" -DVOREL_ORV_ROOT="$prefix"
}

test_install
test_build_folder
test_subproject
test_host_framework
echo "passed"
