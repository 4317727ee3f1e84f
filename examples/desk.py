#!/usr/bin/env python3
"""Balances and positions at a glance, and orders that are shown before they are sent.

    desk.py show [SYMBOL ...]     every exchange that has a key here
    desk.py open  [EXCHANGE [SYMBOL [long|short [QUANTITY [PRICE [LEVERAGE]]]]]]
    desk.py close [EXCHANGE [SYMBOL [long|short [QUANTITY [PRICE]]]]]
    desk.py key EXCHANGE          proves a key and keeps it; reads it without showing it

open and close ask for what is missing, and send when you say yes; with --most USDT, what is worth
no more is sent at once. How many coins a contract is, nobody here knows: it is asked for, or
--contract-size says it. A key still reaches the connector as arguments: ps shows it meanwhile.

Exit status: 0 done, 1 refused or not sent, 2 wrong arguments, 3 half done or not known: look.
No exchange is asked but through the connector, and nothing is kept but by it.
"""

import argparse
import getpass
import re
import subprocess
import sys
import warnings
from decimal import Decimal

import answers
from connector import Declined, Unanswered, ask

SIDES = {"long": "buy", "short": "sell"}


class Stop(Exception):
    """Why nothing was sent."""


def show(symbols):
    """One table: a row for each exchange that has a key, and for each further position."""
    print(f"{'':9}{'equity USDT':>12}{'available':>12}  {'position':23}{'at':>10}{'gain':>10}")
    status = shown = 0
    for exchange in answers.UNITS:
        try:
            money = answers.balance(exchange, ask("balance", exchange))
            held = [(symbol, one) for symbol in symbols for one in look(exchange, symbol)]
        except Declined:  # no key is kept for it
            continue
        except (answers.Refused, Unanswered, *answers.UNREADABLE) as problem:
            print(f"{exchange:9}{in_words(problem)}")
            shown = status = 1
            continue
        shown = 1
        available = "?" if money.available is None else f"{money.available:.2f}"
        row = f"{exchange:9}{money.equity:>12.2f}{available:>12}"
        for symbol, one in held:
            gain = "?" if one.unrealised is None else f"{one.unrealised:+.2f}"
            what = f"{symbol.split('_')[0]} {tell(exchange, one)}"
            print(f"{row:33}  {what:23}{plain(one.average):>10}{gain:>10}")
            row = ""
        if row:
            print(row)
    if not shown:
        print("No key is kept here. Begin with: desk.py key EXCHANGE")
    return status


def look(exchange, symbol):
    return answers.positions(exchange, ask("get-position", exchange, symbol), symbol)


def trade(opens, options):
    """Asks for what is missing, shows the order, sends it, and tells what the exchange said."""
    exchange = given(options.exchange, "Exchange (bybit, okx or gate)", "bybit|okx|gate")
    symbol = given(options.symbol, "Symbol, as in BTC_USDT", "[A-Z0-9]+_USDT")
    side = given(options.side, "Long or short", "long|short")
    held = [one for one in look(exchange, symbol) if one.side == side]
    if not opens and not held:
        raise Stop(f"no {side} is held in {symbol}")
    for one in held:
        print(f"Held: {tell(exchange, one)} at {plain(one.average)}")
    unit = answers.UNITS[exchange]
    quantity = given(options.quantity, f"Quantity, in {unit}", NUMBER)
    price = given(options.price, "Price, in USDT", NUMBER)
    leverage = []
    if opens:
        leverage.append(given(options.leverage, "Leverage, a whole number", "[1-9][0-9]*"))
    coins = "1" if unit == "coins" else given(
        options.contract_size, "Coins in one contract, as the exchange's page says", NUMBER)
    worth = Decimal(quantity) * Decimal(coins) * Decimal(price)
    print(f"{'Open' if opens else 'Close'} {side} {symbol} on {exchange}: {quantity} {unit} at "
          f"{price} = {plain(worth)} USDT", *(f"leverage {one}" for one in leverage), sep=", ")
    enough = options.most and worth <= Decimal(given(options.most, "--most takes USDT", NUMBER))
    if not enough and given(None, "Send it? yes or no", "yes|no") == "no":
        raise Stop("you said no")
    return send("place-open" if opens else "place-close", exchange, symbol, SIDES[side], quantity,
                price, *leverage)


