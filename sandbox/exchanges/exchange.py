"""What the exchanges have in common: route, check, one of nine operations, answer or refuse.

An exchange is a class of tables and its `envelope`. The fields of an answer are a table of
NAME=WORD: a member of the record (-WORD is its negative, #WORD a number in JSON; what is not
there is empty) or a constant in quotes. Other decimals are text.
"""

import base64
import hmac
import itertools
import json
import re
from dataclasses import dataclass
from decimal import Decimal
from operator import attrgetter
from typing import Any, Callable, Optional

from .. import hosts
from ..account import Account, Order, Position, Refused, now_ms
from ..http_message import Request, Response, wire_bytes


@dataclass(frozen=True)
class Refusal:
    """A request that was let in nowhere, and why, whatever words its exchange has for that."""

    exchange: str
    reason: str  # no_header, time, key, passphrase or sign
    request: Request


@dataclass(frozen=True)
class ApiKey:
    key: str
    secret: str
    passphrase: str = ""
    site: str = ""  # the one host where the key exists; the exchange's first when empty
    version: str = "2"
    can_trade: bool = True
    can_withdraw: bool = False


class Call:
    """The parameters of path, query and JSON body alike, by our words or their own names."""

    def __init__(self, request: Request, path_names: dict[str, str], names: dict[str, str],
                 key: ApiKey) -> None:
        self.key, self._names = key, names
        try:
            document = json.loads(request.body or b"{}", parse_float=Decimal)
            self._values: dict[str, Any] = {**request.parameters, **document, **path_names}
        except (ValueError, TypeError, RecursionError):
            raise Refused("bad_body") from None

    def text(self, word: str, default: Optional[str] = None) -> str:
        """Without a default it must be there."""
        name = self._names.get(word, word)
        value = str(self._values.get(name, "")) or default
        if value is None:
            raise Refused("missing", name)
        return value

    def number(self, word: str) -> Decimal:
        value = self.text(word)
        if not re.fullmatch(r"-?[0-9]{1,18}(\.[0-9]{1,18})?", value):
            raise Refused("invalid", word)
        return Decimal(value)


