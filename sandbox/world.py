"""Everything behind the proxy: the services by host, and one lock around them."""

from __future__ import annotations

import threading
from decimal import Decimal
from typing import Dict, List, Optional, Tuple

from . import hosts
from .account import MARKS
from .clock import Clock
from .control import Control
from .downloads import Downloads
from .exchanges import EXCHANGES, Exchange
from .faults import Fault, take_certificate_fault, take_fault
from .http_message import Request, Response
from .keys import ApiKey, demo_keys
from .relay import Relay


class World:
    """Handles one request at a time and keeps all of them."""

    def __init__(self) -> None:
        self.lock = threading.RLock()
        self.clock = Clock()
        self.requests: List[Request] = []
        self.refused: List[str] = []
        self.faults: List[Fault] = []
        self.keys: Dict[str, List[ApiKey]] = demo_keys()
        self.marks: Dict[str, Decimal] = dict(MARKS)
        self.exchanges: Dict[str, Exchange] = {
            kind.name: kind(self.keys[kind.name], self.clock, self.marks) for kind in EXCHANGES}
        self.relay = Relay()
        self.downloads = Downloads()
        self._services = {hosts.RELAY: self.relay, hosts.DOWNLOAD: self.downloads,
                          hosts.CONTROL: Control(self)}
        for name, exchange in self.exchanges.items():
            self._services.update(dict.fromkeys(hosts.BY_EXCHANGE[name], exchange))

    def knows(self, host: str, scheme: str) -> bool:
        """Whether such a connection would find anyone; a refused host is noted."""
        known = host in (hosts.CERTIFIED if scheme == "https" else self._services)
        if not known or (scheme == "http" and host in hosts.SECURE_ONLY):
            self.refused.append(host)
            return False
        return True

    def certificate(self, host: str) -> str:
        with self.lock:
            return take_certificate_fault(self.faults, host)

    def handle(self, request: Request) -> Tuple[Response, Optional[Fault]]:
        with self.lock:
            self.requests.append(request)
            fault = take_fault(self.faults, request.host, request.target)
            if fault and fault.response:
                return fault.response, fault
            if fault and fault.unheard:
                return Response(), fault
            return self._services[request.host].handle(request), fault

    def set_mark(self, coin: str, price: Decimal) -> None:
        """Moves a coin's mark price on all exchanges; orders that it crosses are filled."""
        with self.lock:
            self.marks[coin] = price
            for exchange in self.exchanges.values():
                exchange.account.match()
