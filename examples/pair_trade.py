#!/usr/bin/env python3
"""Opens a long on one exchange and a short on another, waits for you, and closes both.

    pair_trade.py BTC_USDT bybit:0.01:50000 okx:1:50000 5

buys 0.01 on Bybit at 50000 and sells 1 contract on OKX at 50000, both with leverage 5. A leg is
EXCHANGE:QUANTITY:PRICE, the long one first; the quantity is in the exchange's own unit. Bybit in
one-way mode, OKX in long/short mode, Gate in single mode; no other position in the same contract.

Exit status: 0 opened and closed, 1 nothing is open, 3 something is open or may be: look.
A place to start from: read it before you trade with it.
"""

import argparse
import decimal
import json
import os
import signal
import subprocess
import sys
import time
from decimal import Decimal

PATIENCE = 60  # seconds for one run of the connector; place-open can need 45
UNWIND = Decimal("0.01")  # how much worse than its opening price a leg may be unwound


class Unanswered(Exception):
    """No answer came: what was asked for may have been done."""


class Refused(Exception):
    """The exchange, or the connector, said no."""


class Unknown(Exception):
    """Only a person can find out."""


class Leg:
    side = symbol = ""
    start = balance = Decimal(0)  # what is held, and the wallet, before anything is opened
    sent = False

    def __init__(self, text):
        self.exchange, quantity, price = text.split(":")
        self.quantity, self.price = Decimal(quantity), Decimal(price)
        if self.exchange not in ("bybit", "okx", "gate"):
            raise ValueError

    def __str__(self):
        return f"{self.exchange} {'long' if self.side == 'buy' else 'short'}"


def ask(*arguments):
    """The exchange's own document."""
    with subprocess.Popen(["morvane-connector", *arguments], stdout=subprocess.PIPE,
                          start_new_session=True) as run:
        try:
            output, _ = run.communicate(timeout=PATIENCE)
        except subprocess.TimeoutExpired:
            os.killpg(run.pid, signal.SIGKILL)  # with the tools that it started
            raise Unanswered from None
        except BaseException:
            os.killpg(run.pid, signal.SIGKILL)
            raise
    try:
        answer = json.loads(output)
    except ValueError:
        raise Unanswered from None
    if answer["status"] == "ok":
        return answer["body"]
    if answer["reason"] == "http_failed":
        raise Unanswered
    raise Refused(answer["reason"])


def judge(exchange, document):
    """Raises Refused when the exchange says no: "status":"ok" only says that it answered."""
    if exchange == "bybit" and document["retCode"] != 0:
        raise Refused(f"{document['retCode']} {document['retMsg']}")
    if exchange == "okx" and document["code"] != "0":
        row = (document["data"] or [{}])[0] if "data" in document else {}
        raise Refused(f"{row.get('sCode', document['code'])} {row.get('sMsg', document['msg'])}")
    if exchange == "gate" and "label" in document:
        raise Refused(f"{document['label']} {document.get('message', '')}")
    return document


def order_id(exchange, document):
    if exchange == "bybit":
        return document["result"]["orderId"]
    return document["data"][0]["ordId"] if exchange == "okx" else str(document["id"])


def held(leg):
    """How much of the leg is there, in the exchange's unit."""
    body = judge(leg.exchange, ask("get-position", leg.exchange, leg.symbol))
    if leg.exchange == "bybit":
        sizes = [row["size"] for row in body["result"]["list"]
                 if row["side"] == ("Buy" if leg.side == "buy" else "Sell")]
    elif leg.exchange == "okx":
        sizes = [row["pos"] for row in body["data"]
                 if row["posSide"] == ("long" if leg.side == "buy" else "short")]
    else:  # Gate lists every position held; a short is below zero
        signed = [Decimal(str(row["size"])) for row in body if row["contract"] == leg.symbol]
        sizes = [abs(size) for size in signed if (size > 0) == (leg.side == "buy")]
    return sum(map(Decimal, sizes), Decimal(0))


def usdt(leg):
    """The wallet's balance: realised profit, fees and funding are in it."""
    body = judge(leg.exchange, ask("balance", leg.exchange))
    if leg.exchange == "gate":
        return Decimal(str(body["total"]))
    if leg.exchange == "bybit":
        rows = [(row["coin"], row["walletBalance"]) for row in body["result"]["list"][0]["coin"]]
    else:
        rows = [(row["ccy"], row["cashBal"]) for row in body["data"][0]["details"]]
    return Decimal(dict(rows)["USDT"])