def send(command, exchange, symbol, *words):
    see = f"morvane-connector get-position {exchange} {symbol}"
    try:
        body = ask(command, exchange, symbol, *words)
    except (Unanswered, KeyboardInterrupt):
        print(f"No answer. The order may be there; look before you send another:\n    {see}")
        return 3
    placed = body["place"] if command == "place-open" else body
    no_leverage = command == "place-open" and answers.refusal(exchange, body["leverage"])
    if no_leverage:
        print(f"The leverage was refused, and stays what it was: {clean(no_leverage)}")
    if refusal := answers.refusal(exchange, placed):
        print(f"The order was refused: {clean(refusal)}")
        return 1
    order_id = answers.placed_id(exchange, placed)
    print(f"Taken: order {order_id}. To see what becomes of it:\n"
          f"    morvane-connector order-status {exchange} {symbol} {order_id}\n    {see}")
    return 3 if no_leverage else 0


def key(exchange):
    """The exit status of `validate`: 0 when the key was kept."""
    warnings.simplefilter("error", getpass.GetPassWarning)
    names = ["key", "secret", "passphrase"][:3 if exchange in ("okx", "kucoin", "bitget") else 2]
    try:
        words = [getpass.getpass(f"{exchange} {name}, not shown: ") for name in names]
    except (getpass.GetPassWarning, EOFError):
        raise Stop("there is no terminal that can hide what you type") from None
    if "" in words:
        raise Stop(f"the {names[words.index('')]} is empty")
    done = subprocess.run(["morvane-connector", "validate", exchange, *words], encoding="utf-8",
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, errors="replace",
                          check=False)
    print(*map(clean, done.stdout.split("\n")[:8]), sep="\n")  # what follows is not ours
    return done.returncode


NUMBER = r"(?=.*[1-9])[0-9]+(\.[0-9]+)?"  # above zero, as an exchange takes it


def given(text, question, form):
    """What was given, or else what is typed, asked again until it has the form."""
    if text is not None and not re.fullmatch(form, text):
        raise Stop(f"'{clean(text)}' will not do. {question}")
    while text is None:
        try:
            text = input(f"{question}: ").strip()
        except (EOFError, RuntimeError):
            raise Stop("nobody is there to answer") from None
        if not re.fullmatch(form, text):
            print(f"'{clean(text)}' will not do.")
            text = None
    return text


def tell(exchange, position):
    return f"{position.side} {plain(position.quantity)} {answers.UNITS[exchange]}"


def plain(value):
    return f"{value.normalize():f}"


def clean(text):
    """Without what a terminal would obey."""
    return "".join(one if one.isprintable() else "?" for one in text)


def in_words(problem):
    kinds = {Stop: "", Unanswered: "no answer came", KeyboardInterrupt: "interrupted",
             answers.Refused: "refused: ", Declined: "refused: "}
    return clean(kinds.get(type(problem), "an answer was not understood: ") + str(problem))


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(dest="command", required=True)
    commands.add_parser("show").add_argument("symbols", nargs="*", metavar="SYMBOL")
    for name in ("open", "close"):
        command = commands.add_parser(name)
        for argument in ["exchange", "symbol", "side", "quantity", "price",
                         "leverage"][:6 if name == "open" else 5]:
            command.add_argument(argument, nargs="?")
        command.add_argument("--most", metavar="USDT", help="ask above this only")
        command.add_argument("--contract-size", metavar="COINS", help="how many a contract is")
    commands.add_parser("key").add_argument("exchange", choices=answers.UNITS)
    options = parser.parse_args()
    try:
        if options.command == "show":
            return show(options.symbols or ["BTC_USDT", "ETH_USDT"])
        if options.command == "key":
            return key(options.exchange)
        return trade(options.command == "open", options)
    except (Stop, answers.Refused, Unanswered, KeyboardInterrupt) as problem:
        print(f"Nothing was sent: {in_words(problem)}.")
        return 1
    except answers.UNREADABLE as problem:
        print(f"{in_words(problem)}. Look at the exchange before you do anything else.")
        return 3


if __name__ == "__main__":
    sys.exit(main())
