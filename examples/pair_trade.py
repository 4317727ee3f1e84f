#!/usr/bin/env python3
"""Opens a long on one exchange and a short on another, waits for you, and closes both.

    pair_trade.py BTC_USDT bybit:0.01:50000 okx:1:50000 5

buys 0.01 on Bybit at 50000 and sells 1 contract on OKX at 50000, both with leverage 5. A leg is
EXCHANGE:QUANTITY:PRICE, the long one first; the quantity is in the exchange's own unit. Bybit in
one-way mode, OKX in long/short mode, Gate in single mode; no other position in the same contract.

Exit status: 0 opened and closed, 1 nothing is open, 2 wrong arguments and nothing was sent,
3 something is open or may be: look.
A place to start from: read it before you trade with it.
"""

import argparse
import re
import sys
import time
from decimal import Decimal

import answers
from answers import Refused, judge
from connector import Unanswered, ask

UNWIND = Decimal("0.01")  # how much worse than its opening price a leg may be unwound


class Unknown(Exception):
    """Only a person can find out."""


def positive(text):
    """The number; None when it is none above zero."""
    return Decimal(text) if re.fullmatch(r"(?=.*[1-9])[0-9]+(\.[0-9]+)?", text) else None


class Leg:
    side = symbol = ""
    start = balance = Decimal(0)  # what is held, and the wallet, before anything is opened
    sent = False

    def __init__(self, text):
        form = re.fullmatch(r"(bybit|okx|gate):([0-9.]+):([0-9.]+)", text)
        numbers = form and list(map(positive, form.groups()[1:]))
        if not numbers or None in numbers:
            raise argparse.ArgumentTypeError(
                f"'{text}' is not EXCHANGE:QUANTITY:PRICE, as in bybit:0.01:50000 "
                "(bybit, okx or gate)")
        self.exchange, (self.quantity, self.price) = form[1], numbers

    @property
    def direction(self):
        return "long" if self.side == "buy" else "short"

    def __str__(self):
        return f"{self.exchange} {self.direction}"


def held(leg):
    """How much of the leg is there, in the exchange's unit."""
    document = ask("get-position", leg.exchange, leg.symbol)
    return sum((position.quantity for position in
                answers.positions(leg.exchange, document, leg.symbol)
                if position.side == leg.direction), Decimal(0))


def usdt(leg):
    """The wallet's balance: realised profit, fees and funding are in it."""
    return answers.wallet(leg.exchange, ask("balance", leg.exchange))


def send(leg, command, quantity, price, *leverage, wait, until):
    """Places an order and waits until that much is held; what is not filled then is cancelled."""
    order = None
    leg.sent = True
    try:
        body = ask(command, leg.exchange, leg.symbol, leg.side, str(quantity), str(price),
                   *leverage)
        body = body["place"] if command == "place-open" else body
        order = answers.placed_id(leg.exchange, body)
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


def ask_for_prices(legs):
    """Two prices; two None when nobody can answer."""
    while True:
        try:
            words = input(f"Closing prices, long then short [{legs[0].price} {legs[1].price}]: ")
        except (EOFError, RuntimeError):  # at its end; closed from the start
            print("\nNobody is there to answer: both are closed, up to "
                  f"{UNWIND:%} worse than they were opened.")
            return [None, None]
        prices = [positive(word) for word in words.split()] or [leg.price for leg in legs]
        if len(prices) == 2 and None not in prices:
            return prices
        print("Two numbers, or nothing for the prices in the brackets.")


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
    prices = ask_for_prices(legs)
    closed = [close(leg, price, options.wait) if price else unwind(leg, options.wait)
              for leg, price in zip(legs, prices)]
    brought = [usdt(leg) - leg.balance for leg in legs]
    for leg, change in zip(legs, brought):
        print(f"{leg}: {change:+} USDT")
    print(f"together: {sum(brought):+} USDT, fees and funding included")
    return 0 if all(closed) else 3


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("symbol")
    parser.add_argument("long", type=Leg)
    parser.add_argument("short", type=Leg)
    parser.add_argument("leverage", help="a whole number")
    parser.add_argument("--wait", type=float, default=30, help="seconds for an order to fill")
    options = parser.parse_args()
    legs = [options.long, options.short]
    if options.long.exchange == options.short.exchange:
        parser.error("the two legs are on the same exchange: they would close each other, or be "
                     "one position")
    if not re.fullmatch("[1-9][0-9]*", options.leverage):
        parser.error("the leverage is a whole number")
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
    except KeyboardInterrupt:
        problem = "interrupted"
    except answers.UNREADABLE as error:
        problem = f"an answer was not understood: {error!r}"
    if not any(leg.sent for leg in legs):
        print(f"Stopped ({problem}). No order was sent.")
        return 1
    print(f"Stopped ({problem}). Look at both exchanges before you do anything else.")
    return 3


if __name__ == "__main__":
    sys.exit(main())
