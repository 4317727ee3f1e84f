#!/bin/sh
# mac.sh : asks a Mac what only a Mac can answer, one line each: "as expected", or what came
# instead. They hold no names and no paths of the user's, so that they can go into a report.
# HOME and its keychain are its own; what it builds lies in build/mac. Exit status 1 when anything
# came otherwise. MORVANE_MAC=1 runs it elsewhere too, to try the script itself.
set -u

if [ "$(uname)" != Darwin ] && [ "${MORVANE_MAC:-}" != 1 ]; then
  echo "This is for a Mac: it answers what cannot be tried elsewhere." >&2
  exit 1
fi
tools/install.sh build test || exit 1
names="s|$PWD|.|g; s|${HOME:-/nowhere}|~|g; s|$(id -un)|(user)|g"
PATH=/usr/bin:/bin:/usr/sbin:/sbin:$PATH # A stock Mac's tools before others of the same names.
folder=$(mktemp -d)
volume=$folder/volume image='' failed=0
HOME=$folder/home
export PATH HOME
unset MORVANE_SIGN_IDENTITY
mkdir -p "$HOME" build/mac
trap '[ -z "$image" ] || hdiutil detach "$volume" >/dev/null 2>&1; rm -rf "$folder"' EXIT
trap 'exit 130' INT TERM HUP

# answer WHAT PATTERN TEXT : one line; the whole TEXT must match the PATTERN, as `case` has it.
answer() {
  text=$(printf '%s' "$3" | tail -n 4 | tr '\n' ' ' | cut -c 1-300 |
    sed "s|$folder|(folder)|g; $names")
  # shellcheck disable=SC2254
  case $3 in
    $2) echo "$1: as expected: $text" ;;
    *) failed=1 && echo "$1: OTHERWISE: $text" ;;
  esac
}

# succeeds WHAT COMMAND... : whether it does, with the last line that it said, or the last few.
succeeds() {
  log="build/mac/$1.log"
  what=$1 lines=1
  shift
  "$@" >"$log" 2>&1 </dev/null
  status=$?
  [ "$status" = 0 ] || lines=4
  answer "$what" 'status 0:*' "status $status: $(grep . "$log" | tail -n "$lines")"
}

answer macOS '[1-9][0-9].* *' "$(sw_vers -productVersion 2>&1) $(uname -m)"
answer sh 'GNU bash, version 3.2.57*' "$(sh --version 2>&1 | head -n 1)"
answer curl 'curl *LibreSSL/*' "$(curl --version 2>&1 | head -n 1)"
answer openssl 'LibreSSL *' "$(openssl version 2>&1)"
answer xxd 'xxd *' "$(xxd -v 2>&1 | head -n 1)"
answer python3 '3.* with LibreSSL *' "$(python3 -c 'import ssl, sys
print(sys.version.split()[0], "with", ssl.OPENSSL_VERSION)' 2>&1)"

# The second example of RFC 4231, on the line that the connector uses.
answer HMAC 5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843 "$(printf %s \
  'what do ya want for nothing?' | openssl dgst -sha256 -hmac Jefe -binary | xxd -p -c 256 2>&1)"

openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=x -keyout "$folder/key.pem" \
  -out "$folder/authority.pem" >/dev/null 2>&1
answer 'python3 and SSL_CERT_FILE' 'not read' "$(SSL_CERT_FILE=$folder/authority.pem python3 -c '
import ssl
known = ssl.create_default_context().cert_store_stats()["x509"]
print("read" if known == 1 else "not read")' 2>&1)"

if furnished=$(python3 -c 'import sys
from sandbox.home import furnish
furnish(sys.argv[1])' "$HOME" 2>&1); then
  /usr/bin/security add-generic-password -U -s morvane.try -a try -w 'a=1
b=2' >/dev/null 2>&1
  answer 'a password of two lines' 613d310a623d32 \
    "$(/usr/bin/security find-generic-password -s morvane.try -a try -w 2>&1)"
else
  answer 'a keychain of its own' '' "$furnished" # Without one, security would ask at the screen.
fi
answer 'sh, of a killed tool' '*line 1:*Killed*secret*' \
  "$(sh -c 'sh -c "kill -9 \$\$" secret; true' 2>&1)"

succeeds demo ./dev demo
succeeds tests ./dev test

succeeds 'configure for both processors' cmake --preset release -B build/mac
succeeds build cmake --build build/mac
program=build/mac/morvane-connector
answer 'lipo -archs' 'arm64 x86_64 ' \
  "$(lipo -archs $program 2>&1 | tr ' ' '\n' | sort | tr '\n' ' ')"
answer 'otool -L' '/usr/lib/libSystem.B.dylib /usr/lib/libc++.1.dylib ' \
  "$(otool -L $program 2>&1 | sed -n 's/^[[:blank:]]*\(.*\) (comp.*/\1/p' | LC_ALL=C sort -u |
    tr '\n' ' ')"
rm -f build/mac/*.dmg
succeeds cpack packaging/pack build/mac
image=$(echo build/mac/Morvane-Connector-*.dmg)
version=${image##*-}
succeeds 'hdiutil verify' hdiutil verify "$image"
succeeds 'hdiutil attach' hdiutil attach -nobrowse -readonly -mountpoint "$volume" "$image"
succeeds check_app.py python3 packaging/check_app.py "$volume/Morvane Connector.app" \
  "${version%.dmg}"
succeeds 'the link to Applications' test "$volume/Applications" -ef /Applications
[ "$failed" = 0 ] || echo "Not for a report, but all that was said: build/mac/*.log" >&2
exit "$failed"
