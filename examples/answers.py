"""What an exchange's answer says, exchange by exchange.

Each function takes the exchange's name and its own document: the connector's "body", of
`place-open` the "leverage" or "place" in it. Read the answer with read(), which keeps every digit.
Ids are text. Quantities are in the exchange's own unit (see UNITS), never below zero; money is in
USDT (Bybit counts a whole unified account in USD), and what was paid is below zero. What an
exchange leaves out is None. A document that says no raises Refused; one that the exchange does not
document (a gateway's, for instance, after which an order may be there) raises one of UNREADABLE.
"""

import json
from decimal import Decimal
from typing import Any, List, NamedTuple, Optional

UNITS = {"bybit": "coins", "okx": "contracts", "gate": "contracts",
         "bingx": "coins", "kucoin": "contracts", "bitget": "coins"}

# How each agrees, and where it says what it refuses. Gate's refusals have a label, no others do.
# 110043: the leverage was set already.
AGREED = {"bybit": ("retCode", "retMsg", (0, 110043)), "okx": ("code", "msg", ("0",)),
          "gate": ("label", "message", ()), "bingx": ("code", "msg", (0,)),
          "kucoin": ("code", "msg", ("200000",)), "bitget": ("code", "msg", ("00000",))}

# Where a new order's id is; where the members of an order are, and their names: id, state,
# quantity, filled, price, average price, fee. A minus: counted as a cost there.
PLACED = {"bybit": ("result", "orderId"), "okx": ("data", 0, "ordId"), "gate": ("id",)}
ORDER = {
    "bybit": (("result", "list", 0),
              "orderId orderStatus qty cumExecQty price avgPrice -cumExecFee"),
    "okx": (("data", 0), "ordId state sz accFillSz px avgPx fee"),
    "gate": ((), "id status size left price fill_price"),  # left: the part that is not filled
    "bingx": (("data", "order"),
              "orderId status origQty executedQty price avgPrice commission"),
    "kucoin": (("data",), "id status size filledSize price avgDealPrice"),
    "bitget": (("data",), "orderId state size baseVolume price priceAvg fee"),
}
OPEN = ("new", "partiallyfilled", "live", "partially_filled", "open", "pending")
ENDED = ("filled", "cancelled", "canceled", "partiallyfilledcanceled", "mmp_canceled", "finished",
         "done")

# Where the positions are; side, quantity, average price, leverage, unrealised profit. Without a
# side among SIDES (one-way accounts of OKX and BingX: net, BOTH) a quantity below zero is a short.
POSITION = {
    "bybit": (("result", "list"), "side size avgPrice leverage unrealisedPnl"),
    "okx": (("data",), "posSide pos avgPx lever upl"),
    "gate": ((), ". size entry_price leverage unrealised_pnl"),
    "bingx": (("data",), "positionSide positionAmt avgPrice leverage unrealizedProfit"),
    "kucoin": (("data",), ". currentQty avgEntryPrice realLeverage unrealisedPnl"),
    "bitget": (("data",), "holdSide total openPriceAvg leverage unrealizedPL"),
}

SIDES = {"buy": "long", "sell": "short", "long": "long", "short": "short"}

# Where the money is: equity, which counts unrealised profit, and what is free for a new order.
BALANCE = {
    "bybit": (("result", "list", 0), "totalEquity totalAvailableBalance"),
    "okx": (("data", 0, "details"), "eq availEq"),
    "gate": ((), "total available"),  # total leaves unrealised profit out
    "bingx": (("data", "balance"), "equity availableMargin"),
    "kucoin": (("data",), "accountEquity availableBalance"),
    "bitget": (("data",), "accountEquity available"),
}


UNREADABLE = (LookupError, TypeError, AttributeError, ArithmeticError)


class Refused(Exception):
    """The exchange said no; in its words."""


class Order(NamedTuple):
    id: str
    state: str  # open, filled or cancelled (filled in part, perhaps); else the exchange's word
    quantity: Decimal
    filled: Decimal
    price: Decimal
    average: Optional[Decimal]  # the price it was filled at
    fee: Optional[Decimal]


class Position(NamedTuple):
    side: str  # long or short
    quantity: Decimal
    average: Decimal  # the price it was opened at
    leverage: Optional[Decimal]
    unrealised: Optional[Decimal]


class Balance(NamedTuple):
    equity: Decimal
    available: Optional[Decimal]


class Closing(NamedTuple):
    profit: Optional[Decimal]  # before fees
    fees: Decimal


def read(text: str) -> Any:
    """JSON with every digit kept: whole numbers are exact, others are Decimal."""
    return json.loads(text, parse_float=Decimal)


def refusal(exchange: str, document: Any) -> Optional[str]:
    """Why the exchange says no; None when it agreed."""
    code, text, agreed = AGREED[exchange]
    if exchange == "gate" and (isinstance(document, list) or code not in document):
        return None
    if document[code] in agreed:
        return None
    rows = document.get("data")
    if exchange == "okx" and rows and rows[0].get("sCode"):
        document, code, text = rows[0], "sCode", "sMsg"  # of the order
    return f"{document.get(code)} {document.get(text, '')}".strip()


