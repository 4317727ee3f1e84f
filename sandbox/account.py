"""One exchange's account: its money, leverage, orders and positions, and what was booked."""

import itertools
from collections.abc import Callable
from decimal import Decimal

from .records import NOTHING, Contract, Entry, Order, Position, Refused

START_WALLET = Decimal(10000)
START_LEVERAGE = Decimal(10)
MAX_LEVERAGE = Decimal(100)
FEE_RATE = Decimal("0.0005")
MARKS = {"BTC": Decimal(50000), "ETH": Decimal(2500)}
FUNDING = (("BTC", 2880, "-0.9000"), ("BTC", 150, "-0.0375"), ("BTC", 90, "0.0410"),
           ("ETH", 45, "-0.0125"), ("BTC", 30, "-0.0625"))
"""Coin, age in minutes when the sandbox starts, and the amount booked; oldest first."""


class Account:
    """Keyed by the exchange's own symbols; `hedged` holds long and short of one apart."""

    def __init__(self, contracts: tuple[tuple[str, ...], ...], now_ms: Callable[[], int],
                 new_order_id: Callable[[], str], hedged: bool) -> None:
        self.contracts = {symbol: Contract(symbol, coin, Decimal(step), Decimal(unit), MARKS[coin])
                          for symbol, coin, step, unit in contracts}
        self.hedged, self._now_ms, self._new_order_id = hedged, now_ms, new_order_id
        self._ids = itertools.count(700_000_001)
        self.leverages: dict[tuple[str, str], Decimal] = {}
        self.orders: dict[str, Order] = {}
        self.positions: dict[tuple[str, str], Position] = {}
        self.ledger: list[Entry] = []
        self.start = self.balance = START_WALLET - sum(Decimal(row[2]) for row in FUNDING)
        by_coin = {contract.coin: contract for contract in self.contracts.values()}
        for coin, minutes, amount in FUNDING:
            self._book(by_coin[coin], now_ms() - minutes * 60_000, funding=Decimal(amount))

    def contract(self, symbol: str) -> Contract:
        if symbol not in self.contracts:
            raise Refused("symbol")
        return self.contracts[symbol]

    def leverage(self, symbol: str, side: str = "") -> Decimal:
        return self.leverages.get((symbol, side), START_LEVERAGE)

    def set_leverage(self, symbol: str, leverage: Decimal, side: str = "") -> None:
        if not 1 <= leverage <= MAX_LEVERAGE:
            raise Refused("leverage")
        self.leverages[symbol, side] = leverage
        self.position(self.contracts[symbol], side).leverage = leverage

    def position(self, contract: Contract, side: str = "") -> Position:
        """What is held, or a position of nothing."""
        key = (contract.symbol, side)
        return self.positions.get(key) or Position(contract, key, self.leverage(*key))

    @property
    def position_margin(self) -> Decimal:
        return sum((held.margin for held in self.positions.values()), NOTHING)

    @property
    def order_margin(self) -> Decimal:
        return sum((self._margin(order) for order in self.open_orders()), NOTHING)

    @property
    def available(self) -> Decimal:
        return self.balance - self.position_margin - self.order_margin

    @property
    def unrealised(self) -> Decimal:
        return sum((held.unrealised for held in self.positions.values()), NOTHING)

    @property
    def equity(self) -> Decimal:
        return self.balance + self.unrealised

    def open_orders(self) -> list[Order]:
        return [order for order in self.orders.values() if order.state == "open"]

    def place(self, contract: Contract, buy: bool, quantity: Decimal, price: Decimal,
              reduce_only: bool = False, side: str = "") -> Order:
        """A limit order; fills at once, at the mark price, when its own price crosses that."""
        if quantity <= 0 or quantity % contract.step:
            raise Refused("quantity")
        if price <= 0:
            raise Refused("price")
        now = self._now_ms()
        order = Order(self._new_order_id(), contract, buy, quantity, price,
                      self.leverage(contract.symbol, side), reduce_only, side, now, now)
        if order.closes:
            closed = self._closed_by(order)
            if not closed:
                raise Refused("no_position")
            if closed < quantity and self.hedged:
                raise Refused("above_position")
            order.quantity = closed
        elif self._margin(order) > self.available:
            raise Refused("no_balance")
        self.orders[order.id] = order
        self._match(order)
        return order

    def order(self, order_id: str) -> Order:
        if order_id not in self.orders:
            raise Refused("unknown_order")
        return self.orders[order_id]

    def cancel(self, order: Order) -> None:
        if order.state != "open":
            raise Refused("order_closed")
        order.state, order.updated_ms = "cancelled", self._now_ms()

    def fill(self, order_id: str) -> Order:
        """Somebody takes an open order, at its own price."""
        order = self.order(order_id)
        if order.state != "open":
            raise Refused("order_closed")
        self._fill(order, order.price)
        return order

    def set_mark(self, coin: str, price: Decimal) -> None:
        """Fills the orders that it crosses."""
        for contract in self.contracts.values():
            contract.mark = price if contract.coin == coin else contract.mark
        for order in self.open_orders():
            self._match(order)

    def _match(self, order: Order) -> None:
        mark = order.contract.mark
        if order.price >= mark if order.buy else order.price <= mark:
            self._fill(order, mark)

    def _closed_by(self, order: Order) -> Decimal:
        held = self.position(order.contract, order.position_side)
        return NOTHING if (held.quantity > 0) == order.buy else min(order.quantity, held.size)

    def _margin(self, order: Order) -> Decimal:
        opened = NOTHING if order.closes else order.quantity - self._closed_by(order)
        return opened * order.contract.unit * order.price / order.leverage

    def _fill(self, order: Order, price: Decimal) -> None:
        closed = self._closed_by(order)
        if order.closes and not closed:
            self.cancel(order)
            return
        order.quantity = closed if order.closes else order.quantity
        held = self.position(order.contract, order.position_side)
        unit = order.contract.unit
        fee = _money(order.quantity * unit * price * FEE_RATE)
        signed = -closed if order.buy else closed
        order.state, order.updated_ms = "filled", self._now_ms()
        order.filled, order.average, order.fee = order.quantity, price, fee
        order.profit = _money(signed * unit * (price - held.entry_price))
        entry = self._book(order.contract, order.updated_ms, profit=order.profit, fee=fee,
                           order=order, closed=closed)
        if closed:
            self._reduce(held, entry, signed)
        if order.quantity > closed:
            self._extend(entry, order.quantity - closed, fee - entry.close_fee)

    def _book(self, contract: Contract, time_ms: int, **booked) -> Entry:
        entry = Entry(next(self._ids), time_ms, contract, NOTHING, **booked)
        self.balance += entry.change
        entry.balance = self.balance
        self.ledger.append(entry)
        return entry

    def _reduce(self, held: Position, entry: Entry, signed: Decimal) -> None:
        order = entry.order
        entry.position, entry.entry_price = held, held.entry_price
        entry.open_fee = _money(held.open_fee * signed / held.quantity)
        entry.close_fee = _money(entry.fee * entry.closed / order.quantity)
        paid = held.exit_price * held.closed + order.average * entry.closed
        held.closed += entry.closed
        held.exit_price = paid / held.closed
        held.quantity -= signed
        held.profit += entry.profit
        held.fees += entry.close_fee
        held.open_fee -= entry.open_fee
        held.updated_ms = entry.time_ms
        if not held.quantity:
            del self.positions[held.key]

    def _extend(self, entry: Entry, quantity: Decimal, fee: Decimal) -> None:
        order = entry.order
        held = self.position(order.contract, order.position_side)
        if not held.quantity:
            held.id, held.opened_ms = next(self._ids), entry.time_ms
            held.side = "long" if order.buy else "short"
            self.positions[held.key] = held
        size = held.size + quantity
        held.entry_price = (held.entry_price * held.size + order.average * quantity) / size
        held.quantity = size if order.buy else -size
        held.largest = max(held.largest, size)
        held.fees += fee
        held.open_fee += fee
        held.updated_ms = entry.time_ms


def _money(amount: Decimal) -> Decimal:
    """To the last place that answers show, so that what they show adds up."""
    return amount.quantize(Decimal("1e-8"))
