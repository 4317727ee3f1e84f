#!/bin/sh
# with_shell.sh SHELL COMMAND... : runs COMMAND where /bin/sh is SHELL, in a mount namespace of its
# own, so that the system's shell is not touched. Exit status 77 where that is not allowed.
set -eu

shell=$(readlink -f "$(command -v "$1")")
shift
private='unshare --mount'
[ "$(id -u)" = 0 ] || private='unshare --user --map-root-user --mount'
$private true 2>/dev/null || exit 77
# shellcheck disable=SC2016
exec $private sh -c '
  system=$(readlink -f /bin/sh)
  [ "$1" = "$system" ] || mount --bind "$1" "$system"
  shift
  exec "$@"' sh "$shell" "$@"
