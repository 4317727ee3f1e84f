"""Bybit, API v5: linear perpetuals of a unified account, one-way mode."""

import uuid

from ..account import now_ms
from ..http_message import wire_bytes
from .call import mac
from .exchange import Exchange
from .fields import plain


class Bybit(Exchange):
    name = "bybit"
    contracts = (("BTCUSDT", "BTC", "0.001", "1"), ("ETHUSDT", "ETH", "0.01", "1"))
    routes = {
        "GET /v5/user/query-api": "key",
        "GET /v5/account/wallet-balance": "balance",
        "GET /v5/position/list": "position",
        "GET /v5/order/realtime": "order",
        "POST /v5/order/cancel": "cancel",
        "POST /v5/position/set-leverage": "leverage",
        "POST /v5/order/create": "place",
        "GET /v5/account/transaction-log": "funding",
        "GET /v5/position/closed-pnl": "closings",
    }
    credentials = {"key": "X-BAPI-API-KEY", "time": "X-BAPI-TIMESTAMP", "sign": "X-BAPI-SIGN"}
    window_ms = (5000, 1000)
    names = {"order": "orderId", "quantity": "qty", "leverage": "buyLeverage",
             "reduce_only": "reduceOnly", "since": "startTime"}
    words = {"buy": "Buy", "sell": "Sell", "long": "Buy", "short": "Sell", "open": "New",
             "filled": "Filled", "cancelled": "Cancelled", "funding": "SETTLEMENT",
             "trade": "TRADE"}
    ok = ("0", "OK")
    errors = """
        key 200 10003 API key is invalid.
        time 200 10002 invalid request, please check your server timestamp or recv_window param.
        sign 200 10004 Error sign, please check your signature generation algorithm
        permission 200 10005 Permission denied, please check your API key permissions.
        invalid 200 10001 params error: {} invalid
        cancel 200 110001 order not exists or too late to cancel
        no_balance 200 110007 ab not enough for new order
        no_position 200 110017 current position is zero, cannot fix reduce-only order qty
        same_leverage 200 110043 leverage not modified
    """
    coin_fields = """coin='USDT' equity walletBalance=balance totalOrderIM=order_margin
        totalPositionIM=position_margin unrealisedPnl=unrealised"""
    balance_fields = """accountType='UNIFIED' totalEquity=equity totalWalletBalance=balance
        totalPerpUPL=unrealised totalInitialMargin=margin totalAvailableBalance=available"""
    position_fields = """positionIdx=0 symbol=contract.symbol side size positionValue=entry_value
        avgPrice=entry_price markPrice=contract.mark leverage positionIM=margin
        unrealisedPnl=unrealised curRealisedPnl=realised createdTime=opened_ms
        updatedTime=updated_ms"""
    order_fields = """orderId=id orderLinkId='' symbol=contract.symbol orderType='Limit' side price
        qty=quantity timeInForce='GTC' reduceOnly=closes positionIdx=0 cumExecQty=filled
        avgPrice=average? cumExecFee=fee orderStatus=state createdTime=created_ms
        updatedTime=time_ms"""
    done_fields = "orderId=id orderLinkId=''"
    ledger_fields = """symbol=contract.symbol transactionTime=time_ms currency='USDT' type=kind
        funding=change cashFlow='0' fee='0' change cashBalance=balance"""
    trade_fields = """symbol=contract.symbol transactionTime=time_ms currency='USDT' type=kind
        funding='' cashFlow=profit fee change cashBalance=balance side orderId=id qty=quantity
        tradePrice=average"""
    closing_fields = """symbol=contract.symbol orderId=id orderType='Limit' side orderPrice=price
        qty=quantity closedSize=closed leverage avgEntryPrice=entry_price avgExitPrice=average
        openFee=open_fee closeFee=fee closedPnl=realised createdTime=created_ms
        updatedTime=time_ms"""
    demo_keys = {"bybit-read": {"can_trade": False}, "bybit-withdraw": {"can_withdraw": True}}

    def sign(self, request, key, time):
        window = request.header("X-BAPI-RECV-WINDOW")
        signed = wire_bytes(request.query) if request.method == "GET" else request.body
        return mac("sha256", key, wire_bytes(time + key.key + window) + signed).hex()

    def envelope(self, code, text, data):
        result = {"list": data} if isinstance(data, list) else data or {}
        return {"retCode": int(code), "retMsg": text, "result": result, "time": now_ms()}

    def new_order_id(self):
        return str(uuid.uuid4())

    def key(self, call):
        return {"apiKey": call.key.key, "readOnly": int(not call.key.can_trade), "permissions": {
            "ContractTrade": ["Order", "Position"] if call.key.can_trade else ["Position"],
            "Wallet": ["Withdraw"] if call.key.can_withdraw else []}}

    def balance(self, call):
        return [{**super().balance(call), "coin": [self.fields(self.coin_fields, self.account)]}]

    def order(self, call):
        """By its id, or without one all that are open."""
        contract, wanted = self.account.contract(call.text("symbol")), call.text("order", "")
        found = [order for order in self.account.orders.values() if order.contract is contract
                 and (order.id == wanted if wanted else order.is_open)]
        return [{**self.fields(self.order_fields, order),
                 "leavesQty": plain(order.quantity) if order.is_open else "0",
                 "cumFeeDetail": {"USDT": plain(order.fee)} if order.filled else {}}
                for order in found]

    def funding(self, call):
        """A day from the start, of every contract; what trades brought, too."""
        since = self.moment_ms(call.text("since"))
        return self.latest(call, [
            self.fields(self.trade_fields if one.kind == "trade" else self.ledger_fields, one)
            for one in self.account.ledger if since <= one.time_ms <= since + 24 * 3_600_000])