def send(leg, command, quantity, price, *leverage, wait, until):
    """Places an order and waits until that much is held; what is not filled then is cancelled."""
    order = None
    leg.sent = True
    try:
        body = ask(command, leg.exchange, leg.symbol, leg.side, str(quantity), str(price),
                   *leverage)
        body = body["place"] if command == "place-open" else body
        order = order_id(leg.exchange, judge(leg.exchange, body))
        print(f"{leg}: {command} {quantity} at {price}: order {order}")
    except Unanswered:
        print(f"{leg}: {command} {quantity} at {price}: no answer; asking for the position")
    end = time.monotonic() + wait
    while held(leg) != until and time.monotonic() < end:
        time.sleep(1)
    now = held(leg)
    if now != until and order is None:
        raise Unknown(f"{leg}: the order may be resting, or never came; {now} is held")
    if now != until:
        try:
            judge(leg.exchange, ask("cancel-order", leg.exchange, leg.symbol, order))
            now = held(leg)
            print(f"{leg}: cancelled; {now} is held")
        except Refused as refusal:
            now = held(leg)
            if now != until:  # else it was filled in the meantime
                raise Unknown(f"{leg}: the cancel is refused: {refusal}; {now} is held") from None
    return now


def close(leg, price, wait):
    """Whether nothing is left of the leg."""
    open_now = held(leg) - leg.start
    if open_now:
        try:
            left = send(leg, "place-close", open_now, price, wait=wait, until=leg.start)
        except Refused as refusal:
            print(f"{leg}: the close is refused: {refusal}")
            left = held(leg)
        if left != leg.start:
            print(f"{leg}: {left - leg.start} is still open. To close it: morvane-connector "
                  f"place-close {leg.exchange} {leg.symbol} {leg.side} {left - leg.start} PRICE")
            return False
    return True


def unwind(leg, wait):
    worse = 1 - UNWIND if leg.side == "buy" else 1 + UNWIND
    return close(leg, (leg.price * worse).quantize(leg.price), wait)


def trade(legs, options):
    for leg in legs:
        leg.start, leg.balance = held(leg), usdt(leg)
        print(f"{leg}: {leg.balance} USDT, {leg.start} held")
    for leg in legs:
        wanted = leg.start + leg.quantity
        try:
            if send(leg, "place-open", leg.quantity, leg.price, options.leverage,
                    wait=options.wait, until=wanted) == wanted:
                continue
        except Refused as refusal:
            print(f"{leg}: refused: {refusal}")
        print("Unwinding what is open.")
        return 1 if all([unwind(each, options.wait) for each in legs]) else 3
    print("Both legs are open.")
    sys.stdout.flush()
    prices = [leg.price for leg in legs]
    answer = input(f"Closing prices, long then short [{prices[0]} {prices[1]}]: ").split()
    closed = [close(leg, price, options.wait) for leg, price in zip(legs, answer or prices)]
    brought = [usdt(leg) - leg.balance for leg in legs]
    for leg, change in zip(legs, brought):
        print(f"{leg}: {change:+} USDT")
    print(f"together: {sum(brought):+} USDT, fees and funding included")
    return 0 if all(closed) and len(closed) == len(legs) else 3


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("symbol")
    parser.add_argument("long", type=Leg)
    parser.add_argument("short", type=Leg)
    parser.add_argument("leverage")
    parser.add_argument("--wait", type=float, default=30, help="seconds for an order to fill")
    options = parser.parse_args()
    legs = [options.long, options.short]
    for leg, leg.side in zip(legs, ("buy", "sell")):
        leg.symbol = options.symbol
    try:
        return trade(legs, options)
    except Refused as refusal:
        problem = f"refused: {refusal}"
    except Unanswered:
        problem = "no answer"
    except Unknown as unknown:
        problem = str(unknown)
    except (EOFError, KeyboardInterrupt):
        problem = "interrupted"
    except (LookupError, TypeError, decimal.InvalidOperation) as error:
        problem = f"an answer was not understood: {error!r}"
    if not any(leg.sent for leg in legs):
        print(f"Stopped ({problem}). No order was sent.")
        return 1
    print(f"Stopped ({problem}). Look at both exchanges before you do anything else.")
    return 3


if __name__ == "__main__":
    sys.exit(main())
