#!/bin/sh
# Builds the release binary from two copies of the tree in folders of different names and shows
# that the results are the same to the byte.
set -eu

rm -rf build/twice
for copy in build/twice/first "build/twice/the second one"; do
  mkdir -p "$copy"
  tar cf - CMakeLists.txt CMakePresets.json packaging src | tar xf - -C "$copy"
  (cd "$copy" && "$OLDPWD/tools/build.sh" release)
done
cmp build/twice/first/build/release/morvane-connector \
  "build/twice/the second one/build/release/morvane-connector"
echo "Two builds in different folders are byte-identical."
