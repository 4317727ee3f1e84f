#!/bin/sh
# Builds the release binary for both kinds of Mac and checks that each is a Mach-O executable that
# needs nothing but system libraries. A check of portability only; releases are built on a Mac.
set -eu

tools/node_tools.sh

inspect() {
  binary=build/macos-$1/morvane-connector
  header=$(llvm-objdump --macho --private-header "$binary" | tail -n 1)
  libraries=$(llvm-objdump --macho --dylibs-used "$binary" | tail -n +2)
  case $header in
    *MH_MAGIC_64*EXECUTE*) ;;
    *) echo "$binary is no Mach-O executable: $header" >&2 && return 1 ;;
  esac
  if printf '%s\n' "$libraries" | grep -v '^[[:space:]]*\(/usr/lib/\|/System/Library/\)'; then
    echo "$binary needs more than system libraries (above)." >&2
    return 1
  fi
  printf '%s: Mach-O executable, needs%s\n' "$1" "$(printf '%s\n' "$libraries" | awk '{printf " %s", $1}')"
}

for arch in arm64 x86_64; do
  tools/build.sh "macos-$arch"
  inspect "$arch"
done
