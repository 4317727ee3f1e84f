"""The shapes of Gate's answers."""

from __future__ import annotations

from decimal import Decimal
from typing import Any, Dict

from ..account import Account
from ..records import Contract, Fill, Funding, Order
from .exchange import plain

Document = Dict[str, Any]

USER = 10000001


def account(held: Account) -> Document:
    profit = sum((closing.profit for closing in held.closings), Decimal(0))
    fees = sum((fill.fee for fill in held.fills), Decimal(0))
    return {
        "total": plain(held.balance), "unrealised_pnl": plain(held.unrealised),
        "position_margin": plain(held.position_margin),
        "order_margin": plain(held.order_margin), "available": plain(held.available),
        "point": "0", "currency": "USDT", "in_dual_mode": False, "enable_credit": False,
        "position_initial_margin": plain(held.position_margin), "maintenance_margin": "0",
        "bonus": "0", "enable_evolved_classic": False,
        "history": {"dnw": "10000", "pnl": plain(profit), "fee": plain(-fees), "refr": "0",
                    "fund": "0", "point_dnw": "0", "point_fee": "0", "point_refr": "0",
                    "bonus_dnw": "0", "bonus_offset": "0"},
        "user": USER}


def position(held_by: Account, contract: Contract) -> Document:
    mark = held_by.mark(contract)
    row: Document = {
        "user": USER, "contract": contract.symbol, "size": 0,
        "leverage": plain(held_by.leverage(contract.symbol)), "risk_limit": "1000000",
        "leverage_max": "100", "maintenance_rate": "0.005", "value": "0", "margin": "0",
        "entry_price": "0", "liq_price": "0", "mark_price": plain(mark),
        "unrealised_pnl": "0", "realised_pnl": "0", "pnl_pnl": "0", "pnl_fund": "0",
        "pnl_fee": "0", "history_pnl": "0", "last_close_pnl": "0", "realised_point": "0",
        "history_point": "0", "adl_ranking": 5,
        "pending_orders": len(held_by.open_orders(contract.symbol)), "close_order": None,
        "mode": "single", "update_time": 0, "open_time": 0, "update_id": 1,
        "cross_leverage_limit": "0"}
    held = held_by.position(contract.symbol)
    if held:
        row.update({
            "size": int(held.quantity), "value": plain(held.value(mark)),
            "margin": plain(held.margin), "entry_price": plain(held.entry_price),
            "unrealised_pnl": plain(held.unrealised(mark)),
            "realised_pnl": plain(held.profit - held.open_fee),
            "pnl_pnl": plain(held.profit), "pnl_fee": plain(-held.open_fee),
            "update_time": held.updated_ms // 1000, "open_time": held.opened_ms // 1000})
    return row


def order(placed: Order) -> Document:
    sign = 1 if placed.buy else -1
    document: Document = {
        "id": int(placed.id), "user": USER, "contract": placed.contract.symbol,
        "create_time": placed.created_ms / 1000, "size": sign * int(placed.quantity),
        "iceberg": 0, "left": sign * int(placed.left), "price": plain(placed.price),
        "fill_price": plain(placed.average_price), "mkfr": "-0.00005", "tkfr": "0.0005",
        "tif": "gtc", "refu": 0, "is_reduce_only": placed.reduce_only, "is_close": False,
        "is_liq": False, "text": "api", "stp_act": "-", "stp_id": 0, "amend_text": "-",
        "biz_info": "-", "status": "open" if placed.state == "open" else "finished"}
    if placed.state != "open":
        document.update({"finish_time": placed.updated_ms / 1000,
                         "finish_as": placed.state})
    return document


def funding(entry: Funding) -> Document:
    return _book_row(entry.id, entry.time_ms, entry.amount, entry.balance, "fund",
                     entry.contract)


def fee(fill: Fill) -> Document:
    return _book_row(fill.id, fill.time_ms, -fill.fee, fill.balance, "fee",
                     fill.order.contract)


def _book_row(entry_id: int, time_ms: int, change: Decimal, balance: Decimal, kind: str,
              contract: Contract) -> Document:
    return {"time": time_ms / 1000, "change": plain(change), "balance": plain(balance),
            "text": contract.symbol, "type": kind, "contract": contract.symbol,
            "trade_id": "", "id": str(entry_id)}


def trade(fill: Fill) -> Document:
    sign = 1 if fill.order.buy else -1
    return {"id": fill.id, "create_time": fill.time_ms / 1000,
            "contract": fill.order.contract.symbol, "order_id": fill.order.id,
            "size": sign * int(fill.quantity), "price": plain(fill.price), "text": "api",
            "fee": plain(fill.fee), "point_fee": "0", "role": "taker",
            "close_size": sign * int(fill.closed)}
