#!/bin/sh
# The trader's story, step by step. Runs inside the sandbox: everyone outside is a stand-in.
set -eu

# tell TEXT : what happens next.
tell() { printf '\n# %s\n' "$*"; }

# show COMMAND... : prints the command, then runs it. A refusal is part of the story.
show() {
  printf '$ morvane-connector %s\n' "$*"
  morvane-connector "$@" || printf '(exit status %s)\n' "$?"
}

# only PATTERN COMMAND... : the same, with just the lines of the answer that match.
only() {
  pattern=$1
  shift
  printf "\$ morvane-connector %s | grep -E '%s'\n" "$*" "$pattern"
  morvane-connector "$@" | grep -E "$pattern" || true
}

# place COMMAND... : the same as show, and keeps the order id of the answer in $order.
place() {
  printf '$ morvane-connector %s\n' "$*"
  answer=$(morvane-connector "$@")
  printf '%s\n' "$answer"
  order=$(printf '%s\n' "$answer" | grep -oE '"(orderId|ordId|id)":"?[0-9a-f-]+' | grep -oE '[0-9a-f-]+$')
}

# press SWITCH... : turns one of the sandbox's own switches.
press() {
  printf '$ curl -s http://sandbox.control/%s\n' "$1"
  curl -s "http://sandbox.control/$1"
}

tell 'A fresh install knows nothing yet.'
show status

tell 'A key is proved live before it is kept. With a wrong secret it is not:'
show validate bybit demo-bybit-key wrong-secret
tell 'With the right one it is:'
show validate bybit demo-bybit-key demo-bybit-secret
for exchange in okx gate bingx kucoin bitget; do
  case $exchange in
    okx | kucoin | bitget) passphrase=demo-passphrase ;;
    *) passphrase='' ;;
  esac
  only '^(status|reason)=' validate "$exchange" "demo-$exchange-key" "demo-$exchange-secret" $passphrase
done
only 'present=true' status

tell 'Balances, each as the exchange gave it:'
for exchange in bybit okx gate bingx kucoin bitget; do
  show balance "$exchange"
done

tell 'Long on one exchange, short on another. The first order rests until somebody takes it:'
place place-open bybit BTC_USDT buy 0.01 49000 5
show order-status bybit BTC_USDT "$order"
press "fill/bybit/$order"
place place-open okx BTC_USDT sell 1 50000 5
show get-position bybit BTC_USDT
show get-position okx BTC_USDT

tell 'An order that nobody takes is cancelled:'
place place-open gate ETH_USDT buy 3 2000 5
show cancel-order gate ETH_USDT "$order"

tell 'Both legs are closed, and reported:'
place place-close bybit BTC_USDT buy 0.01 50000
show close-report bybit BTC_USDT "$order"
place place-close okx BTC_USDT sell 1 50000
show close-report okx BTC_USDT "$order"
show funding bybit BTC_USDT 480

tell 'What this release claims to do:'
only 'bybit|reya' capabilities

tell 'Pairing with the platform: claim a token, let the wallet owner sign, ask again.'
show claim-token demo-bind-token
show bind-status
press authorize
show bind-status
only 'health|paired|wallet' status

tell 'A newer release is out:'
show update-check
show update-download

cat <<'TEXT'

# That was the sandbox. Try it yourself: ./dev sandbox
TEXT
