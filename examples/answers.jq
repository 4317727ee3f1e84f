# What an exchange's answer says, exchange by exchange: answers.py in the words of jq, 1.6 and later.
#
#   morvane-connector place-open gate BTC_USDT buy 100 49000 5 |
#     jq -Rr -L examples 'include "answers"; answer | placed_id'
#
# -R is needed: jq before 1.7 rounds whole numbers of more than 15 digits when it reads them, and
# order ids of Gate and BingX are such numbers. answer() makes them text before they are read. Each
# other function takes what it gives: the connector's whole answer. Of `place-open` the order is
# looked at; leverage_refusal is the other half. Quantities are in the exchange's own unit, never
# below zero; money is in USDT (on Bybit all in USD), and what was paid is below zero.

def answer:
  gsub("(?<name>[^\\\\]\"\\s*:\\s*)(?<number>[0-9]{16,})(?=\\s*[,}])"; "\(.name)\"\(.number)\"")
  | fromjson;

# null for what is empty
def amount: if . == null or . == "" then null else tonumber end;

def negative: amount | if . == null then null else -. end;

def document: if .kind == "place_open" then .body.place else .body end;

def refused($exchange):
  {bybit: ["retCode", "retMsg", 0, 110043], okx: ["code", "msg", "0"],
   gate: ["label", "message", null], bingx: ["code", "msg", 0],
   kucoin: ["code", "msg", "200000"], bitget: ["code", "msg", "00000"]}[$exchange] as $how
  | if type == "array" then null  # Gate's lists
    elif .[$how[0]] as $code | $how[2:] | any(. == $code) then null
    elif $exchange == "okx" and (.data[0].sCode // "") != "" then
      "\(.data[0].sCode) \(.data[0].sMsg)"  # of the order
    elif .[$how[0]] == null then error("this is no answer of \($exchange)")
    else "\(.[$how[0]]) \(.[$how[1]] // "")" end;

# Why not; null when the exchange agreed.
def refusal:
  if .status != "ok" then .reason else .exchange as $exchange | document | refused($exchange) end;

def leverage_refusal:
  if .status != "ok" then .reason
  else .exchange as $exchange | .body.leverage | refused($exchange) end;

# The exchange's document, when it agreed.
def agreed: refusal as $why | if $why == null then document else error($why) end;

# Of an order that place-open or place-close sent.
def placed_id:
  .exchange as $exchange | agreed
  | if $exchange == "bybit" then .result.orderId
    elif $exchange == "okx" then .data[0].ordId
    else .id end | tostring;

# Of order-status; of Gate's place-open, place-close and cancel-order, too.
def order:
  .exchange as $exchange | agreed
  | if $exchange == "bybit" then .result.list[0]
      | [.orderId, .orderStatus, .qty, .cumExecQty, .price, .avgPrice, (.cumExecFee | negative)]
    elif $exchange == "okx" then .data[0]
      | [.ordId, .state, .sz, .accFillSz, .px, .avgPx, .fee]
    elif $exchange == "gate" then
      [.id, .status, .size, .size - .left, .price, .fill_price, null]
    elif $exchange == "bingx" then .data.order
      | [.orderId, .status, .origQty, .executedQty, .price, .avgPrice, .commission]
    elif $exchange == "kucoin" then .data
      | [.id, .status, .size, .filledSize, .price, .avgDealPrice, null]
    else .data | [.orderId, .state, .size, .baseVolume, .price, .priceAvg, .fee] end
  | {id: .[0] | tostring, state: .[1] | ascii_downcase, quantity: .[2] | amount | fabs,
     filled: .[3] | amount | fabs, price: .[4] | amount, average: .[5] | amount,
     fee: .[6] | amount}
  | if .average == 0 then .average = null else . end
  | if .state | test("^(new|partially_?filled|live|open|pending)$") then .state = "open"
    elif .state | test("^(filled|cancell?ed|partiallyfilledcanceled|mmp_canceled|finished|done)$")
      then .state = (if .filled == .quantity then "filled" else "cancelled" end)
    else . end;

# What get-position found: nothing, one, or a long and a short.
def positions($symbol):
  .exchange as $exchange | agreed
  | [if $exchange == "bybit" then .result.list[]
      | [.side, .size, .avgPrice, .leverage, .unrealisedPnl]
    elif $exchange == "okx" then .data[] | [.posSide, .pos, .avgPx, .lever, .upl]
    elif $exchange == "gate" then .[] | select(.contract == $symbol)
      | ["", .size, .entry_price, .leverage, .unrealised_pnl]
    elif $exchange == "bingx" then .data[]
      | [.positionSide, .positionAmt, .avgPrice, .leverage, .unrealizedProfit]
    elif $exchange == "kucoin" then .data
      | ["", .currentQty, .avgEntryPrice, .realLeverage, .unrealisedPnl]
    else .data[] | [.holdSide, .total, .openPriceAvg, .leverage, .unrealizedPL] end
    | [.[0], (.[1:][] | amount)] | select(.[1] != 0)
    | {side: ({buy: "long", sell: "short", long: "long", short: "short"}[.[0] | ascii_downcase]
              // if .[1] > 0 then "long" else "short" end),
       quantity: .[1] | fabs, average: .[2], leverage: .[3], unrealised: .[4]}];

# Equity counts unrealised profit; available is free for a new order.
def balance:
  .exchange as $exchange | agreed
  | if $exchange == "bybit" then .result.list[0] | [.totalEquity, .totalAvailableBalance]
    elif $exchange == "okx" then .data[0].details[] | select(.ccy == "USDT") | [.eq, .availEq]
    elif $exchange == "gate" then
      [(.total | amount) + (.unrealised_pnl | amount), .available]
    elif $exchange == "bingx" then .data.balance | [.equity, .availableMargin]
    elif $exchange == "kucoin" then .data | [.accountEquity, .availableBalance]
    else .data[] | select(.marginCoin == "USDT") | [.accountEquity, .available] end
  | {equity: .[0] | amount, available: .[1] | amount};

# The sum of `funding` for the symbol.
def funding($symbol):
  .exchange as $exchange | agreed
  | [if $exchange == "bybit" then .result.list[]
      | select(.type == "SETTLEMENT" and .symbol == ($symbol | gsub("_"; ""))) | .funding
    elif $exchange == "okx" then .data[].pnl
    else .[].change end | amount] | add // 0;

# Of close-report: what closing with that order brought, before fees, and all fees that it names.
def closing($order):
  .exchange as $exchange
  | if .status != "ok" then error(.reason)
    else .body | .closed_pnl // .positions_history // .trades end
  | refused($exchange) as $why | if $why then error($why) else . end
  | if $exchange == "bybit" then
      [.result.list[] | select(.orderId == $order)
       | [(.closedPnl | amount), (.openFee | amount) + (.closeFee | amount)]]
      | {profit: (map(.[0] + .[1]) | add // 0), fees: -(map(.[1]) | add // 0)}
    elif $exchange == "okx" then .data[0] | {profit: .pnl | amount, fees: .fee | amount}
    else
      {profit: null,
       fees: -(map(select((.order_id | tostring) == $order).fee | amount) | add // 0)}
    end;
