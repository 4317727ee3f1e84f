"""What the six exchanges have in common: check, route, answer, refuse."""

from __future__ import annotations

import base64
import hashlib
import hmac
import itertools
import json
import re
from dataclasses import dataclass
from decimal import Decimal
from typing import Any, Callable, ClassVar, Dict, List, Mapping, Optional, Tuple, Union

from ..account import Account
from ..clock import Clock
from ..http_message import Request, Response, wire_bytes
from ..keys import ApiKey
from ..records import Contract, Rejection

WINDOW_MS = 60_000
"""A slow machine must not look like a wrong clock, so no window is narrower."""

Code = Union[str, int]
Route = Tuple[str, str, str]
"""Method, path pattern, and the name of the member that answers."""


class Refused(Exception):
    """An answer other than success: a code of the exchange, with its own text or another."""

    def __init__(self, code: Code, text: str = "") -> None:
        super().__init__(code, text)
        self.code, self.text = code, text


CodeAndText = Tuple[Any, ...]
"""The arguments of Refused."""


@dataclass(frozen=True)
class Refusals:
    """What an exchange says to the mistakes that can be made on every one of them."""

    not_found: CodeAndText
    missing_parameter: CodeAndText
    """Its text may name the parameter as {0}."""
    bad_body: CodeAndText
    bad_content_type: CodeAndText


@dataclass
class Call:
    """An authenticated request, and how its parts are read."""

    request: Request
    key: ApiKey
    refusals: Refusals
    path_names: Dict[str, str]

    def query(self, name: str, default: Optional[str] = None) -> str:
        return self._read(self.request.parameters, name, default)

    def member(self, name: str, default: Any = None) -> Any:
        """A member of the JSON body; numbers come as int or Decimal."""
        return self._read(self._document(), name, default)

    def word(self, name: str) -> str:
        """A member that is a text, or a number taken as one."""
        value = self.member(name)
        if isinstance(value, bool) or not isinstance(value, (str, int, Decimal)):
            raise self._missing(name)
        return str(value)

    def _read(self, source: Mapping[str, Any], name: str, default: Any) -> Any:
        value = source.get(name, default)
        if value is None or value == "":
            if default is not None:
                return default
            raise self._missing(name)
        return value

    def _missing(self, name: str) -> Refused:
        code, *text = self.refusals.missing_parameter
        return Refused(code, *(line.format(name) for line in text))

    def _document(self) -> Dict[str, Any]:
        content_type = self.request.header("Content-Type") or ""
        if content_type.partition(";")[0].strip().lower() != "application/json":
            raise Refused(*self.refusals.bad_content_type)
        try:
            document = json.loads(self.request.body.decode("utf-8"), parse_float=Decimal,
                                  parse_constant=_no_number)
        except (ValueError, RecursionError):
            raise Refused(*self.refusals.bad_body) from None
        if not isinstance(document, dict):
            raise Refused(*self.refusals.bad_body)
        return document


