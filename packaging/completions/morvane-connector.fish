# Completion of morvane-connector for fish. Offers names from this file and, for
# delete-credentials, the names of files; it never runs the program and opens nothing.

# Whether the argument at POSITION of one of COMMANDS is being typed; 2 follows the command.
function __morvane_connector_at --argument-names position
    set -l words (commandline -opc)
    test (count $words) -eq $position; and contains -- "$words[2]" $argv[2..-1]
end

# The exchanges that have a fallback file to delete, else all that are known.
function __morvane_connector_stored
    set -l files "$HOME"/.morvane-connector/vault/*.vault
    if test (count $files) -gt 0
        string replace -r '^.*/(.*)\.vault$' '$1' -- $files
    else
        printf '%s\n' $argv
    end
end

set -l trading bybit okx gate
set -l reading $trading bingx kucoin bitget
set -l known $reading hyperliquid paradex lighter extended reya
set -l reads balance get-position order-status cancel-order
set -l trades funding close-report place-open place-close
set -l first 'test (count (commandline -opc)) -eq 1'
set -l at __morvane_connector_at

complete -c morvane-connector -f
complete -c morvane-connector -n "$first" -a status -d 'show what is configured here'
complete -c morvane-connector -n "$first" -a validate -d 'prove a key live and keep it'
complete -c morvane-connector -n "$first" -a load-credentials -d 'print a stored key in clear'
complete -c morvane-connector -n "$first" -a delete-credentials -d 'delete the fallback file of a key'
complete -c morvane-connector -n "$first" -a set-wallet -d "record the owner's public wallet address"
complete -c morvane-connector -n "$first" -a bind-wallet -d 'bind the recorded wallet'
complete -c morvane-connector -n "$first" -a bind-status -d 'ask how far the binding is'
complete -c morvane-connector -n "$first" -a claim-token -d 'claim a bind token of the platform'
complete -c morvane-connector -n "$first" -a disconnect-binding -d 'forget the binding on this machine'
complete -c morvane-connector -n "$first" -a capabilities -d 'show the table of exchanges and operations'
complete -c morvane-connector -n "$first" -a balance -d 'read the balance'
complete -c morvane-connector -n "$first" -a get-position -d 'read a position'
complete -c morvane-connector -n "$first" -a order-status -d 'read the state of an order'
complete -c morvane-connector -n "$first" -a cancel-order -d 'cancel an order'
complete -c morvane-connector -n "$first" -a funding -d 'read funding entries'
complete -c morvane-connector -n "$first" -a close-report -d 'read what a closed position brought'
complete -c morvane-connector -n "$first" -a place-open -d 'open a position with a limit order'
complete -c morvane-connector -n "$first" -a place-close -d 'close a position with a limit order'
complete -c morvane-connector -n "$first" -a update-check -d 'look for a newer release'
complete -c morvane-connector -n "$first" -a update-download -d 'download a newer release'
complete -c morvane-connector -n "$first" -a update-apply -d 'open the downloaded disk image'
complete -c morvane-connector -n "$first" -a server-health -d 'ask whether the relay is there'

complete -c morvane-connector -n "$at 2 validate load-credentials" -a "$known"
complete -c morvane-connector -n "$at 2 delete-credentials" -a "(__morvane_connector_stored $known)"
complete -c morvane-connector -n "$at 2 $reads" -a "$reading"
complete -c morvane-connector -n "$at 2 $trades" -a "$trading"
complete -c morvane-connector -n "$at 3 $trades get-position order-status cancel-order" -a 'BTC_USDT ETH_USDT'
complete -c morvane-connector -n "$at 4 place-open place-close" -a 'buy sell'
