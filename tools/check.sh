#!/bin/sh
# Everything that ./dev test does not: style, linters, both compilers, sanitizers, coverage, other
# shells, both kinds of Mac, reproducibility. Stops at the first thing that is wrong.
set -eu
export MORVANE_REQUIRE_SHELLS=1

step() { printf '\n== %s\n' "$*"; }

mac=false
[ "$(uname)" != Darwin ] || mac=true

# may_skip COMMAND... : runs what makes a mount namespace of its own; 77 says that it could not.
may_skip() {
  status=0
  "$@" || status=$?
  [ "$status" != 77 ] || echo "Skipped: this system allows no mount namespace of one's own."
  [ "$status" = 0 ] || [ "$status" = 77 ]
}

# version_14 TOOL : whether this is the release whose verdict counts; another would judge otherwise.
version_14() {
  "$1" --version 2>/dev/null | grep -q 'version 14\.' && return
  echo "Skipped: the committed settings are for release 14 of $1."
  return 1
}

step "Formatting"
if version_14 clang-format; then
  find src tests '(' -name '*.cpp' -o -name '*.hpp' ')' -print0 |
    xargs -0 clang-format --dry-run -Werror
fi

step "Shell scripts"
find dev .ci/run tools packaging examples -type f -print0 2>/dev/null |
  xargs -0 grep -l --null '^#!/bin/.*sh$' | xargs -0 shellcheck

step "Python"
set -- python3 -c 'import ast, sys; [ast.parse(open(name).read()) for name in sys.argv[1:]]'
! command -v pyflakes3 >/dev/null || set -- pyflakes3
find sandbox tests tools packaging src examples -name '*.py' -print0 2>/dev/null | xargs -0 "$@"

step "Workflows"
tools/node_tools.sh
node tools/lint_workflows.mjs

# What this one takes longest for leaves a processor idle half of the time, so it begins here.
mkdir -p build
if ! $mac; then
  nice tools/cross_compile.sh >build/cross_compile.log 2>&1 &
  cross=$!
  trap 'kill "$cross" 2>/dev/null || true' EXIT
fi

step "The system's compiler and library, and Clang with libc++: warnings are errors"
tools/build.sh debug
tools/build.sh clang

step "Manual"
mandoc -T lint build/debug/packaging/morvane-connector.1

step "clang-tidy"
if version_14 clang-tidy; then
  find src -name '*.cpp' -print0 | xargs -0 -P "$(getconf _NPROCESSORS_ONLN)" -n 6 \
    clang-tidy -p build/clang --quiet 2>build/clang-tidy.log
fi

step "Every test under AddressSanitizer and UndefinedBehaviorSanitizer, with coverage"
tools/build.sh sanitize
find build/sanitize -name '*.gcda' -delete
# Apple's allocator and library want this of the sanitizers.
$mac && export MallocNanoZone=0 ASAN_OPTIONS=detect_container_overflow=0
ctest --preset sanitize
if ! $mac; then
  tools/coverage.sh
  for shell in busybox dash; do
    # The system's own was the shell of ./dev test.
    [ "$(readlink -f "$(command -v "$shell")")" != "$(readlink -f /bin/sh)" ] || continue
    step "Every test where sh is $shell"
    may_skip tools/with_shell.sh "$shell" ctest --preset debug
  done
  step "Every test as on a Mac: libc++, its shell, a keychain, a python3 without SSL_CERT_FILE"
  status=0
  tools/as_mac.sh ctest --preset clang || status=$?
  if [ "$status" = 77 ]; then
    echo "Only with libc++: this system allows no mount namespace of one's own."
    ctest --preset clang
  else
    [ "$status" = 0 ]
  fi
  step "Two release builds"
  tools/reproducible.sh
  step "The app, for both kinds of Mac"
  status=0
  wait "$cross" || status=$?
  cat build/cross_compile.log
  [ "$status" = 0 ]
  step "Two commands at each fault of the system"
  tools/build.sh demo
  python3 tools/faults.py validate claim-token
  step "Fuzzing, briefly"
  tools/fuzz.sh 5
fi

step "All checks passed."
