#!/bin/sh
# The trader's main job, step by step. Runs inside the sandbox: every exchange is a stand-in.
set -eu

say() { printf '\n# %s\n' "$*"; }

# show COMMAND... : prints the command, then runs it. A refusal is part of the story.
show() {
  printf '$ morvane-connector %s\n' "$*"
  morvane-connector "$@" || printf '(exit status %s)\n' "$?"
}

# brief COMMAND... : the same, with the two lines of a validation that matter.
brief() {
  printf '$ morvane-connector %s\n' "$*"
  morvane-connector "$@" | grep -E '^(status|reason)=' || true
}

# order_id JSON : the first order id in an answer, of any exchange's spelling.
order_id() { printf '%s\n' "$1" | grep -oE '"(orderId|ordId|id)": ?"?[0-9a-f-]+' | tail -n 1 | grep -oE '[0-9a-f-]+$'; }

say "A fresh install knows nothing yet."
show status

say "Keys are proved live before they are kept. A wrong secret is refused:"
show validate bybit demo-bybit-key wrong-secret
say "The right one is kept:"
show validate bybit demo-bybit-key demo-bybit-secret
brief validate okx demo-okx-key demo-okx-secret demo-passphrase
brief validate gate demo-gate-key demo-gate-secret
brief validate bingx demo-bingx-key demo-bingx-secret
brief validate kucoin demo-kucoin-key demo-kucoin-secret demo-passphrase
brief validate bitget demo-bitget-key demo-bitget-secret demo-passphrase
printf '$ morvane-connector status | grep credentials_present=true\n'
morvane-connector status | grep credentials_present=true

say "Balances, each as the exchange gave it:"
for exchange in bybit okx gate bingx kucoin bitget; do
  show balance "$exchange"
done
