#!/bin/sh
# Builds the release binary for both kinds of Mac, joins the two in an app as a release ships it,
# and checks that app. A check of portability only: releases are built on a Mac.
set -eu

tools/node_tools.sh
# At once: most of the time goes into the compiler's own library, which one build leaves half idle.
tools/build.sh macos-arm64 &
first=$!
tools/build.sh macos-x86_64
wait "$first"

rm -rf build/macos
cmake --install build/macos-arm64 --component app --prefix build/macos >build/macos.log 2>&1 || {
  cat build/macos.log >&2
  exit 1
}
app='build/macos/Morvane Connector.app'
# Debian links this tool under a name with its release only.
"$(llvm-config --bindir)/llvm-lipo" -create -output "$app/Contents/MacOS/morvane-connector" \
  build/macos-arm64/morvane-connector build/macos-x86_64/morvane-connector
python3 packaging/check_app.py "$app" \
  "$(sed -n 's/^CMAKE_PROJECT_VERSION:[^=]*=//p' build/macos-arm64/CMakeCache.txt)"
