#!/bin/sh
# install.sh GROUP... : installs what a group of tasks needs and this machine lacks, with apt or
# Homebrew, and names each package as it does. Prints nothing when nothing is missing.
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

# Clang's own library, which a Mac's programs stand on, and GoogleTest to be built with it.
need_libcxx() {
  set -- /usr/lib/llvm-*/include/c++/v1/vector
  [ -e "$1" ] || debian="$debian libc++-dev libc++abi-dev"
  [ -e /usr/src/googletest/googletest ] || debian="$debian googletest"
}

# A busybox whose shell finds its tools along the PATH. That of busybox-static, which this one
# replaces, prefers those inside itself, and no test that puts a tool on the PATH would be one.
need_busybox() {
  case "$(busybox sh -c 'command -v cat' 2>/dev/null)" in
    /*) ;;
    *) debian="$debian busybox" ;;
  esac
}

# The authorities that npm trusts.
need_certificates() {
  [ -e /etc/ssl/certs/ca-certificates.crt ] || [ -e /etc/ssl/certs/ca-bundle.crt ] ||
    debian="$debian ca-certificates"
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
      need jq jq jq
      ;;
    fuzz)
      need clang++ clang -
      need_clang_runtime
      ;;
    faults)
      [ "$(uname)" = Darwin ] || need strace strace -
      ;;
    check)
      need_libcxx
      need clang-format clang-format -
      need clang-tidy clang-tidy -
      need shellcheck shellcheck shellcheck
      need pyflakes3 pyflakes3 -
      need mandoc mandoc -
      need zsh zsh -
      need fish fish fish
      need_busybox
      need gcovr gcovr -
      need llvm-ar llvm -
      need npm npm node
      need_certificates
      ;;
  esac
done

# install_each INSTALLER PACKAGE... : one after the other, each named before it is installed. What
# the INSTALLER prints is shown only when it fails.
install_each() {
  installer=$1
  shift
  echo "Installing with $installer; this can take some minutes:"
  for package in "$@"; do
    echo "  $package"
    "install_with_$installer" "$package" >build/install.log 2>&1 || {
      cat build/install.log >&2
      echo "$package could not be installed." >&2
      exit 1
    }
  done
}

install_with_brew() { brew install --quiet "$1"; }

install_with_apt() { apt_get install -y --no-install-recommends "$1"; }

apt_get() {
  sudo=''
  [ "$(id -u)" = 0 ] || sudo=sudo
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 "$@"
}

mkdir -p build
# shellcheck disable=SC2086
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
    install_each brew $brew
    ;;
  *)
    [ -n "$debian" ] || exit 0
    if ! command -v apt-get >/dev/null 2>&1; then
      echo "Missing:$debian (Debian's names). Install them with your system's packages." >&2
      exit 1
    fi
    echo "Reading apt's lists of packages"
    apt_get update -qq
    install_each apt $debian
    ;;
esac
