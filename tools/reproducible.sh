#!/bin/sh
# Builds the release binary from two copies of the tree in folders of different names and shows
# that the results are the same to the byte, stripped and hardened.
set -eu

rm -rf build/twice
for copy in build/twice/first "build/twice/the second one"; do
  mkdir -p "$copy"
  tar cf - CMakeLists.txt CMakePresets.json cmake packaging src | tar xf - -C "$copy"
  (cd "$copy" && "$OLDPWD/tools/build.sh" release)
done
cmp build/twice/first/build/release/morvane-connector \
  "build/twice/the second one/build/release/morvane-connector"
echo "Two builds in different folders are byte-identical."

binary=build/twice/first/build/release/morvane-connector
readelf -W -h "$binary" | grep -q 'Type: *DYN'
readelf -W -l "$binary" | grep -q GNU_RELRO
readelf -W -l "$binary" | grep -q 'GNU_STACK.* RW '
if readelf -W -S "$binary" | grep '[.]symtab'; then
  exit 1
fi
echo "They are position-independent, read-only after relocation, without executable stack, stripped."
