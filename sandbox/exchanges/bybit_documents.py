"""The shapes of Bybit's answers."""

from __future__ import annotations

from typing import Any, Dict, List

from ..account import FEE_RATE, Account
from ..keys import ApiKey
from ..records import Closing, Contract, Fill, Funding, Order
from .exchange import plain

Document = Dict[str, Any]

STATES = {"open": "New", "partial": "PartiallyFilled", "filled": "Filled",
          "cancelled": "Cancelled"}


def key_information(key: ApiKey) -> Document:
    permissions: Dict[str, List[str]] = {
        "ContractTrade": ["Order", "Position"] if key.can_trade else ["Position"],
        "Spot": ["SpotTrade"] if key.can_trade else [],
        "Wallet": ["AccountTransfer", "Withdraw"] if key.can_withdraw else [],
        "Options": [], "Derivatives": [], "CopyTrading": [], "BlockTrade": [],
        "Exchange": ["ExchangeHistory"], "NFT": [], "Affiliate": []}
    return {
        "id": "10000001", "note": "sandbox", "apiKey": key.key,
        "readOnly": int(not key.can_trade), "secret": "", "permissions": permissions,
        "ips": ["*"], "type": 1, "deadlineDay": 90, "expiredAt": "2030-01-01T00:00:00Z",
        "createdAt": "2025-01-01T00:00:00Z", "unified": 0, "uta": 1, "userID": 10000001,
        "inviterID": 0, "vipLevel": "No VIP", "mktMakerLevel": "0", "affiliateID": 0,
        "rsaPublicKey": "", "isMaster": True, "parentUid": "0",
        "kycLevel": "LEVEL_DEFAULT", "kycRegion": ""}


def wallet(account: Account) -> Document:
    equity, balance, profit = plain(account.equity), plain(account.balance), \
        plain(account.unrealised)
    return {"list": [{
        "totalEquity": equity, "accountIMRate": "0", "totalMarginBalance": equity,
        "totalInitialMargin": plain(account.position_margin + account.order_margin),
        "accountType": "UNIFIED", "totalAvailableBalance": plain(account.available),
        "accountMMRate": "0", "totalPerpUPL": profit, "totalWalletBalance": balance,
        "accountLTV": "0", "totalMaintenanceMargin": "0",
        "coin": [{
            "availableToBorrow": "", "bonus": "0", "accruedInterest": "0",
            "availableToWithdraw": "", "totalOrderIM": plain(account.order_margin),
            "equity": equity, "totalPositionMM": "0", "usdValue": equity,
            "unrealisedPnl": profit, "collateralSwitch": True, "spotHedgingQty": "0",
            "borrowAmount": "0", "totalPositionIM": plain(account.position_margin),
            "walletBalance": balance, "cumRealisedPnl": "0", "locked": "0",
            "marginCollateral": True, "coin": "USDT"}]}]}


def position(account: Account, contract: Contract) -> Document:
    """A row even when nothing is held, as for every query that names a symbol."""
    row: Document = {
        "positionIdx": 0, "riskId": 1, "riskLimitValue": "2000000",
        "symbol": contract.symbol, "side": "", "size": "0", "avgPrice": "0",
        "positionValue": "", "tradeMode": 0, "positionStatus": "Normal", "autoAddMargin": 0,
        "adlRankIndicator": 0, "leverage": plain(account.leverage(contract.symbol)),
        "positionBalance": "0", "markPrice": plain(account.mark(contract)), "liqPrice": "",
        "bustPrice": "", "positionMM": "0", "positionIM": "0", "tpslMode": "Full",
        "takeProfit": "", "stopLoss": "", "trailingStop": "0", "unrealisedPnl": "",
        "curRealisedPnl": "0", "cumRealisedPnl": "0", "seq": -1, "isReduceOnly": False,
        "mmrSysUpdatedTime": "", "leverageSysUpdatedTime": "", "createdTime": "0",
        "updatedTime": "0"}
    held = account.position(contract.symbol)
    if held:
        row.update({
            "side": "Buy" if held.quantity > 0 else "Sell", "size": plain(abs(held.quantity)),
            "avgPrice": plain(held.entry_price),
            "positionValue": plain(held.value(held.entry_price)),
            "positionIM": plain(held.margin), "positionBalance": plain(held.margin),
            "unrealisedPnl": plain(held.unrealised(account.mark(contract))),
            "curRealisedPnl": plain(held.profit - held.open_fee),
            "createdTime": str(held.opened_ms), "updatedTime": str(held.updated_ms)})
    return row


