"""Everything behind the proxy: the services by host, and one lock around them."""

import threading
from typing import Optional

from . import hosts
from .account import Account
from .control import Control
from .exchanges.bingx import Bingx
from .exchanges.bitget import Bitget
from .exchanges.bybit import Bybit
from .exchanges.call import ApiKey, Refusal
from .exchanges.gate import Gate
from .exchanges.kucoin import Kucoin
from .exchanges.okx import Okx
from .http_message import Fault, Request, Response, take_fault
from .platform_hosts import Downloads, Relay


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
            self.down: set[str] = set()  # hosts that are out of reach
            self.losing: set[str] = set()  # exchanges whose next answer is lost
            self.relay, self.downloads = Relay(), Downloads()
            self._exchanges = {kind.name: kind(self.refusals) for kind in
                               (Bybit, Okx, Gate, Bingx, Kucoin, Bitget)}
            self._services = {hosts.RELAY: self.relay.handle, hosts.CONTROL: Control(self),
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
            if request.host in self.down:
                fault = Fault.close(request.host)
            if fault and fault.response:
                return fault.response, fault
            exchange = next((name for name, at in hosts.BY_EXCHANGE.items()
                             if request.host in at), "")
            if exchange in self.losing:
                self.losing.remove(exchange)
                fault = Fault.lost_answer(request.host)
            return self._services[request.host](request), fault
