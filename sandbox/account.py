"""One exchange's account: its money, orders and positions, and what was booked."""

import time
from collections.abc import Callable
from dataclasses import dataclass
from decimal import Decimal
from typing import Union

NOTHING = Decimal(0)
FEE_RATE = Decimal("0.0005")
MARKS = {"BTC": Decimal(50000), "ETH": Decimal(2500)}
FUNDING = (("BTC", 2880, "-0.9000"), ("BTC", 150, "-0.0375"), ("BTC", 90, "0.0410"),
           ("ETH", 45, "-0.0125"), ("BTC", 30, "-0.0625"))
"""Coin, age in minutes when the sandbox starts, and the amount booked; oldest first."""


class Refused(Exception):
    """A reason, and perhaps what it is about; each exchange has words of its own for it."""

    def __init__(self, reason: str, about: str = "") -> None:
        super().__init__(reason, about)
        self.reason, self.about = reason, about


@dataclass
class Contract:
    """A linear perpetual; quantities of it are whole multiples of `step`, each of `unit` coins."""

    symbol: str
    coin: str
    step: Decimal
    unit: Decimal
    mark: Decimal


@dataclass
class Order:
    """Once it is filled it is a booking, too."""

    id: str
    contract: Contract
    side: str  # buy or sell
    quantity: Decimal
    price: Decimal
    leverage: Decimal
    closes: bool  # and never opens
    position_side: str  # long or short where both can be held at once, else empty
    created_ms: int
    time_ms: int  # of its last change
    state: str = "open"  # or filled, cancelled
    filled: Decimal = NOTHING
    average: Decimal = NOTHING
    fee: Decimal = NOTHING
    closed: Decimal = NOTHING  # how much of a position it closed
    entry_price: Decimal = NOTHING  # of that position
    open_fee: Decimal = NOTHING  # what opening the closed part had cost
    profit: Decimal = NOTHING  # before fees
    fees: Decimal = NOTHING  # its own and that of opening
    realised: Decimal = NOTHING  # the profit less these fees
    change: Decimal = NOTHING  # of the wallet
    balance: Decimal = NOTHING  # the wallet after it
    kind = "trade"

    @property
    def signed(self) -> Decimal:
        return self.quantity if self.side == "buy" else -self.quantity

    @property
    def is_open(self) -> bool:
        return self.state == "open"

    @property
    def is_cancelled(self) -> bool:
        return self.state == "cancelled"

    @property
    def margin(self) -> Decimal:
        opened = NOTHING if self.closes else self.quantity
        return opened * self.contract.unit * self.price / self.leverage


@dataclass
class Funding:
    time_ms: int
    contract: Contract
    change: Decimal
    balance: Decimal = NOTHING  # the wallet after it
    kind = "funding"


@dataclass
class Position:
    """`quantity` is above zero for a long, below for a short, and zero when nothing is held."""

    contract: Contract
    position_side: str
    leverage: Decimal = Decimal(10)
    opened_ms: int = 0
    updated_ms: int = 0
    quantity: Decimal = NOTHING
    entry_price: Decimal = NOTHING
    realised: Decimal = NOTHING  # what closing some of it brought, less all fees for it
    open_fee: Decimal = NOTHING  # what opening the part still held has cost

    @property
    def size(self) -> Decimal:
        return abs(self.quantity)

    @property
    def side(self) -> str:
        one_way = "long" if self.quantity > 0 else "short" if self.quantity else ""
        return self.position_side or one_way

    @property
    def entry_value(self) -> Decimal:
        return self.size * self.contract.unit * self.entry_price

    @property
    def value(self) -> Decimal:
        return self.size * self.contract.unit * self.contract.mark

    @property
    def margin(self) -> Decimal:
        return self.entry_value / self.leverage

    @property
    def unrealised(self) -> Decimal:
        return self.quantity * self.contract.unit * (self.contract.mark - self.entry_price)

    def take(self, order: Order) -> None:
        """What a filled order makes of it. The fee of one that turns it is all for closing."""
        turned = order.quantity > order.closed > 0
        if turned or not self.quantity:
            self.opened_ms, self.realised = order.time_ms, NOTHING
        opened, before = order.quantity - order.closed, self.size - order.closed
        self.quantity += order.signed
        if opened:
            self.entry_price = (self.entry_price * before + order.average * opened) / self.size
        self.open_fee += -order.open_fee if order.closed else order.fee
        self.realised += NOTHING if turned else order.change
        self.updated_ms = order.time_ms