def judge(exchange: str, document: Any) -> Any:
    """The document, when the exchange agreed."""
    why = refusal(exchange, document)
    if why is not None:
        raise Refused(why)
    return document


def placed_id(exchange: str, document: Any) -> str:
    """Of an order that place-open or place-close sent."""
    return str(_at(judge(exchange, document), PLACED[exchange]))


def order(exchange: str, document: Any) -> Order:
    """Of order-status; of Gate's place-open, place-close and cancel-order, too."""
    where, names = ORDER[exchange]
    row = _at(judge(exchange, document), where)
    number, state, quantity, filled, *prices = (_member(row, name) for name in names.split())
    price, average, fee = map(_number, prices + [None] * (3 - len(prices)))
    quantity, filled = abs(_number(quantity)), abs(_number(filled))
    if exchange == "gate":
        filled = quantity - filled
    state = state.lower()
    if state in ENDED:
        state = "filled" if filled == quantity else "cancelled"
    return Order(str(number), "open" if state in OPEN else state, quantity, filled, price,
                 average or None, fee)


def positions(exchange: str, document: Any, symbol: str) -> List[Position]:
    """What get-position found in the symbol: nothing, one, or a long and a short."""
    where, names = POSITION[exchange]
    rows = _at(judge(exchange, document), where)
    held = []
    for row in rows if isinstance(rows, list) else [rows]:
        if exchange == "gate" and row["contract"] != symbol:
            continue  # Gate lists every position held.
        side, quantity, *rest = (_member(row, name) for name in names.split())
        quantity = _number(quantity)
        if quantity:
            side = SIDES.get(side and side.lower(), "long" if quantity > 0 else "short")
            held.append(Position(side, abs(quantity), *map(_number, rest)))
    return held


def balance(exchange: str, document: Any) -> Balance:
    where, names = BALANCE[exchange]
    row = _at(judge(exchange, document), where)
    if isinstance(row, list):  # of coins
        row = _usdt(row, "ccy" if exchange == "okx" else "marginCoin")
    equity, available = (_number(_member(row, name)) for name in names.split())
    if exchange == "gate":
        equity += _number(row["unrealised_pnl"])
    return Balance(equity, available)


def wallet(exchange: str, document: Any) -> Decimal:
    """Of `balance` on Bybit, OKX and Gate: what profit, fees and funding were booked to."""
    judge(exchange, document)
    if exchange == "gate":
        return _number(document["total"])
    if exchange == "okx":
        return _number(_usdt(document["data"][0]["details"], "ccy")["cashBal"])
    return _number(_usdt(document["result"]["list"][0]["coin"], "coin")["walletBalance"])


def funding(exchange: str, document: Any, symbol: str) -> Decimal:
    """Of `funding`: the sum for the symbol."""
    judge(exchange, document)
    if exchange == "bybit":  # among entries of other kinds and symbols
        amounts = [row["funding"] for row in document["result"]["list"]
                   if row["type"] == "SETTLEMENT" and row["symbol"] == symbol.replace("_", "")]
    elif exchange == "okx":
        amounts = [row["pnl"] for row in document["data"]]
    else:
        amounts = [row["change"] for row in document]
    return sum(map(_number, amounts), Decimal(0))


def closing(exchange: str, body: Any, order_id: str = "") -> Closing:
    """Of `close-report`, all of its body: what closing with that order brought.

    OKX reports positions, the latest first, and names no order; the fees of Bybit and OKX are
    those of opening, too. Gate reports the order's trades, and no profit.
    """
    if exchange == "bybit":
        rows = judge(exchange, body["closed_pnl"])["result"]["list"]
        rows = [row for row in rows if row["orderId"] == order_id]
        fees = -sum(_number(row["openFee"]) + _number(row["closeFee"]) for row in rows)
        return Closing(sum(_number(row["closedPnl"]) for row in rows) - fees, fees)
    if exchange == "okx":
        row = judge(exchange, body["positions_history"])["data"][0]
        return Closing(_number(row["pnl"]), _number(row["fee"]))
    rows = judge(exchange, body["trades"])
    return Closing(None, -sum((_number(row["fee"]) for row in rows
                               if str(row["order_id"]) == order_id), Decimal(0)))


def _at(document: Any, where: tuple) -> Any:
    for name in where:
        document = document[name]
    return document


def _member(row: Any, name: str) -> Any:
    if name == ".":
        return None
    value = row[name.lstrip("-")]
    return -_number(value) if name.startswith("-") and value else value


def _number(value: Any) -> Optional[Decimal]:
    """None for what is empty."""
    return None if value in ("", None) else Decimal(str(value))


def _usdt(rows: list, name: str) -> Any:
    return [row for row in rows if row[name] == "USDT"][0]
