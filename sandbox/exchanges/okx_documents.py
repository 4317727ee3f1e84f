"""The shapes of OKX's answers."""

from __future__ import annotations

from decimal import Decimal
from typing import Any, Dict

from ..account import Account
from ..keys import ApiKey
from ..records import Closing, Fill, Funding, Order, Position
from .exchange import plain

Document = Dict[str, Any]

STATES = {"open": "live", "partial": "partially_filled", "filled": "filled",
          "cancelled": "canceled"}
FUNDING_BILL, TRADE_BILL = "8", "2"
FUNDING_PAID, FUNDING_RECEIVED = "173", "174"


def configuration(key: ApiKey) -> Document:
    return {
        "acctLv": "2", "acctStpMode": "cancel_maker", "autoLoan": False, "ctIsoMode": "automatic",
        "enableSpotBorrow": False, "greeksType": "PA", "ip": "", "kycLv": "3",
        "label": "sandbox", "level": "Lv1", "levelTmp": "", "liquidationGear": "-1",
        "mainUid": "100000001", "mgnIsoMode": "automatic", "opAuth": "0",
        "perm": "read_only,trade" if key.can_trade else "read_only",
        "posMode": "long_short_mode", "roleType": "0", "spotBorrowAutoRepay": False,
        "spotOffsetType": "", "spotRoleType": "0", "spotTraderInsts": [], "traderInsts": [],
        "type": "0", "uid": "100000001"}


def balance(account: Account, with_usdt: bool, now_ms: int) -> Document:
    equity, margin = plain(account.equity), plain(account.position_margin)
    detail = {
        "accAvgPx": "", "availBal": plain(account.available),
        "availEq": plain(account.available), "cashBal": plain(account.balance), "ccy": "USDT",
        "crossLiab": "", "disEq": equity, "eq": equity, "eqUsd": equity,
        "fixedBal": "0", "frozenBal": plain(account.position_margin + account.order_margin),
        "imr": "0", "interest": "", "isoEq": margin, "isoLiab": "",
        "isoUpl": plain(account.unrealised), "liab": "", "maxLoan": "", "mgnRatio": "",
        "mmr": "0", "notionalLever": "0", "ordFrozen": plain(account.order_margin),
        "spotInUseAmt": "", "stgyEq": "0", "twap": "0", "uTime": str(now_ms),
        "upl": plain(account.unrealised), "uplLiab": ""}
    return {
        "adjEq": "", "availEq": "", "borrowFroz": "", "details": [detail] if with_usdt else [],
        "imr": "", "isoEq": margin, "mgnRatio": "", "mmr": "", "notionalUsd": "",
        "ordFroz": "", "totalEq": equity, "uTime": str(now_ms), "upl": ""}


def position(held: Position, mark: Decimal) -> Document:
    profit = held.unrealised(mark)
    return {
        "adl": "1", "availPos": plain(abs(held.quantity)), "avgPx": plain(held.entry_price),
        "cTime": str(held.opened_ms), "ccy": "USDT", "closeOrderAlgo": [],
        "fee": plain(-held.open_fee), "fundingFee": "0", "imr": "",
        "instId": held.contract.symbol, "instType": "SWAP", "interest": "", "last": plain(mark),
        "lever": plain(held.leverage), "liab": "", "liabCcy": "", "liqPenalty": "0",
        "liqPx": "", "margin": plain(held.margin), "markPx": plain(mark), "mgnMode": "isolated",
        "mgnRatio": "", "mmr": "0", "notionalUsd": plain(held.value(mark)), "optVal": "",
        "pnl": plain(held.profit), "pos": plain(abs(held.quantity)), "posCcy": "",
        "posId": str(held.id), "posSide": held.side,
        "realizedPnl": plain(held.profit - held.open_fee), "tradeId": "",
        "uTime": str(held.updated_ms), "upl": plain(profit),
        "uplRatio": plain(profit / held.margin)}


