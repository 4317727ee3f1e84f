#!/bin/sh
# as_mac.sh COMMAND... : runs COMMAND where sh is bash, as on a Mac (MORVANE_BASH32 may name one of
# its age), where /usr/bin/security is there, and where python3 reads no SSL_CERT_FILE. All of that
# in a mount namespace of its own. Fails when the keychain would have asked something at the screen.
# Exit status 77 where that is not allowed.
set -eu

here=$PWD/build/as_mac
rm -rf "$here"
mkdir -p "$here/usr_bin" "$here/first"
: >"$here/dialogs"
chmod 666 "$here/dialogs"
sed "s|^DIALOGS=|&$here/dialogs|" tests/stand_ins/security >"$here/usr_bin/security"
printf '#!/bin/sh\nunset SSL_CERT_FILE\nexec "%s" "$@"\n' \
  "$(python3 -c 'import sys; print(sys.executable)')" >"$here/first/python3"
chmod 755 "$here/usr_bin/security" "$here/first/python3"

# shellcheck disable=SC2016
MORVANE_USR_BIN="$here/usr_bin" PATH="$here/first:$PATH" \
  tools/with_shell.sh "${MORVANE_BASH32:-bash}" "$@"
if [ -s "$here/dialogs" ]; then
  echo 'The keychain would have asked at the screen:' >&2
  cat "$here/dialogs" >&2
  exit 1
fi
