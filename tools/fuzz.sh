#!/bin/sh
# fuzz.sh SECONDS : fuzzes each text reader that long, from the committed corpus, with
# AddressSanitizer and UndefinedBehaviorSanitizer. A find is left in build/fuzz and fails the run.
set -eu

seconds=$1
mkdir -p build/fuzz
for reader in state_file credential manifest version; do
  clang++ -std=c++20 -g -O1 -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all \
    -Isrc -Itests "tests/fuzz/$reader.cpp" src/state/credential_text.cpp src/update/manifest.cpp \
    src/net/text.cpp -o "build/fuzz/$reader"
  mkdir -p "build/fuzz/$reader.corpus"
  if ! "build/fuzz/$reader" -max_total_time="$seconds" -artifact_prefix="build/fuzz/$reader-" \
    "build/fuzz/$reader.corpus" "tests/fuzz/corpus/$reader" >"build/fuzz/$reader.log" 2>&1; then
    cat "build/fuzz/$reader.log" >&2
    exit 1
  fi
  printf '%-12s %s\n' "$reader" "$(tail -n 1 "build/fuzz/$reader.log")"
done
