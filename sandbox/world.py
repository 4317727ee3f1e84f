"""Everything behind the proxy: the services by host, and one lock around them."""

import re
import threading
from decimal import Decimal
from typing import Optional

from . import hosts
from .account import MARKS, Account
from .exchanges import EXCHANGES
from .exchanges.exchange import ApiKey
from .http_message import Fault, Request, Response, take_fault
from .platform_hosts import Downloads, Relay

SWITCHES = """\
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
            self.requests: list[Request] = []
            self.faults: list[Fault] = []
            self.relay, self.downloads = Relay(), Downloads()
            self._exchanges = {kind.name: kind() for kind in EXCHANGES}
            self._services = {hosts.RELAY: self.relay.handle, hosts.CONTROL: self._control,
                              hosts.DOWNLOAD: self.downloads.handle}
            for name, exchange in self._exchanges.items():
                self._services.update(dict.fromkeys(hosts.BY_EXCHANGE[name], exchange.handle))

    def keys(self, exchange: str) -> list[ApiKey]:
        """The keys that the exchange knows; append to it."""
        return self._exchanges[exchange].keys

    def account(self, exchange: str) -> Account:
        return self._exchanges[exchange].account

    def handle(self, request: Request) -> tuple[Response, Optional[Fault]]:
        with self.lock:
            self.requests.append(request)
            fault = take_fault(self.faults, request.host, request.target)
            if fault and fault.response:
                return fault.response, fault
            return self._services[request.host](request), fault

    def _control(self, request: Request) -> Response:
        """The sandbox's own switches; each answers with a line about what it did."""
        switch, *words = request.path.strip("/").split("/")
        switches = {"authorize": self._authorize, "fill": self._fill, "mark": self._mark}
        try:
            return Response(200, switches[switch](*words).encode() + b"\n", "text/plain")
        except (LookupError, TypeError):
            return Response(404, SWITCHES.encode(), "text/plain")

    def _authorize(self) -> str:
        return f"{self.relay.authorize()} bindings"

    def _fill(self, exchange: str, order_id: str) -> str:
        account = self.account(exchange)
        order = account.orders[order_id]
        if order.state == "open":
            account.fill(order, order.price)
        return f"{order.state} {order.id}"

    def _mark(self, coin: str, price: str) -> str:
        if coin not in MARKS or not re.fullmatch(r"[0-9]+(\.[0-9]+)?", price):
            raise LookupError(coin, price)
        for exchange in self._exchanges.values():
            exchange.account.set_mark(coin, Decimal(price))
        return f"{coin} {price}"
