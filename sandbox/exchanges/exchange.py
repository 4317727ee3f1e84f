"""What the exchanges have in common: route, check, one of nine operations, answer or refuse.

To add one, write a class of tables in a file of its own, from the exchange's documentation:

1. `name`, which its file and its class have too, and `contracts` in BTC and in ETH, by its own
   symbols; its hosts in ../hosts.py.
2. `credentials`, and `sign` where its signature is not the commonest one (HMAC-SHA256 in base64 of
   time, method, target and body). It is the second opinion on the connector's: copy nothing of it.
3. `routes`: which operation of those below answers which request; `key`, what it tells of keys, is
   its own. `names`: what it calls the parameters that `Call.text` and `Call.number` ask for.
4. `errors`: its words for REASONS; what it has none for it refuses as invalid. `envelope`: what is
   around every answer and refusal.
5. The fields of its answers, as fields.py tells, of the records in ../account.py; `words` for
   their values; `shapes`, the lists and names around them.

Where it is truly odd it has a method of the same name as one here. A slip in a table (a setting,
operation, member, word or reason that is none, a credential without words for a wrong one) is a
ValueError when the sandbox starts.
"""

import itertools
import re
from decimal import Decimal
from typing import Any, Callable

from .. import hosts
from ..account import Account, Order, Position, Refused, now_ms
from ..http_message import Request, Response, wire_bytes
from . import fields
from .call import ApiKey, Call, base64_mac

REASONS = {"key", "time", "sign", "passphrase", "permission", "missing", "invalid", "symbol",
           "quantity", "no_balance", "no_position", "same_leverage", "unknown_order", "cancel"}
WORDS = {"buy", "sell", "long", "short", "open", "filled", "cancelled", "funding", "trade",
         True, False}


