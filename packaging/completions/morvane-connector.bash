# Completion of morvane-connector for bash, 3.2 and later. Offers names from this file and, for
# delete-credentials, the names of files; it never runs the program and opens nothing.

_morvane_connector() {
  local commands trading reading known symbols offers offer
  commands=(status validate load-credentials delete-credentials set-wallet bind-wallet bind-status
    claim-token disconnect-binding capabilities balance get-position order-status cancel-order
    funding close-report place-open place-close update-check update-download update-apply
    server-health)
  trading=(bybit okx gate)
  reading=("${trading[@]}" bingx kucoin bitget)
  known=("${reading[@]}" hyperliquid paradex lighter extended reya)
  symbols=(BTC_USDT ETH_USDT)

  offers=()
  case "$COMP_CWORD ${COMP_WORDS[1]}" in
    '1 '*) offers=("${commands[@]}") ;;
    '2 validate' | '2 load-credentials') offers=("${known[@]}") ;;
    '2 delete-credentials')
      # What can be deleted are the fallback files; each is named after its exchange.
      for offer in "${HOME-}"/.morvane-connector/vault/*.vault; do
        offer=${offer##*/}
        [ "$offer" = '*.vault' ] || offers+=("${offer%.vault}")
      done
      [ ${#offers[@]} -gt 0 ] || offers=("${known[@]}")
      ;;
    '2 balance' | '2 get-position' | '2 order-status' | '2 cancel-order')
      offers=("${reading[@]}")
      ;;
    '2 funding' | '2 close-report' | '2 place-open' | '2 place-close')
      offers=("${trading[@]}")
      ;;
    '3 get-position' | '3 order-status' | '3 cancel-order' | '3 funding' | '3 close-report' | \
      '3 place-open' | '3 place-close')
      offers=("${symbols[@]}")
      ;;
    '4 place-open' | '4 place-close') offers=(buy sell) ;;
  esac

  COMPREPLY=()
  # bash 3.2 takes the expansion of an empty array for an unset variable under set -u.
  for offer in ${offers[@]+"${offers[@]}"}; do
    case $offer in
      "${COMP_WORDS[COMP_CWORD]}"*) COMPREPLY+=("$offer") ;;
    esac
  done
}

complete -F _morvane_connector morvane-connector