def order(placed: Order) -> Document:
    cancelled = placed.state == "cancelled"
    left = plain(placed.left) if placed.state == "open" else "0"
    return {
        "orderId": placed.id, "orderLinkId": "", "blockTradeId": "",
        "symbol": placed.contract.symbol, "price": plain(placed.price),
        "qty": plain(placed.quantity), "side": "Buy" if placed.buy else "Sell",
        "isLeverage": "", "positionIdx": 0, "orderStatus": STATES[placed.stage],
        "createType": "CreateByUser",
        "cancelType": "CancelByUser" if cancelled else "UNKNOWN",
        "rejectReason": "EC_PerCancelRequest" if cancelled else "EC_NoError",
        "avgPrice": plain(placed.average_price) if placed.filled else "", "leavesQty": left,
        "leavesValue": plain(placed.left * placed.price) if placed.state == "open" else "0",
        "cumExecQty": plain(placed.filled),
        "cumExecValue": plain(placed.filled * placed.average_price),
        "cumExecFee": plain(placed.fee), "timeInForce": "GTC", "orderType": "Limit",
        "stopOrderType": "", "orderIv": "", "triggerPrice": "", "takeProfit": "",
        "stopLoss": "", "tpslMode": "", "ocoTriggerBy": "", "tpLimitPrice": "",
        "slLimitPrice": "", "tpTriggerBy": "", "slTriggerBy": "", "triggerDirection": 0,
        "triggerBy": "", "lastPriceOnCreated": "", "reduceOnly": placed.reduce_only,
        "closeOnTrigger": False, "placeType": "", "smpType": "None", "smpGroup": 0,
        "smpOrderId": "", "createdTime": str(placed.created_ms),
        "updatedTime": str(placed.updated_ms)}


def funding(entry: Funding) -> Document:
    return _log_row(
        f"{entry.id}_{entry.contract.symbol}", entry.contract.symbol, "SETTLEMENT", "Buy",
        entry.time_ms, funding=plain(entry.amount), change=plain(entry.amount),
        cashBalance=plain(entry.balance), feeRate="0.0001")


def trade(fill: Fill) -> Document:
    placed = fill.order
    return _log_row(
        f"{fill.id}_{placed.contract.symbol}", placed.contract.symbol, "TRADE",
        "Buy" if placed.buy else "Sell", fill.time_ms, orderId=placed.id,
        fee=plain(fill.fee), feeRate=plain(FEE_RATE), qty=plain(fill.quantity),
        tradePrice=plain(fill.price), change=plain(-fill.fee),
        cashBalance=plain(fill.balance), tradeId=str(fill.id))


def _log_row(entry_id: str, symbol: str, kind: str, side: str, time_ms: int,
             **known: str) -> Document:
    row = {"id": entry_id, "symbol": symbol, "side": side, "funding": "", "orderLinkId": "",
           "orderId": "", "fee": "0", "change": "0", "cashFlow": "0",
           "transactionTime": str(time_ms), "type": kind, "feeRate": "0", "bonusChange": "",
           "size": "0", "qty": "0", "cashBalance": "", "currency": "USDT",
           "category": "linear", "tradePrice": "", "tradeId": "", "transSubType": "",
           "extraFees": ""}
    row.update(known)
    return row


def closing(closed: Closing) -> Document:
    placed = closed.fill.order
    return {
        "symbol": placed.contract.symbol, "orderType": "Limit",
        "leverage": plain(closed.leverage), "side": "Buy" if placed.buy else "Sell",
        "orderId": placed.id,
        "closedPnl": plain(closed.profit - closed.open_fee - closed.close_fee),
        "openFee": plain(closed.open_fee), "closeFee": plain(closed.close_fee),
        "avgEntryPrice": plain(closed.entry_price), "qty": plain(placed.quantity),
        "cumEntryValue": plain(closed.entry_price * closed.quantity),
        "orderPrice": plain(placed.price), "closedSize": plain(closed.quantity),
        "avgExitPrice": plain(closed.fill.price), "execType": "Trade", "fillCount": "1",
        "cumExitValue": plain(closed.fill.price * closed.quantity),
        "createdTime": str(placed.created_ms), "updatedTime": str(closed.fill.time_ms)}
