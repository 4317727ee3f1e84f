"""What an exchange books: contracts, orders, fills, positions, funding, closings."""

from __future__ import annotations

from dataclasses import dataclass
from decimal import Decimal


class Rejection(Exception):
    """Why an account refuses; each exchange has its own code for every reason.

    unknown_contract, bad_quantity, bad_price, bad_leverage, same_leverage,
    no_balance, no_position, same_direction, above_position, unknown_order, order_closed
    """

    def __init__(self, reason: str) -> None:
        super().__init__(reason)
        self.reason = reason


@dataclass(frozen=True)
class Contract:
    """A linear perpetual; quantities of it are whole multiples of `step`."""

    symbol: str
    coin: str
    step: Decimal
    coins_per_unit: Decimal = Decimal(1)


@dataclass
class Order:
    id: str
    contract: Contract
    buy: bool
    quantity: Decimal
    price: Decimal
    leverage: Decimal
    reduce_only: bool = False
    position_side: str = ""
    """long or short where both can be held at once, else empty."""
    state: str = "open"
    """open, filled or cancelled."""
    filled: Decimal = Decimal(0)
    average_price: Decimal = Decimal(0)
    fee: Decimal = Decimal(0)
    profit: Decimal = Decimal(0)
    created_ms: int = 0
    updated_ms: int = 0

    @property
    def left(self) -> Decimal:
        return self.quantity - self.filled

    @property
    def stage(self) -> str:
        """The state, but partial for an open order that is partly filled."""
        return "partial" if self.state == "open" and self.filled else self.state


@dataclass
class Fill:
    id: int
    order: Order
    quantity: Decimal
    price: Decimal
    fee: Decimal
    closed: Decimal
    """How much of it closed a position."""
    time_ms: int
    balance: Decimal
    """After its fee."""


@dataclass
class Position:
    """`quantity` is above zero for a long, below for a short."""

    id: int
    contract: Contract
    quantity: Decimal
    entry_price: Decimal
    leverage: Decimal
    opened_ms: int
    updated_ms: int
    largest: Decimal
    open_fee: Decimal = Decimal(0)
    profit: Decimal = Decimal(0)

    @property
    def side(self) -> str:
        return "long" if self.quantity > 0 else "short"

    @property
    def margin(self) -> Decimal:
        return self.value(self.entry_price) / self.leverage

    def value(self, price: Decimal) -> Decimal:
        return abs(self.quantity) * self.contract.coins_per_unit * price

    def unrealised(self, mark: Decimal) -> Decimal:
        return self.quantity * self.contract.coins_per_unit * (mark - self.entry_price)


@dataclass(frozen=True)
class Funding:
    id: int
    contract: Contract
    amount: Decimal
    balance: Decimal
    time_ms: int


@dataclass(frozen=True)
class Closing:
    """One reduction of a position, down to nothing when `whole`."""

    fill: Fill
    position_id: int
    side: str
    quantity: Decimal
    largest: Decimal
    entry_price: Decimal
    leverage: Decimal
    profit: Decimal
    open_fee: Decimal
    close_fee: Decimal
    opened_ms: int
    whole: bool
