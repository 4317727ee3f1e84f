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

SWITCHES = """\
/fill/EXCHANGE/ORDER_ID   somebody takes an open order, at its own price
/mark/COIN/PRICE          a mark price moves (BTC, ETH); orders that it crosses are filled
/authorize                the wallet's owner signs"""


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
            self._exchanges = {kind.name: kind(self._now_ms) for kind in EXCHANGES}

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
            services = {hosts.RELAY: self.relay.handle, hosts.DOWNLOAD: self.downloads.handle,
                        hosts.CONTROL: self._control}
            for name, exchange in self._exchanges.items():
                services.update(dict.fromkeys(hosts.BY_EXCHANGE[name], exchange.handle))
            return services[request.host](request), fault

    def _control(self, request: Request) -> Response:
        """The sandbox's own switches; each answers with a line about what it did."""
        switch, *words = request.path.strip("/").split("/")
        switches = {"authorize": self._authorize, "fill": self._fill, "mark": self._mark}
        try:
            text = switches[switch](*words)
        except (KeyError, TypeError):
            return Response(404, SWITCHES.encode() + b"\n", "text/plain")
        except Refused as refused:
            text = refused.reason
        return Response(200, text.encode() + b"\n", "text/plain")

    def _authorize(self) -> str:
        return f"{self.relay.authorize()} bindings"

    def _fill(self, exchange: str, order_id: str) -> str:
        order = self.fill(exchange, order_id)
        return f"{order.state} {order.id}"

    def _mark(self, coin: str, price: str) -> str:
        if coin not in MARKS or not re.fullmatch(r"[0-9]+(\.[0-9]+)?", price):
            raise KeyError(coin, price)
        for exchange in self._exchanges.values():
            exchange.account.set_mark(coin, Decimal(price))
        return f"{coin} {price}"

    def _now_ms(self) -> int:
        return time.time_ns() // 1_000_000 + self.clock_offset_ms
