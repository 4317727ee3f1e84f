#!/bin/sh
# install.sh GROUP... : installs what a group of tasks needs and this machine lacks, with apt or
# Homebrew, and says what. Prints nothing when nothing is missing.
set -eu

debian=''
brew=''

# need COMMAND DEBIAN_PACKAGE HOMEBREW_PACKAGE ("-": a stock Mac has it, or has no use for it)
need() {
  command -v "$1" >/dev/null 2>&1 && return
  debian="$debian $2"
  [ "$3" = - ] || brew="$brew $3"
}

need_googletest() {
  for prefix in /usr /usr/local /opt/homebrew; do
    [ ! -f "$prefix/include/gtest/gtest.h" ] || return 0
  done
  debian="$debian libgtest-dev"
  brew="$brew googletest"
}

# The sanitizers and the fuzzer that clang links, a package of their own on Debian.
need_clang_runtime() {
  set -- /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a
  [ -e "$1" ] || debian="$debian libclang-rt-dev"
}

for group in "$@"; do
  case "$group" in
    build)
      need c++ g++ -
      need cmake cmake cmake
      need ninja ninja-build ninja
      need python3 python3 -
      need curl curl -
      need openssl openssl -
      need xxd xxd -
      ;;
    test)
      need_googletest
      ;;
    check)
      need clang++ clang -
      need clang-format clang-format -
      need clang-tidy clang-tidy -
      need shellcheck shellcheck shellcheck
      need pyflakes3 pyflakes3 -
      need mandoc mandoc -
      need zsh zsh -
      need fish fish fish
      need busybox busybox-static -
      need gcovr gcovr -
      need llvm-objdump llvm -
      need_clang_runtime
      need npm npm node
      ;;
  esac
done

case "$(uname)" in
  Darwin)
    if ! xcode-select -p >/dev/null 2>&1; then
      echo "Missing the Xcode command-line tools. Run: xcode-select --install" >&2
      exit 1
    fi
    [ -n "$brew" ] || exit 0
    if ! command -v brew >/dev/null 2>&1; then
      echo "Missing:$brew. Install Homebrew (https://brew.sh) and run this again." >&2
      exit 1
    fi
    echo "Installing with brew:$brew"
    # shellcheck disable=SC2086
    brew install --quiet $brew
    ;;
  *)
    [ -n "$debian" ] || exit 0
    if ! command -v apt-get >/dev/null 2>&1; then
      echo "Missing:$debian (Debian's names). Install them with your system's packages." >&2
      exit 1
    fi
    sudo=''
    [ "$(id -u)" = 0 ] || sudo=sudo
    echo "Installing with apt:$debian"
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get -o DPkg::Lock::Timeout=300 update -qq
    # shellcheck disable=SC2086
    $sudo apt-get -o DPkg::Lock::Timeout=300 install -y -qq --no-install-recommends $debian >/dev/null
    ;;
esac
