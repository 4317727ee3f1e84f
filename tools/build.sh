#!/bin/sh
# build.sh PRESET [CMAKE_ARGUMENT...] : configures and builds; prints only what went wrong.
set -eu

preset=$1
shift
mkdir -p build
log=build/$preset.log
if ! { cmake --preset "$preset" "$@" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
  cat "$log" >&2
  echo "The build of '$preset' failed (its output, above, stands in $log)." >&2
  exit 1
fi