class Exchange:
    # Who it is, what can be traded there, and what is so from the start.
    name = ""
    contracts: tuple = ()  # symbol, coin, the step of quantities, how many coins a unit is
    hedged = False  # whether long and short are held apart
    start_quantity = ""  # of the first contract: held, and ordered once more

    # Who is let in.
    credentials: dict[str, str] = {}  # the headers of key, passphrase, sign and time
    window_ms = (5000, 5000)  # how far behind its clock a request may be, and how far ahead
    demo_keys: dict[str, dict[str, Any]] = {}  # by what stands in the name, what is special

    # What it is asked, and how.
    routes: dict[str, str] = {}  # operations by method and pattern of the path
    names: dict[str, str] = {}  # of parameters, where it does not use our words
    signed_sizes = False  # whether a size below zero sells

    # How it agrees and refuses.
    ok = ("0", "")  # code and text of a success
    errors = ""  # a reason, or reason/about; HTTP status, code, and text with the about for {}

    # What its answers hold; see fields.py.
    words = {"buy": "buy", "sell": "sell"}  # for sides, states, kinds of entries, truths
    unit_ms = 1  # of times that are numbers
    balance_fields = coin_fields = ""  # of the account
    position_fields = leverage_fields = ""
    order_fields = done_fields = ""  # the latter once placed or cancelled, where that is less
    ledger_fields = ""  # of a funding in the log
    trade_fields = closing_fields = ""  # of a filled order: in the log, in the report of closings
    shapes: dict[str, Callable[[Any], Any]] = {}  # what becomes of the data of an operation
    reports_trades = False  # whether the report of closings has what opened a position, too

    def __init__(self, refusals: list[Refused]) -> None:
        """`refusals` gets why a request is not let in."""
        self._refusals = refusals
        passphrase = "demo-passphrase" if "passphrase" in self.credentials else ""
        self.keys = [ApiKey(f"demo-{name}-key", f"demo-{name}-secret", passphrase, **traits)
                     for name, traits in {self.name: {}, **self.demo_keys}.items()]
        self._errors = {row.split()[0]: row.split(None, 3)[1:]
                        for row in self.errors.strip().splitlines()}
        self._check_tables()
        self._ids = itertools.count(2_519_700_000_000_000_001)
        self.account = Account(self.contracts, self.new_order_id)
        for price in ("50000", "45000") if self.start_quantity else ():
            self.account.place(self.account.contract(self.contracts[0][0]), "buy",
                               Decimal(self.start_quantity), Decimal(price),
                               position_side="long" if self.hedged else "")

    def handle(self, request: Request) -> Response:
        try:
            data = self._carry_out(request, self._authenticate(request))
            return Response.of_json(self.envelope(*self.ok, data))
        except Refused as refused:
            if refused.reason in self.credentials:
                self._refusals.append(refused)
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
        possible = (f"{refused.reason}/{about}", refused.reason, "invalid")
        status, code, text = next(self._errors[one] for one in possible if one in self._errors)
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
            raise Refused("invalid", "leverage")
        if leverage == position.leverage and "same_leverage" in self._errors:
            raise Refused("same_leverage")
        position.leverage = leverage
        return self.fields(self.leverage_fields, position)

    def place(self, call: Call) -> Any:
        position, quantity = self.asked_position(call), call.number("quantity")
        side = {self.words[one]: one for one in ("buy", "sell")}.get(call.text("side", ""))
        if self.signed_sizes:
            side, quantity = ("buy" if quantity > 0 else "sell"), abs(quantity)
        if not side:
            raise Refused("invalid", "side")
        order = self.account.place(
            position.contract, side, quantity, call.number("price"),
            call.text("reduce_only", "") == "True", position.position_side)
        return self.fields(self.done_fields or self.order_fields, order)

    def funding(self, call: Call) -> Any:
        symbol, since = call.text("symbol"), self.moment_ms(call.text("since", "0"))
        return self.latest(call, [
            self.fields(self.ledger_fields, one) for one in self.account.ledger
            if one.kind == "funding" and one.contract.symbol == symbol and one.time_ms >= since])

    def closings(self, call: Call) -> Any:
        contract = self.account.contract(call.text("symbol"))
        return self.latest(call, [
            self.fields(self.closing_fields, one) for one in self.account.ledger
            if one.kind == "trade" and one.contract is contract
            and (one.closed or self.reports_trades)])

    def latest(self, call: Call, rows: list) -> list:
        """The latest first, and no more of them than it asks for."""
        return rows[::-1][:int(call.text("limit", "100"))]

    def fields(self, table: str, record: Any) -> dict[str, Any]:
        return fields.row(table, record, self.words, self.unit_ms)

    def asked_position(self, call: Call) -> Position:
        return self.account.position(self.account.contract(call.text("symbol")),
                                     call.text("position_side") if self.hedged else "")

    def new_order_id(self) -> str:
        return str(next(self._ids))

    def credential(self, request: Request, part: str) -> str:
        return request.header(self.credentials[part])

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

    def _check_tables(self) -> None:
        """The field tables are tried on records of an account where somebody traded."""
        self._refuse("reasons", {one.partition("/")[0] for one in self._errors} - REASONS)
        self._refuse("reasons without words", {"invalid", *self.credentials} - set(self._errors))
        settings = {name for name, value in vars(type(self)).items() if not callable(value)}
        self._refuse("settings", settings - set(dir(Exchange)))
        self._refuse("words", set(self.words) - WORDS)
        self._refuse("operations", {one for one in self.routes.values() if not hasattr(self, one)})
        account = Account(self.contracts, lambda: "1")
        contract = account.contract(self.contracts[0][0])
        order = account.place(contract, "buy", contract.step, contract.mark)
        position = account.position(contract)
        for name, record in {
                "balance": account, "coin": account, "position": position, "leverage": position,
                "order": order, "done": order, "trade": order, "closing": order,
                "ledger": account.ledger[0]}.items():
            try:
                self.fields(getattr(self, name + "_fields"), record)
            except (AttributeError, TypeError, ArithmeticError) as slip:
                raise ValueError(f"{self.name}: {name}_fields: {slip}") from None

    def _refuse(self, what: str, slips: set) -> None:
        if slips:
            raise ValueError(f"{self.name}: wrong {what}: {', '.join(map(str, slips))}")
