"""http://sandbox.control/ : the sandbox's own switches, for a shell or a demo."""

from __future__ import annotations

from decimal import Decimal
from typing import TYPE_CHECKING, List, Optional

from .http_message import Request, Response
from .records import Rejection

if TYPE_CHECKING:
    from .world import World

USAGE = """\
/fill/EXCHANGE/ORDER_ID   fill an open order at its own price
/mark/COIN/PRICE          move a mark price (BTC, ETH, SOL)
/authorize                the wallet's owner signs: pending bindings are authorized
/lose-session             the relay forgets all bindings
/token-missing            the relay misses the bindings' tokens
"""


class Control:
    """Answers in plain text, one line."""

    def __init__(self, world: "World") -> None:
        self._world = world

    def handle(self, request: Request) -> Response:
        text = self._do([word for word in request.path.split("/") if word])
        if text is None:
            return _text(404, USAGE)
        return _text(200, text + "\n")

    def _do(self, words: List[str]) -> Optional[str]:
        """What was done; None when the words mean nothing here."""
        if not words:
            return USAGE.rstrip("\n")
        if words[0] == "fill" and len(words) == 3:
            return self._fill(words[1], words[2])
        if words[0] == "mark" and len(words) == 3:
            return self._mark(words[1], words[2])
        return self._relay(words)

    def _fill(self, exchange: str, order_id: str) -> Optional[str]:
        if exchange not in self._world.exchanges:
            return None
        try:
            order = self._world.exchanges[exchange].account.fill(order_id)
        except Rejection as rejection:
            return rejection.reason
        return f"{order.state} {order.id}"

    def _mark(self, coin: str, price: str) -> Optional[str]:
        if coin not in self._world.marks or not price.replace(".", "", 1).isdecimal():
            return None
        self._world.set_mark(coin, Decimal(price))
        return f"{coin} {price}"

    def _relay(self, words: List[str]) -> Optional[str]:
        relay = self._world.relay
        switches = {"authorize": relay.authorize, "lose-session": relay.lose_session,
                    "token-missing": relay.forget_token}
        if len(words) != 1 or words[0] not in switches:
            return None
        return f"{switches[words[0]]()} bindings"


def _text(status: int, text: str) -> Response:
    return Response(status, text.encode("utf-8", "surrogateescape"), "text/plain; charset=utf-8")
