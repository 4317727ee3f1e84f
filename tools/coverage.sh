#!/bin/sh
# Prints the coverage of the last run of the sanitize tests and what they did not reach; fails
# below 95 lines in a hundred.
set -eu

gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches \
  --gcov-ignore-parse-errors=negative_hits.warn build/sanitize >build/coverage.txt
sed -n '/^-----/,$p' build/coverage.txt
gcovr --root . --filter src/ --branches --exclude-throw-branches --exclude-unreachable-branches \
  build/sanitize | tail -n 3 | head -n 1 | sed 's/^TOTAL/Branches/'
gcovr --root . --filter src/ --fail-under-line 95 build/sanitize >/dev/null
