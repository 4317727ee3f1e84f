"""What an exchange books: contracts, orders, positions and the entries of its ledger."""

from dataclasses import dataclass
from decimal import Decimal
from typing import Optional

NOTHING = Decimal(0)


class Refused(Exception):
    """Why the answer is no. Every exchange has a code and a text of its own for each reason."""

    def __init__(self, reason: str, detail: str = "") -> None:
        super().__init__(reason, detail)
        self.reason, self.detail = reason, detail


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
    id: str
    contract: Contract
    buy: bool
    quantity: Decimal
    price: Decimal
    leverage: Decimal
    reduce_only: bool
    position_side: str  # long or short where both can be held at once, else empty
    created_ms: int
    updated_ms: int
    state: str = "open"  # or filled, cancelled
    filled: Decimal = NOTHING
    average: Decimal = NOTHING
    fee: Decimal = NOTHING
    profit: Decimal = NOTHING

    @property
    def side(self) -> str:
        return "buy" if self.buy else "sell"

    @property
    def signed(self) -> Decimal:
        """Below zero when it sells."""
        return self.quantity if self.buy else -self.quantity

    @property
    def active(self) -> bool:
        return self.state == "open"

    @property
    def signed_left(self) -> Decimal:
        return NOTHING if self.filled else self.signed

    @property
    def closes(self) -> bool:
        return self.reduce_only or self.position_side == ("short" if self.buy else "long")


@dataclass
class Position:
    """`quantity` is above zero for a long, below for a short, and zero when nothing is held."""

    contract: Contract
    key: tuple[str, str]
    leverage: Decimal
    id: int = 0
    side: str = ""
    opened_ms: int = 0
    updated_ms: int = 0
    quantity: Decimal = NOTHING
    largest: Decimal = NOTHING
    entry_price: Decimal = NOTHING
    closed: Decimal = NOTHING
    exit_price: Decimal = NOTHING
    profit: Decimal = NOTHING
    fees: Decimal = NOTHING  # all that was paid for it so far
    open_fee: Decimal = NOTHING  # what opening the part still held has cost

    @property
    def size(self) -> Decimal:
        return abs(self.quantity)

    @property
    def margin(self) -> Decimal:
        return self.size * self.contract.unit * self.entry_price / self.leverage

    @property
    def unrealised(self) -> Decimal:
        return self.quantity * self.contract.unit * (self.contract.mark - self.entry_price)

    @property
    def realised(self) -> Decimal:
        return self.profit - self.fees


@dataclass
class Entry:
    """One booking: funding, or the fill of an order. `balance` is the wallet after it."""

    id: int
    time_ms: int
    contract: Contract
    balance: Decimal
    funding: Decimal = NOTHING
    profit: Decimal = NOTHING
    fee: Decimal = NOTHING
    order: Optional[Order] = None
    closed: Decimal = NOTHING  # how much of the order closed `position`
    position: Optional[Position] = None
    entry_price: Decimal = NOTHING
    open_fee: Decimal = NOTHING  # the closed part's share of what opening it cost
    close_fee: Decimal = NOTHING

    @property
    def kind(self) -> str:
        return "trade" if self.order else "funding"

    @property
    def gain(self) -> Decimal:
        return self.funding + self.profit

    @property
    def change(self) -> Decimal:
        return self.gain - self.fee

    @property
    def realised(self) -> Decimal:
        return self.profit - self.open_fee - self.close_fee