class Exchange:
    name = ""
    contracts: tuple = ()  # symbol, coin, the step of quantities, how many coins a unit is
    start_quantity = ""  # of the first contract: held, and ordered once more, from the start
    hedged = False  # whether long and short are held apart
    routes: dict[str, str] = {}  # operations by method and pattern of the path
    credentials: dict[str, str] = {}  # the headers of key, passphrase, sign and time
    window_ms = (5000, 5000)  # how far behind its clock a request may be, and how far ahead
    names: dict[str, str] = {}  # of parameters, where it does not use our words
    words = {"buy": "buy", "sell": "sell"}  # and of sides, states, kinds of entries
    ok = ("0", "")  # code and text of a success
    # A reason, or a reason and what it is about; HTTP status, code, and text with that for {}.
    # What is not there is refused as "invalid".
    errors = ""
    balance_fields = position_fields = order_fields = done_fields = leverage_fields = ""
    ledger_fields = closing_fields = ""
    shapes: dict[str, Callable[[Any], Any]] = {}  # what becomes of the data of an operation
    logs_one_day = False  # whether its log covers a day from the start, of every contract
    reports_trades = False  # whether its report of closings has what opened a position, too
    demo_keys: dict[str, dict[str, Any]] = {}  # by what stands in the name, what is special
    signed_sizes = False  # whether a size below zero sells
    unit_ms = 1  # of its times

    def __init__(self, refusals: list[Refusal]) -> None:
        """`refusals` gets each request that is not let in."""
        self._refusals = refusals
        phrases = ("demo-passphrase", "Пароль") if "passphrase" in self.credentials else ("", "")
        self.keys = [ApiKey(f"demo-{name}-key", f"demo-{name}-secret", phrases[0], **traits)
                     for name, traits in {self.name: {}, **self.demo_keys}.items()]
        self.keys.append(ApiKey("clé-Größe-鍵", "Schlüssel-秘密", phrases[1]))
        self._errors = {row.split()[0]: row.split(None, 3)[1:]
                        for row in self.errors.strip().splitlines()}
        self._ids = itertools.count(2_519_700_000_000_000_001)
        self.account = Account(self.contracts, self.new_order_id)
        for price in ("50000", "45000") if self.start_quantity else ():
            self.account.place(self.account.contract(self.contracts[0][0]), True,
                               Decimal(self.start_quantity), Decimal(price),
                               side="long" if self.hedged else "")

    def handle(self, request: Request) -> Response:
        try:
            key = self._authenticate(request)
        except Refused as refused:
            self._refusals.append(Refusal(self.name, refused.reason, request))
            return self._refusal(refused)
        try:
            return Response.of_json(self.envelope(*self.ok, self._carry_out(request, key)))
        except Refused as refused:
            return self._refusal(refused)

    def _carry_out(self, request: Request, key: ApiKey) -> Any:
        """The data of the answer."""
        if request.method != "GET" and not key.can_trade:
            raise Refused("permission")
        for pattern, operation in self.routes.items():
            match = re.fullmatch(pattern, f"{request.method} {request.path}")
            if match:
                call = Call(request, match.groupdict(), self.names, key)
                data = getattr(self, operation)(call)
                return self.shapes[operation](data) if operation in self.shapes else data
        raise Refused("invalid", "path")

    def _refusal(self, refused: Refused) -> Response:
        about = refused.about or refused.reason
        about = self.names.get(about, about)
        status, code, text = self._errors.get(f"{refused.reason}/{about}") or \
            self._errors.get(refused.reason) or self._errors["invalid"]
        text = " ".join(text.replace("{}", about).split())
        return Response.of_json(self.envelope(code, text, None), int(status))

    def envelope(self, code: Any, text: str, data: Any) -> Any:
        return {"code": code, "msg": text} if data is None else {"code": code, "data": data}

    # The operations but for `key`; each may be another at an exchange.

    def balance(self, _call: Call) -> Any:
        return self.fields(self.balance_fields, self.account)

    def position(self, call: Call) -> Any:
        symbol = call.text("symbol", "")
        held = [one for one in self.account.held if symbol in ("", one.contract.symbol)]
        if symbol and not held and not self.hedged:
            held = [self.account.position(self.account.contract(symbol))]
        return [self.fields(self.position_fields, one) for one in held]

    def order(self, call: Call) -> Any:
        return self.fields(self.order_fields, self._asked_order(call, "unknown_order"))

    def cancel(self, call: Call) -> Any:
        order = self._asked_order(call, "cancel", "unknown")
        self.account.cancel(order)
        return self.fields(self.done_fields or self.order_fields, order)

    def leverage(self, call: Call) -> Any:
        position, leverage = self.asked_position(call), call.number("leverage")
        if not 1 <= leverage <= 100:
            raise Refused("leverage")
        if leverage == position.leverage and "same_leverage" in self._errors:
            raise Refused("same_leverage")
        position.leverage = leverage
        return self.fields(self.leverage_fields, position)

    def place(self, call: Call) -> Any:
        position = self.asked_position(call)
        side, quantity = call.text("side", ""), call.number("quantity")
        if self.signed_sizes:
            side, quantity = ("buy" if quantity > 0 else "sell"), abs(quantity)
        if side not in (self.words["buy"], self.words["sell"]):
            raise Refused("invalid", "side")
        order = self.account.place(
            position.contract, side == self.words["buy"], quantity, call.number("price"),
            call.text("reduce_only", "") == "True", position.position_side)
        return self.fields(self.done_fields or self.order_fields, order)

    def funding(self, call: Call) -> Any:
        since = self.moment_ms(call.text("since", "0"))
        until = since + 24 * 3_600_000 if self.logs_one_day else now_ms()
        symbol, kind = call.text("symbol"), call.text("type", "")
        rows = [self.fields(self.ledger_fields, entry) for entry in self.account.ledger
                if since <= entry.time_ms <= until
                and (self.logs_one_day or symbol == entry.contract.symbol)]
        return [row for row in rows[::-1] if kind in ("", row["type"])][:int(call.text("limit"))]

    def closings(self, call: Call) -> Any:
        contract = self.account.contract(call.text("symbol"))
        rows = [self.fields(self.closing_fields, one) for one in self.account.ledger
                if one.contract is contract and (one.closes or self.reports_trades and one.order)]
        return rows[::-1][:int(call.text("limit", "100"))]

    def fields(self, table: str, record: Any) -> dict[str, Any]:
        pairs = (field.partition("=") for field in table.split())
        return {name: self._value(word or name, record) for name, _, word in pairs}

    def asked_position(self, call: Call) -> Position:
        return self.account.position(self.account.contract(call.text("symbol")),
                                     call.text("position_side") if self.hedged else "")

    def new_order_id(self) -> str:
        return str(next(self._ids))

    def credential(self, request: Request, part: str) -> str:
        value = request.header(self.credentials[part])
        if not value:
            raise Refused("no_header", self.credentials[part])
        return value

    def moment_ms(self, text: str) -> int:
        """Of the time in a request; -1 when it is none."""
        return int(text) * self.unit_ms if re.fullmatch(r"[0-9]{1,19}", text) else -1

    def sign(self, request: Request, key: ApiKey, time: str) -> str:
        signed = wire_bytes(time + request.method + request.target) + request.body
        return base64_mac(key, signed)

    def passphrase(self, _request: Request, key: ApiKey) -> str:
        return key.passphrase

    def _authenticate(self, request: Request) -> ApiKey:
        sent = {part: self.credential(request, part) for part in self.credentials}
        age_ms = now_ms() - self.moment_ms(sent["time"])
        if not -self.window_ms[1] < age_ms <= self.window_ms[0]:
            raise Refused("time")
        key = {key.key: key for key in self.keys}.get(sent["key"])
        if not key:
            raise Refused("key")
        if request.host != (key.site or hosts.BY_EXCHANGE[self.name][0]):
            raise Refused("key", "elsewhere")
        if sent["sign"] != self.sign(request, key, sent["time"]):
            raise Refused("sign")
        if "passphrase" in sent and sent["passphrase"] != self.passphrase(request, key):
            raise Refused("passphrase")
        return key

    def _asked_order(self, call: Call, *refusal: str) -> Order:
        order = self.account.orders.get(call.text("order"))
        if not order or call.text("symbol", order.contract.symbol) != order.contract.symbol:
            raise Refused(*refusal)
        return order

    def _value(self, word: str, record: Any) -> Any:
        if word.startswith("'"):
            return word.strip("'")
        try:
            value = attrgetter(word.lstrip("#-"))(record)
        except AttributeError:
            return ""
        if word.startswith("#"):
            number = Decimal(value) / (self.unit_ms if word.endswith("_ms") else 1)
            return int(number) if number == int(number) else float(number)
        if isinstance(value, Decimal):
            return plain(-value if word.startswith("-") else value)
        return self.words.get(value, str(value))


def mac(algorithm: str, key: ApiKey, message: bytes) -> bytes:
    return hmac.new(wire_bytes(key.secret), message, algorithm).digest()


def base64_mac(key: ApiKey, message: bytes) -> str:
    return base64.b64encode(mac("sha256", key, message)).decode("ascii")


def plain(value: Decimal) -> str:
    """Decimal text without exponent and without needless zeros."""
    text = f"{value:.8f}".rstrip("0").rstrip(".")
    return "0" if text == "-0" else text
