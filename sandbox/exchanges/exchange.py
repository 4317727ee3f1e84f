"""What the exchanges have in common: route, check, one of nine operations, answer or refuse.

An exchange is a class of tables and its `envelope`. The fields of an answer are a table of
NAME=WORD: a member of the record (-WORD is its negative, #WORD a number in JSON; what is not
there is empty) or a constant in quotes. Other decimals are text.
"""

import hmac
import itertools
import re
from decimal import Decimal
from operator import attrgetter
from typing import Any, Callable

from .. import hosts
from ..account import Account
from ..http_message import Request, Response, wire_bytes
from ..keys import ApiKey, demo_keys
from ..records import Contract, Entry, Order, Refused
from .call import Call, base64_mac


class Exchange:
    name = ""
    contracts: tuple = ()  # symbol, coin, the step of quantities, how many coins a unit is
    routes: list[tuple[str, str, str]] = []  # method, path pattern, operation
    credentials: dict[str, str] = {}  # the headers of key, passphrase, sign and time
    checks = ("key", "time", "passphrase", "sign")  # in their order
    window_ms = (5000, 5000)  # how far behind its clock a request may be, and how far ahead
    names: dict[str, str] = {}  # of parameters, where it does not use our words
    choices: dict[str, tuple[str, ...]] = {}  # the values that it knows of a parameter
    words: dict[str, str] = {"buy": "buy", "sell": "sell"}  # and of sides, states, entries
    ok: tuple[Any, str] = (0, "")  # code and text of a success
    nothing: Any = None  # the data of a refusal
    # HTTP status, code and text of a reason, or of a reason and what it is about, which is {}.
    # A reason that is not there is refused as "invalid".
    errors: dict[str, tuple[int, Any, str]] = {}
    balance_fields = position_fields = order_fields = done_fields = leverage_fields = ""
    ledger_fields = closing_fields = ""
    page_size = 100
    hedged = False  # whether long and short are held apart
    shows_empty = False  # whether a contract without a position has a row all the same
    orders_have_symbols = True  # whether an order is asked for with its contract
    cancels_unknown = "unknown_order"  # the reason to refuse the cancelling of no order
    shapes: dict[str, Callable[[Any], Any]] = {}  # what becomes of an operation's data
    more_keys: dict[str, dict[str, Any]] = {}
    start_orders: tuple = ()  # symbol, quantity and price of buys from before the sandbox starts
    time: Callable[[int], Any] = str  # how it writes a time, which we have in milliseconds

    def __init__(self, now_ms: Callable[[], int]) -> None:
        self.now_ms = now_ms
        self.keys = demo_keys(self.name, "passphrase" in self.credentials, self.more_keys)
        self._ids = itertools.count(2_519_700_000_000_000_001)
        self.account = Account(self.contracts, now_ms, self.new_order_id, self.hedged)
        for symbol, quantity, price in self.start_orders:
            self.account.place(self.account.contract(symbol), True, Decimal(quantity),
                               Decimal(price), side="long" if self.hedged else "")

    def handle(self, request: Request) -> Response:
        try:
            operation, path_names = self._route(request)
            key = self._authenticate(request)
            if request.method != "GET" and not key.can_trade:
                raise Refused("permission")
            call = Call(request, path_names, self.names, self.choices, key)
            data = getattr(self, operation)(call)
            data = self.shapes[operation](data) if operation in self.shapes else data
            return Response.of_json(self.envelope(*self.ok, data))
        except Refused as refused:
            about = refused.detail or self.names.get(refused.reason, refused.reason)
            reasons = (f"{refused.reason} {about}", refused.reason, "invalid")
            status, code, text = next(self.errors[one] for one in reasons if one in self.errors)
            text = text.replace("{}", about)
            return Response.of_json(self.envelope(code, text, self.nothing), status)

    def envelope(self, code: Any, text: str, data: Any) -> Any:
        raise NotImplementedError

    # The operations but for `key`; each may be another at an exchange.

    def balance(self, _call: Call) -> Any:
        return self.fields(self.balance_fields, self.account)

    def position(self, call: Call) -> Any:
        symbol = call.text("symbol", "")
        held = [one for one in self.account.positions.values()
                if symbol in ("", one.contract.symbol)]
        if self.shows_empty and not held:
            held = [self.account.position(self.account.contract(symbol))]
        return [self.fields(self.position_fields, one) for one in held]

    def order(self, call: Call) -> Any:
        return self.fields(self.order_fields, self.asked_order(call))

    def cancel(self, call: Call) -> Any:
        if call.text("order") not in self.account.orders:
            raise Refused(self.cancels_unknown)
        order = self.asked_order(call)
        self.account.cancel(order)
        return self.fields(self.done_fields or self.order_fields, order)

    def leverage(self, call: Call) -> Any:
        contract, side = self._contract_and_side(call)
        self.account.set_leverage(contract.symbol, call.number("leverage"), side)
        return self.fields(self.leverage_fields, self.account.position(contract, side))

    def place(self, call: Call) -> Any:
        contract, side = self._contract_and_side(call)
        buy, quantity = self.asked_quantity(call)
        order = self.account.place(contract, buy, quantity, call.number("price"),
                                   call.flag("reduce_only"), side)
        return self.fields(self.done_fields or self.order_fields, order)

    def funding(self, call: Call) -> Any:
        since, until, symbol = self.asked_period(call)
        kind = call.text("type", "")
        return call.page([row for entry in self.account.ledger
                          if since <= entry.time_ms <= until
                          and symbol in ("", entry.contract.symbol)
                          for row in self.ledger_rows(entry) if kind in ("", row["type"])],
                         self.page_size)

    def closings(self, call: Call) -> Any:
        contract = self.account.contract(call.text("symbol"))
        return call.page(self.closing_rows([entry for entry in self.account.ledger if entry.order
                                            and entry.contract is contract]), self.page_size)

    # What they are made of, as it usually is.

    def ledger_rows(self, entry: Entry) -> list[dict[str, Any]]:
        return [self.fields(self.ledger_fields, entry)]

    def closing_rows(self, fills: list[Entry]) -> list[dict[str, Any]]:
        return [self.fields(self.closing_fields, entry) for entry in fills if entry.closed]

    def fields(self, table: str, record: Any) -> dict[str, Any]:
        pairs = (field.partition("=") for field in table.split())
        return {name: self._value(word or name, record) for name, _, word in pairs}

    def asked_order(self, call: Call) -> Order:
        order = self.account.order(call.text("order"))
        if self.orders_have_symbols and call.text("symbol") != order.contract.symbol:
            raise Refused("unknown_order")
        return order

    def asked_quantity(self, call: Call) -> tuple[bool, Decimal]:
        """Whether an order buys, and how much."""
        side = call.text("side")
        if side not in (self.words["buy"], self.words["sell"]):
            raise Refused("invalid", "side")
        return side == self.words["buy"], call.number("quantity")

    def asked_period(self, call: Call) -> tuple[int, int, str]:
        """From when to when, and of which contract, entries of the ledger are wanted."""
        raise NotImplementedError

    def new_order_id(self) -> str:
        return str(next(self._ids))

    def credential(self, request: Request, part: str) -> str:
        value = request.header(self.credentials[part])
        if not value:
            raise Refused("no_header", self.credentials[part])
        return value

    def moment_ms(self, text: str) -> int:
        """Of the time in a request; -1 when it is none."""
        return int(text) if re.fullmatch(r"[0-9]{1,19}", text) else -1

    def sign(self, request: Request, key: ApiKey, time: str) -> str:
        return base64_mac(key.secret, time, request.method, request.target, request.body)

    def passphrase(self, _request: Request, key: ApiKey, _time: str) -> str:
        return key.passphrase

    def _authenticate(self, request: Request) -> ApiKey:
        sent = {part: self.credential(request, part) for part in self.credentials}
        named = [key for key in self.keys if key.key == sent["key"]]
        here = [key for key in named
                if (key.site or hosts.BY_EXCHANGE[self.name][0]) == request.host]
        age_ms = self.now_ms() - self.moment_ms(sent["time"])
        for check in self.checks:
            if check == "key" and not here:
                raise Refused("key", "elsewhere" if named else "")
            if check == "time" and not -self.window_ms[1] < age_ms <= self.window_ms[0]:
                raise Refused("time")
            if check in ("passphrase", "sign") and check in sent:
                expected = getattr(self, check)(request, here[0], sent["time"])
                if not hmac.compare_digest(wire_bytes(sent[check]), wire_bytes(expected)):
                    raise Refused(check)
        return here[0]

    def _value(self, word: str, record: Any) -> Any:
        if word.startswith("'"):
            return word.strip("'")
        try:
            value = attrgetter(word.lstrip("#-"))(record)
        except AttributeError:
            return ""
        if word.endswith("_ms"):
            return self.time(value)
        if word.startswith("#"):
            return int(value) if int(value) == Decimal(value) else float(value)
        if isinstance(value, Decimal):
            return plain(-value if word.startswith("-") else value)
        return self.words.get(value, value) if isinstance(value, str) else value

    def _contract_and_side(self, call: Call) -> tuple[Contract, str]:
        return (self.account.contract(call.text("symbol")),
                call.text("position_side") if self.hedged else "")

    def _route(self, request: Request) -> tuple[str, dict[str, str]]:
        for method, pattern, operation in self.routes:
            match = re.fullmatch(pattern, request.path)
            if match and method == request.method:
                return operation, match.groupdict()
        raise Refused("not_found")


def plain(value: Decimal) -> str:
    """Decimal text without exponent and without needless zeros."""
    text = f"{value:.8f}".rstrip("0").rstrip(".")
    return "0" if text == "-0" else text
