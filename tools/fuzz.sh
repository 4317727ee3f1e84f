#!/bin/sh
# fuzz.sh SECONDS : fuzzes the text readers that long, with AddressSanitizer and
# UndefinedBehaviorSanitizer. A find is left in build/fuzz and fails the run.
set -eu

tools/build.sh fuzz
mkdir -p build/fuzz/corpus
if ! build/fuzz/tests/fuzz/fuzzers -max_total_time="$1" -artifact_prefix=build/fuzz/ \
  build/fuzz/corpus >build/fuzz/log 2>&1; then
  cat build/fuzz/log >&2
  exit 1
fi
tail -n 1 build/fuzz/log
