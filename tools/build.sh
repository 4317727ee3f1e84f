#!/bin/sh
# build.sh PRESET [CMAKE_ARGUMENT...] : configures and builds. On a terminal the building tool shows
# on one line how far it is; elsewhere what the tools say is printed only when they fail.
set -eu

preset=$1
shift
mkdir -p build
log=build/$preset.log

fail() {
  cat "$log" >&2
  echo "The build of '$preset' failed (its output, above, stands in $log)." >&2
  exit 1
}

echo "Building '$preset' in build/$preset; from nothing this takes a minute or two."
cmake --preset "$preset" "$@" >"$log" 2>&1 || fail
if [ -t 1 ]; then
  cmake --build --preset "$preset"
else
  cmake --build --preset "$preset" >>"$log" 2>&1 || fail
fi
