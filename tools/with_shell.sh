#!/bin/sh
# with_shell.sh SHELL COMMAND... : runs COMMAND where /bin/sh is SHELL, in a mount namespace of its
# own, so that the system's shell is not touched. The folder MORVANE_USR_BIN, if set, lies over
# /usr/bin there. Exit status 77 where that is not allowed.
set -eu

shell=$(readlink -f "$(command -v "$1")")
shift
private='unshare --mount'
[ "$(id -u)" = 0 ] || private='unshare --user --map-root-user --mount'
$private true 2>/dev/null || exit 77
# shellcheck disable=SC2016
exec $private sh -c '
  [ -z "${MORVANE_USR_BIN-}" ] ||
    mount -t overlay over -o lowerdir="$MORVANE_USR_BIN:/usr/bin" /usr/bin || exit 77
  system=$(readlink -f /bin/sh)
  [ "$1" = "$system" ] || mount --bind "$1" "$system" || exit 77
  unset MORVANE_USR_BIN
  shift
  exec "$@"' sh "$shell" "$@"
