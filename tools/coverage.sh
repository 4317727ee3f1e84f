#!/bin/sh
# Prints the coverage of the last run of the sanitize tests, lines and branches, and names what they
# did not reach; fails below 95 lines in a hundred.
set -eu

# report ARGUMENT... : branches that only an exception of the library takes are left out.
report() {
  gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches "$@" \
    build/sanitize
}

report | sed -n '/^File/,$p'
printf 'Branches: '
report --branches | sed -n 's/^TOTAL *//p'
report --fail-under-line 95 >/dev/null