class Exchange:
    """One exchange: a subclass gives its tables, its checks and its answers."""

    name: ClassVar[str]
    hosts: ClassVar[Tuple[str, ...]]
    contracts: ClassVar[Dict[str, Contract]]
    routes: ClassVar[List[Route]]
    errors: ClassVar[Dict[Code, Tuple[int, str]]]
    """HTTP status and usual text of every code that it refuses with."""
    rejections: ClassVar[Dict[str, CodeAndText]]
    """What it says to each of the account's reasons."""
    refusals: ClassVar[Refusals]
    hedged: ClassVar[bool] = False
    initial_orders: ClassVar[Tuple[Tuple[str, str, str, str], ...]] = ()
    """Buys (symbol, quantity, price, id) that were placed before the sandbox starts."""
    first_order_id: ClassVar[int] = 1

    def __init__(self, keys: List[ApiKey], clock: Clock, marks: Dict[str, Decimal]) -> None:
        self.keys = keys
        self.clock = clock
        self._order_ids = itertools.count(self.first_order_id)
        self.account = Account(self.contracts, clock, marks, self.new_order_id, self.hedged)
        for symbol, quantity, price, order_id in self.initial_orders:
            self.account.place(symbol, True, Decimal(quantity), Decimal(price), order_id=order_id,
                               position_side="long" if self.hedged else "")

    def handle(self, request: Request) -> Response:
        try:
            operation, path_names = self._route(request)
            key = self.authenticate(request)
            return operation(Call(request, key, self.refusals, path_names))
        except Rejection as rejection:
            return self._refuse(*self.rejections[rejection.reason])
        except Refused as refused:
            return self._refuse(refused.code, refused.text)

    def authenticate(self, request: Request) -> ApiKey:
        """The key that signed `request`, or Refused."""
        raise NotImplementedError

    def refusal(self, code: Code, text: str, status: int) -> Response:
        """The exchange's own error document."""
        raise NotImplementedError

    def new_order_id(self) -> str:
        return str(next(self._order_ids))

    def find_key(self, text: str, host: str) -> Optional[ApiKey]:
        """The key of that name which lives on `host`."""
        return next((key for key in self.keys
                     if key.key == text and (key.site or self.hosts[0]) == host), None)

    def check_time(self, moment_ms: Optional[int], window_ms: int, code: Code,
                   text: str = "") -> None:
        if moment_ms is None or \
                abs(self.clock.now_ms() - moment_ms) > max(window_ms, WINDOW_MS):
            raise Refused(code, text)

    def _refuse(self, code: Code, text: str = "") -> Response:
        status, usual = self.errors[code]
        return self.refusal(code, text or usual, status)

    def _route(self, request: Request) -> Tuple[Callable[[Call], Response], Dict[str, str]]:
        for method, pattern, member in self.routes:
            match = re.fullmatch(pattern, request.path)
            if match and method == request.method:
                return getattr(self, member), match.groupdict()
        raise Refused(*self.refusals.not_found)


def needed_header(request: Request, name: str, code: Code) -> str:
    """The header's value; Refused with `code` when it is missing or empty."""
    value = request.header(name)
    if not value:
        raise Refused(code)
    return value


def mac(algorithm: str, secret: str, *pieces: Union[str, bytes]) -> bytes:
    """HMAC of what the pieces are on the wire, one after another."""
    message = b"".join(wire_bytes(piece) if isinstance(piece, str) else piece
                       for piece in pieces)
    return hmac.new(wire_bytes(secret), message, algorithm).digest()


def base64_mac(secret: str, *pieces: Union[str, bytes]) -> str:
    return base64.b64encode(mac("sha256", secret, *pieces)).decode("ascii")


def sha512_hex(body: bytes) -> str:
    return hashlib.sha512(body).hexdigest()


def same(received: Optional[str], expected: str) -> bool:
    return hmac.compare_digest(wire_bytes(received or ""), wire_bytes(expected))


def whole_number(text: Optional[str]) -> Optional[int]:
    return int(text) if text and re.fullmatch(r"[0-9]{1,19}", text) else None


def number(value: Any) -> Optional[Decimal]:
    """A decimal given as JSON text or number; None when it is neither, or absurd."""
    if isinstance(value, str) and re.fullmatch(r"-?[0-9]{1,18}(\.[0-9]{1,18})?", value):
        return Decimal(value)
    if isinstance(value, (int, Decimal)) and not isinstance(value, bool) and abs(value) < 10**18:
        return Decimal(value)
    return None


def newest_first(rows: List[Dict[str, Any]], time_name: str, call: Call,
                 default_limit: int = 20) -> List[Dict[str, Any]]:
    """The first page of `rows`, as long as the query's limit."""
    limit = whole_number(call.query("limit", "")) or default_limit
    return sorted(rows, key=lambda row: float(row[time_name]), reverse=True)[:limit]


def plain(value: Decimal, places: int = 8) -> str:
    """Decimal text without exponent and without needless zeros."""
    text = f"{value:.{places}f}"
    text = text.rstrip("0").rstrip(".") if "." in text else text
    return "0" if text in ("-0", "") else text


def _no_number(word: str) -> None:
    raise ValueError(word)
