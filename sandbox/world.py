"""Everything behind the proxy: the services by host, and one lock around them."""

import re
import threading
import time
from decimal import Decimal
from typing import Optional

from . import hosts
from .account import MARKS, Account
from .downloads import Downloads
from .exchanges import EXCHANGES
from .faults import Fault, take_fault
from .http_message import Request, Response
from .keys import ApiKey
from .records import Order, Refused
from .relay import Relay

SWITCHES = b"""\
/fill/EXCHANGE/ORDER_ID   somebody takes an open order, at its own price
/mark/COIN/PRICE          a mark price moves (BTC, ETH); orders that it crosses are filled
/authorize                the wallet's owner signs
"""


class World:
    """Handles one request at a time and keeps all of them."""

    def __init__(self) -> None:
        self.lock = threading.RLock()
        self.reset()

    def reset(self) -> None:
        """Everything as at the start."""
        with self.lock:
            self.clock_offset_ms = 0
            self.requests: list[Request] = []
            self.refused: list[str] = []  # hosts asked for that are not of this world
            self.faults: list[Fault] = []
            self.relay, self.downloads = Relay(), Downloads()
            self._marks = dict(MARKS)
            self._exchanges = {kind.name: kind(self._marks, self._now_ms) for kind in EXCHANGES}

    def keys(self, exchange: str) -> list[ApiKey]:
        """The keys that the exchange knows; append to it."""
        return self._exchanges[exchange].keys

    def account(self, exchange: str) -> Account:
        return self._exchanges[exchange].account

    def fill(self, exchange: str, order_id: str) -> Order:
        with self.lock:
            return self.account(exchange).fill(order_id)

    def knows(self, host: str, scheme: str) -> bool:
        """Whether such a connection would find anyone; a refused host is noted."""
        if host not in hosts.BY_SCHEME[scheme]:
            self.refused.append(host)
        return host in hosts.BY_SCHEME[scheme]

    def handle(self, request: Request) -> tuple[Response, Optional[Fault]]:
        with self.lock:
            self.requests.append(request)
            fault = take_fault(self.faults, request.host, request.target)
            if fault and (fault.response or fault.unheard):
                return fault.response or Response(), fault
            return self._answer(request), fault

    def _answer(self, request: Request) -> Response:
        if request.host == hosts.CONTROL:
            return self._control(request.path)
        if request.host in (hosts.RELAY, hosts.DOWNLOAD):
            return (self.relay if request.host == hosts.RELAY else self.downloads).handle(request)
        name = next(name for name, names in hosts.BY_EXCHANGE.items() if request.host in names)
        return self._exchanges[name].handle(request)

    def _control(self, path: str) -> Response:
        """The sandbox's own switches; each answers with a line about what it did."""
        _, switch, *words = path.split("/")
        text = ""
        if switch == "authorize":
            text = f"{self.relay.authorize()} bindings"
        if switch == "fill" and len(words) == 2 and words[0] in self._exchanges:
            try:
                text = "{0.state} {0.id}".format(self.fill(*words))
            except Refused as refused:
                text = refused.reason
        if switch == "mark" and re.fullmatch(r"(BTC|ETH)/[0-9]+(\.[0-9]+)?", "/".join(words)):
            self._marks[words[0]] = Decimal(words[1])
            for exchange in self._exchanges.values():
                exchange.account.match()
            text = " ".join(words)
        return Response(200 if text else 404, text.encode() + b"\n" if text else SWITCHES,
                        "text/plain; charset=utf-8")

    def _now_ms(self) -> int:
        return time.time_ns() // 1_000_000 + self.clock_offset_ms
