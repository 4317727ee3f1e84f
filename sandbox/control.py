"""http://sandbox.control/: switches for what happens outside, and what was asked of it."""

import re
import sys
from collections.abc import Sequence
from decimal import Decimal
from inspect import signature
from typing import Any
from urllib.parse import unquote

from . import hosts
from .account import MARKS
from .http_message import Fault, Request, Response

HOSTS = {**hosts.BY_EXCHANGE, "relay": (hosts.RELAY,), "download": (hosts.DOWNLOAD,),
         **{host: (host,) for host in hosts.BY_SCHEME["https"]}}
KNOWN = {"exchange": hosts.BY_EXCHANGE, "host": HOSTS, "coin": MARKS}
"""What an argument of that name can be."""


class Wrong(Exception):
    """What is wrong with a request."""


class Control:
    """The methods without an underscore are the switches, their docstrings the list of them."""

    def __init__(self, box) -> None:
        self._box = box
        self._switches = {name: getattr(self, name) for name in vars(Control)
                          if not name.startswith("_")}

    def __call__(self, request: Request) -> Response:
        """What is wrong is printed, too: with -f, curl shows no text of a refusal."""
        name, *arguments = map(unquote, request.path[1:].split("/"))
        try:
            text = self._turn(name, arguments) if name else "\n".join(
                f"{_usage(switch):<25}{switch.__doc__}" for switch in self._switches.values())
            return Response(200, f"{text}\n".encode())
        except Wrong as wrong:
            print(f"sandbox.control: {wrong}", file=sys.stderr, flush=True)
            return Response(400, f"error: {wrong}\n".encode())

    def _turn(self, name: str, arguments: Sequence[str]) -> str:
        if name not in self._switches:
            raise Wrong(f"there is no switch {name!r}; curl http://{hosts.CONTROL}/ lists them")
        switch = self._switches[name]
        if len(arguments) != len(signature(switch).parameters):
            raise Wrong(f"write {_usage(switch)}")
        for parameter, argument in zip(signature(switch).parameters, arguments):
            if parameter in KNOWN and argument not in KNOWN[parameter]:
                raise Wrong(f"{argument!r} is none of {' '.join(KNOWN[parameter])}")
        return switch(*arguments)

    def fill(self, exchange: str, order_id: str) -> str:
        """somebody takes an open order, at its own price"""
        account = self._box.exchanges[exchange].account
        order = account.orders.get(order_id)
        if not order or not order.is_open:
            raise Wrong(f"{exchange} has no open order {order_id}; /orders/{exchange} lists them")
        account.fill(order, order.price)
        return f"{order.state} {order_id}"

    def mark(self, coin: str, price: str) -> str:
        """BTC or ETH moves; orders that it crosses are filled"""
        if not re.fullmatch(r"[0-9]{1,9}(\.[0-9]{1,8})?", price) or not Decimal(price):
            raise Wrong(f"{price!r} is no price")
        for exchange in self._box.exchanges.values():
            exchange.account.set_mark(coin, Decimal(price))
        return f"{coin} {price}"

    def orders(self, exchange: str) -> str:
        """an exchange's open orders, in its own symbols and units"""
        rows = [(order.id, order.contract.symbol, order.side, order.quantity, order.price)
                for order in self._box.exchanges[exchange].account.open_orders]
        return _aligned(("id", "symbol", "side", "quantity", "price"), rows)

    def lose(self, exchange: str) -> str:
        """its next answer is lost, after it did what was asked"""
        self._box.faults.append(Fault(hosts.BY_EXCHANGE[exchange][0], times=1, delivery="never"))
        return f"{exchange}: the next answer is lost"

    def down(self, host: str) -> str:
        """out of reach: an exchange, relay, download, or one host"""
        self._box.faults[:0] = map(Fault.down, HOSTS[host])
        return f"{host} is down"

    def up(self, host: str) -> str:
        """there again"""
        closed = list(map(Fault.down, HOSTS[host]))
        self._box.faults[:] = [one for one in self._box.faults if one not in closed]
        return f"{host} is up"

    def authorize(self) -> str:
        """the wallet's owner signs"""
        return f"{self._box.relay.authorize()} bindings"

    def requests(self) -> str:
        """requests by host, and how many held a key or secret"""
        keys = [key for exchange in self._box.exchanges.values() for key in exchange.keys]
        parts = ("key", "secret", "passphrase")
        known = [{getattr(key, part) for key in keys} - {""} for part in parts]
        sent: dict[str, list[str]] = {}
        for request in self._box.requests:
            if request.host != hosts.CONTROL:
                sent.setdefault(request.host, []).append(_text(request))
        rows = [(host, len(texts), *(sum(any(one in text for one in some) for text in texts)
                                     for some in known)) for host, texts in sent.items()]
        return _aligned(("host", "requests", *parts), rows)


def _usage(switch) -> str:
    return "/".join(["", switch.__name__, *map(str.upper, signature(switch).parameters)])


def _text(request: Request) -> str:
    """All that was sent, the address also with its %XX read."""
    values = [value for _, value in request.headers]
    return "\n".join([request.target, unquote(request.target), *values,
                      request.body.decode("utf-8", "replace")])


def _aligned(head: Sequence[str], rows: Sequence[Sequence[Any]]) -> str:
    lines = [head, *([str(cell) for cell in row] for row in rows)]
    widths = [max(map(len, column)) for column in zip(*lines)]
    return "\n".join("  ".join(map(str.ljust, line, widths)).rstrip() for line in lines)
