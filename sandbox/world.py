"""Everything behind the proxy: the services by host, and one lock around them."""

import re
import threading
from decimal import Decimal
from typing import Optional

from . import hosts
from .account import MARKS, Account
from .exchanges.bingx import Bingx
from .exchanges.bitget import Bitget
from .exchanges.bybit import Bybit
from .exchanges.exchange import ApiKey, Refusal
from .exchanges.gate import Gate
from .exchanges.kucoin import Kucoin
from .exchanges.okx import Okx
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
            # Those whose key, time, signature or passphrase an exchange did not accept.
            self.refusals: list[Refusal] = []
            self.faults: list[Fault] = []
            self.relay, self.downloads = Relay(), Downloads()
            self._exchanges = {kind.name: kind(self.refusals) for kind in
                               (Bybit, Okx, Gate, Bingx, Kucoin, Bitget)}
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
        words = request.path.strip("/").split("/")
        text = SWITCHES
        if words == ["authorize"]:
            text = f"{self.relay.authorize()} bindings\n"
        elif words[0] == "fill" and len(words) == 3 and words[1] in self._exchanges:
            account = self.account(words[1])
            order = account.orders.get(words[2])
            if order and order.state == "open":
                account.fill(order, order.price)
            text = f"{order.state if order else 'unknown'} {words[2]}\n"
        elif re.fullmatch(rf"/mark/({'|'.join(MARKS)})/[0-9]+(\.[0-9]+)?", request.path):
            for exchange in self._exchanges.values():
                exchange.account.set_mark(words[1], Decimal(words[2]))
            text = f"{words[1]} {words[2]}\n"
        return Response(404 if text == SWITCHES else 200, text.encode(), "text/plain")
