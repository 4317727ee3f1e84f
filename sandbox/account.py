"""One exchange's account: balance, leverage, orders, positions, funding, closed profit."""

from __future__ import annotations

import itertools
from dataclasses import dataclass, field
from decimal import Decimal
from typing import Callable, Dict, List, Mapping, Optional, Tuple

from .clock import Clock
from .records import Closing, Contract, Fill, Funding, Order, Position, Rejection

MARKS: Dict[str, Decimal] = {"BTC": Decimal(50000), "ETH": Decimal(2500), "SOL": Decimal(100)}

START_BALANCE = Decimal(10000)
START_LEVERAGE = Decimal(10)
MAX_LEVERAGE = Decimal(100)
FEE_RATE = Decimal("0.0005")

MINUTE_MS = 60_000
FUNDING = (("BTC", 30, "-0.0625"), ("BTC", 90, "0.0410"), ("BTC", 150, "-0.0375"),
           ("ETH", 45, "-0.0125"), ("BTC", 2880, "-0.9000"))
"""Coin, age in minutes when the sandbox starts, and the amount booked."""


PositionKey = Tuple[str, str]


@dataclass
class Account:
    """Keyed by the exchange's own contract symbols; `hedged` holds long and short apart."""

    contracts: Mapping[str, Contract]
    clock: Clock
    marks: Mapping[str, Decimal]
    new_order_id: Callable[[], str]
    hedged: bool = False
    balance: Decimal = START_BALANCE
    leverages: Dict[PositionKey, Decimal] = field(default_factory=dict)
    orders: Dict[str, Order] = field(default_factory=dict)
    positions: Dict[PositionKey, Position] = field(default_factory=dict)
    fills: List[Fill] = field(default_factory=list)
    closings: List[Closing] = field(default_factory=list)
    funding: List[Funding] = field(default_factory=list)

    def __post_init__(self) -> None:
        self._ids = itertools.count(700_000_001)
        now = self.clock.now_ms()
        by_coin = {contract.coin: contract for contract in self.contracts.values()}
        self.funding = [
            Funding(next(self._ids), by_coin[coin], Decimal(amount), self.balance,
                    now - age * MINUTE_MS) for coin, age, amount in FUNDING]

    def contract(self, symbol: str) -> Contract:
        if symbol not in self.contracts:
            raise Rejection("unknown_contract")
        return self.contracts[symbol]

    def mark(self, contract: Contract) -> Decimal:
        return self.marks[contract.coin]

    def leverage(self, symbol: str, side: str = "") -> Decimal:
        return self.leverages.get((symbol, side), START_LEVERAGE)

    def set_leverage(self, symbol: str, leverage: Optional[Decimal], side: str = "") -> None:
        self.contract(symbol)
        if leverage is None or not 1 <= leverage <= MAX_LEVERAGE:
            raise Rejection("bad_leverage")
        if self.leverage(symbol, side) == leverage:
            raise Rejection("same_leverage")
        self.leverages[symbol, side] = leverage
        if (symbol, side) in self.positions:
            self.positions[symbol, side].leverage = leverage

    @property
    def position_margin(self) -> Decimal:
        return sum((held.margin for held in self.positions.values()), Decimal(0))

    @property
    def order_margin(self) -> Decimal:
        return sum((self._order_margin(order) for order in self.orders.values()
                    if order.state == "open" and not self._closes(order)), Decimal(0))

    @property
    def available(self) -> Decimal:
        return self.balance - self.position_margin - self.order_margin

    @property
    def unrealised(self) -> Decimal:
        return sum((held.unrealised(self.mark(held.contract))
                    for held in self.positions.values()), Decimal(0))

    @property
    def equity(self) -> Decimal:
        return self.balance + self.unrealised

    def position(self, symbol: str, side: str = "") -> Optional[Position]:
        return self.positions.get((symbol, side))

    def open_orders(self, symbol: str = "") -> List[Order]:
        return [order for order in self.orders.values()
                if order.state == "open" and symbol in ("", order.contract.symbol)]

    def place(self, symbol: str, buy: bool, quantity: Optional[Decimal],
              price: Optional[Decimal], reduce_only: bool = False,
              position_side: str = "", order_id: str = "") -> Order:
        """A limit order; None stands for a number that nobody could read.

        It fills at once, at the mark price, when its own price crosses that.
        """
        contract = self.contract(symbol)
        if quantity is None or not quantity > 0 or quantity % contract.step:
            raise Rejection("bad_quantity")
        if price is None or not price > 0:
            raise Rejection("bad_price")
        now = self.clock.now_ms()
        order = Order(order_id or self.new_order_id(), contract, buy, quantity, price,
                      self.leverage(symbol, position_side), reduce_only, position_side,
                      created_ms=now, updated_ms=now)
        if self._closes(order):
            self._check_reduction(order)
        elif self._order_margin(order) > self.available:
            raise Rejection("no_balance")
        self.orders[order.id] = order
        self._match(order)
        return order

    def order(self, order_id: str) -> Order:
        if order_id not in self.orders:
            raise Rejection("unknown_order")
        return self.orders[order_id]

    def cancel(self, order_id: str) -> Order:
        order = self.order(order_id)
        if order.state != "open":
            raise Rejection("order_closed")
        order.state, order.updated_ms = "cancelled", self.clock.now_ms()
        return order

    def fill(self, order_id: str, quantity: Optional[Decimal] = None) -> Order:
        """Fills an open order, or so much of it, at the order's own price."""
        order = self.order(order_id)
        if order.state != "open":
            raise Rejection("order_closed")
        self._fill(order, order.left if quantity is None else min(quantity, order.left),
                   order.price)
        return order

    def match(self) -> None:
        for order in self.open_orders():
            self._match(order)

    def _closes(self, order: Order) -> bool:
        return order.reduce_only or (order.position_side == "long" and not order.buy) \
            or (order.position_side == "short" and order.buy)

    def _check_reduction(self, order: Order) -> None:
        held = self.position(order.contract.symbol, order.position_side)
        if held is None:
            raise Rejection("no_position")
        if (held.quantity > 0) == order.buy:
            raise Rejection("same_direction")
        if order.quantity > abs(held.quantity):
            if self.hedged:
                raise Rejection("above_position")
            order.quantity = abs(held.quantity)

    def _order_margin(self, order: Order) -> Decimal:
        held = self.position(order.contract.symbol, order.position_side)
        against = held is not None and (held.quantity > 0) != order.buy
        opening = max(order.left - abs(held.quantity), Decimal(0)) if against else order.left
        return opening * order.contract.coins_per_unit * order.price / order.leverage

    def _match(self, order: Order) -> None:
        mark = self.mark(order.contract)
        if order.price >= mark if order.buy else order.price <= mark:
            self._fill(order, order.left, mark)

    def _fill(self, order: Order, quantity: Decimal, price: Decimal) -> None:
        held = self.position(order.contract.symbol, order.position_side)
        against = held is not None and (held.quantity > 0) != order.buy
        closed = min(quantity, abs(held.quantity)) if against else Decimal(0)
        if self._closes(order):
            quantity = closed
        if not quantity:
            self.cancel(order.id)
            return
        fill = self._book(order, quantity, price, closed)
        if closed:
            self._reduce(held, fill)
        if quantity > closed:
            self._extend(fill)
        elif self._closes(order) and order.left and held.quantity == 0:
            self.cancel(order.id)

    def _book(self, order: Order, quantity: Decimal, price: Decimal, closed: Decimal) -> Fill:
        fee = quantity * order.contract.coins_per_unit * price * FEE_RATE
        self.balance -= fee
        fill = Fill(next(self._ids), order, quantity, price, fee, closed,
                    self.clock.now_ms(), self.balance)
        paid = order.average_price * order.filled + price * quantity
        order.filled += quantity
        order.average_price = paid / order.filled
        order.fee += fee
        order.updated_ms = fill.time_ms
        if not order.left:
            order.state = "filled"
        self.fills.append(fill)
        return fill

    def _reduce(self, held: Position, fill: Fill) -> None:
        quantity = fill.closed if held.quantity > 0 else -fill.closed
        share = fill.closed / abs(held.quantity)
        profit = quantity * held.contract.coins_per_unit * (fill.price - held.entry_price)
        self.closings.append(Closing(
            fill, held.id, held.side, fill.closed, held.largest, held.entry_price,
            held.leverage, profit, held.open_fee * share,
            fill.fee * fill.closed / fill.quantity, held.opened_ms, share == 1))
        held.open_fee -= held.open_fee * share
        held.quantity -= quantity
        held.profit += profit
        held.updated_ms = fill.time_ms
        fill.order.profit += profit
        self.balance += profit
        if not held.quantity:
            del self.positions[held.contract.symbol, fill.order.position_side]

    def _extend(self, fill: Fill) -> None:
        order, quantity = fill.order, fill.quantity - fill.closed
        key = (order.contract.symbol, order.position_side)
        held = self.positions.get(key)
        if held is None:
            held = self.positions[key] = Position(
                next(self._ids), order.contract, Decimal(0), Decimal(0),
                self.leverage(*key), fill.time_ms, fill.time_ms, Decimal(0))
        size = abs(held.quantity) + quantity
        held.entry_price = (held.entry_price * abs(held.quantity) + fill.price * quantity) / size
        held.quantity = size if order.buy else -size
        held.open_fee += fill.fee * quantity / fill.quantity
        held.largest = max(held.largest, size)
        held.updated_ms = fill.time_ms