def order(placed: Order) -> Document:
    cancelled = placed.state == "cancelled"
    average = plain(placed.average_price) if placed.filled else ""
    return {
        "accFillSz": plain(placed.filled), "algoClOrdId": "", "algoId": "",
        "attachAlgoOrds": [], "avgPx": average, "cTime": str(placed.created_ms),
        "cancelSource": "1" if cancelled else "",
        "cancelSourceReason": "Order canceled by user" if cancelled else "",
        "category": "normal", "ccy": "", "clOrdId": "", "fee": plain(-placed.fee),
        "feeCcy": "USDT", "fillPx": average, "fillSz": plain(placed.filled),
        "fillTime": str(placed.updated_ms) if placed.filled else "",
        "instId": placed.contract.symbol, "instType": "SWAP", "isTpLimit": "false",
        "lever": plain(placed.leverage), "ordId": placed.id, "ordType": "limit",
        "pnl": plain(placed.profit), "posSide": placed.position_side,
        "px": plain(placed.price), "pxType": "", "pxUsd": "", "pxVol": "", "quickMgnType": "",
        "rebate": "0", "rebateCcy": "USDT", "reduceOnly": "false",
        "side": "buy" if placed.buy else "sell", "slOrdPx": "", "slTriggerPx": "",
        "slTriggerPxType": "", "source": "",
        "state": STATES[placed.stage], "stpId": "", "stpMode": "",
        "sz": plain(placed.quantity), "tag": "", "tdMode": "isolated", "tgtCcy": "",
        "tpOrdPx": "", "tpTriggerPx": "", "tpTriggerPxType": "",
        "tradeId": "", "uTime": str(placed.updated_ms)}


def funding(entry: Funding) -> Document:
    return _bill(entry.id, entry.contract.symbol, entry.time_ms, FUNDING_BILL,
                 FUNDING_RECEIVED if entry.amount > 0 else FUNDING_PAID,
                 bal=plain(entry.balance), balChg=plain(entry.amount), pnl=plain(entry.amount))


def trade(fill: Fill) -> Document:
    placed = fill.order
    return _bill(fill.id, placed.contract.symbol, fill.time_ms, TRADE_BILL,
                 "1" if placed.buy else "2", bal=plain(fill.balance), balChg=plain(-fill.fee),
                 fee=plain(-fill.fee), ordId=placed.id, px=plain(fill.price),
                 sz=plain(fill.quantity), tradeId=str(fill.id), execType="T")


def _bill(bill_id: int, symbol: str, time_ms: int, kind: str, subkind: str,
          **known: str) -> Document:
    bill = {"bal": "", "balChg": "", "billId": str(bill_id), "ccy": "USDT", "clOrdId": "",
            "execType": "", "fee": "0", "fillTime": "", "from": "", "instId": symbol,
            "instType": "SWAP", "interest": "0", "mgnMode": "isolated", "notes": "",
            "ordId": "", "pnl": "0", "posBal": "0", "posBalChg": "0", "px": "", "subType": subkind,
            "sz": "0", "tag": "", "to": "", "tradeId": "", "ts": str(time_ms), "type": kind}
    bill.update(known)
    return bill


def closing(closed: Closing) -> Document:
    fill, fees = closed.fill, closed.open_fee + closed.close_fee
    contract = fill.order.contract
    value = closed.quantity * contract.coins_per_unit * closed.entry_price
    return {
        "cTime": str(closed.opened_ms), "ccy": "USDT", "closeAvgPx": plain(fill.price),
        "closeTotalPos": plain(closed.quantity), "direction": closed.side, "fee": plain(-fees),
        "fundingFee": "0", "instId": contract.symbol, "instType": "SWAP",
        "lever": plain(closed.leverage), "liqPenalty": "0", "mgnMode": "isolated",
        "nonSettleAvgPx": "", "openAvgPx": plain(closed.entry_price),
        "openMaxPos": plain(closed.largest), "pnl": plain(closed.profit),
        "pnlRatio": plain((closed.profit - fees) * closed.leverage / value),
        "posId": str(closed.position_id), "posSide": closed.side,
        "realizedPnl": plain(closed.profit - fees), "settledPnl": "", "triggerPx": "",
        "type": "2" if closed.whole else "1", "uTime": str(fill.time_ms),
        "uly": contract.coin + "-USDT"}