class Account:
    """Keyed by the exchange's own symbols."""

    def __init__(self, contracts: tuple, new_order_id: Callable[[], str]) -> None:
        self.contracts = {symbol: Contract(symbol, coin, Decimal(step), Decimal(unit), MARKS[coin])
                          for symbol, coin, step, unit in contracts}
        self._new_order_id = new_order_id
        self.orders: dict[str, Order] = {}
        self.positions: dict[tuple[str, str], Position] = {}  # of nothing, too
        self.ledger: list[Union[Order, Funding]] = []
        self._start = self.balance = 10_000 - sum(Decimal(row[2]) for row in FUNDING)
        by_coin = {contract.coin: contract for contract in self.contracts.values()}
        for coin, minutes, amount in FUNDING:
            self._book(Funding(now_ms() - minutes * 60_000, by_coin[coin], Decimal(amount)))

    def contract(self, symbol: str) -> Contract:
        if symbol not in self.contracts:
            raise Refused("symbol")
        return self.contracts[symbol]

    def position(self, contract: Contract, side: str = "") -> Position:
        return self.positions.setdefault((contract.symbol, side), Position(contract, side))

    @property
    def held(self) -> list[Position]:
        return [one for one in self.positions.values() if one.quantity]

    @property
    def open_orders(self) -> list[Order]:
        return [order for order in self.orders.values() if order.is_open]

    @property
    def position_margin(self) -> Decimal:
        return sum((position.margin for position in self.held), NOTHING)

    @property
    def order_margin(self) -> Decimal:
        return sum((order.margin for order in self.open_orders), NOTHING)

    @property
    def margin(self) -> Decimal:
        return self.position_margin + self.order_margin

    @property
    def available(self) -> Decimal:
        return self.balance - self.margin

    @property
    def realised(self) -> Decimal:
        return self.balance - self._start

    @property
    def unrealised(self) -> Decimal:
        return sum((position.unrealised for position in self.held), NOTHING)

    @property
    def equity(self) -> Decimal:
        return self.balance + self.unrealised

    def place(self, contract: Contract, side: str, quantity: Decimal, price: Decimal,
              reduce_only: bool = False, position_side: str = "") -> Order:
        """A limit order; fills at once, at the mark price, when its own price crosses that."""
        if quantity <= 0 or quantity % contract.step:
            raise Refused("quantity")
        if price <= 0:
            raise Refused("invalid", "price")
        closes = reduce_only or (side, position_side) in (("buy", "short"), ("sell", "long"))
        leverage = self.position(contract, position_side).leverage
        order = Order(self._new_order_id(), contract, side, quantity, price, leverage, closes,
                      position_side, now_ms(), now_ms())
        if closes and not self._closed_by(order):
            raise Refused("no_position")
        if order.margin > self.available:
            raise Refused("no_balance")
        self.orders[order.id] = order
        self._match(order)
        return order

    def cancel(self, order: Order) -> None:
        if not order.is_open:
            raise Refused("cancel")
        order.state, order.time_ms = "cancelled", now_ms()

    def set_mark(self, coin: str, price: Decimal) -> None:
        """Fills the orders that it crosses."""
        for contract in self.contracts.values():
            contract.mark = price if contract.coin == coin else contract.mark
        for order in self.open_orders:
            self._match(order)

    def _match(self, order: Order) -> None:
        mark = order.contract.mark
        if order.price >= mark if order.side == "buy" else order.price <= mark:
            self.fill(order, mark)

    def _closed_by(self, order: Order) -> Decimal:
        held = self.position(order.contract, order.position_side)
        closes = held.quantity < 0 if order.side == "buy" else held.quantity > 0
        return min(order.quantity, held.size) if closes else NOTHING

    def fill(self, order: Order, price: Decimal) -> None:
        """Somebody takes it, whole. One that only closes goes no further than its position."""
        closed = self._closed_by(order)
        if order.closes and not closed:
            self.cancel(order)
            return
        order.quantity = closed if order.closes else order.quantity
        order.state, order.time_ms = "filled", now_ms()
        order.filled, order.average, order.closed = order.quantity, price, closed
        order.fee = _money(order.quantity * order.contract.unit * price * FEE_RATE)
        held = self.position(order.contract, order.position_side)
        if closed:
            share = closed / held.size
            gained = (price - held.entry_price) * order.contract.unit * held.quantity * share
            order.profit, order.entry_price = _money(gained), held.entry_price
            order.open_fee = _money(held.open_fee * share)
        order.fees, order.change = order.open_fee + order.fee, order.profit - order.fee
        order.realised = order.profit - order.fees
        self._book(order)
        held.take(order)

    def _book(self, entry: Union[Order, Funding]) -> None:
        self.balance += entry.change
        entry.balance = self.balance
        self.ledger.append(entry)


def now_ms() -> int:
    return time.time_ns() // 1_000_000


def _money(amount: Decimal) -> Decimal:
    """To the last place that answers show, so that what they show adds up."""
    return amount.quantize(Decimal("1e-8"))
