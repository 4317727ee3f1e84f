"""BingX, swap API v2 and v3: perpetuals whose requests are signed in the query."""

from __future__ import annotations

from decimal import Decimal
from typing import Any, Dict

from .. import hosts
from ..account import Account
from ..http_message import Request, Response
from ..keys import ApiKey
from ..records import Contract, Order, Position
from .exchange import (Call, Exchange, Refusals, Refused, mac, plain, same, whole_number)

SWAP = "/openApi/swap"
OPEN_ORDER_ID = "1736011869418901234"
STATES = {"open": "NEW", "partial": "PARTIALLY_FILLED", "filled": "FILLED",
          "cancelled": "CANCELLED"}


class Bingx(Exchange):
    name = "bingx"
    hosts = hosts.BY_EXCHANGE[name]
    contracts = {symbol: Contract(symbol, symbol[:3], Decimal(step)) for symbol, step in
                 (("BTC-USDT", "0.0001"), ("ETH-USDT", "0.01"), ("SOL-USDT", "0.01"))}
    hedged = True
    initial_orders = (("BTC-USDT", "0.01", "50000", ""),
                      ("BTC-USDT", "0.02", "45000", OPEN_ORDER_ID))
    first_order_id = 1_736_011_869_418_900_001
    routes = [
        ("GET", SWAP + "/v3/user/balance", "balances"),
        ("GET", SWAP + "/v2/user/balance", "balance"),
        ("GET", SWAP + "/v2/user/positions", "positions"),
        ("GET", SWAP + "/v2/trade/order", "read_order"),
        ("DELETE", SWAP + "/v2/trade/order", "cancel_order"),
    ]
    refusals = Refusals(not_found=(100400, "this api is not exist"),
                        missing_parameter=(109400, "Invalid parameters, err:{0} is required"),
                        bad_body=(109400,), bad_content_type=(109400,))
    errors = {
        100001: (200, "Signature verification failed"),
        100400: (200, "Invalid arguments"),
        100412: (200, "Null signature"),
        100413: (200, "Incorrect apiKey"),
        100421: (200, "Null timestamp or timestamp mismatch"),
        109400: (200, "Invalid parameters"),
        109425: (200, "this symbol is not exist"),
        80016: (200, "order does not exist"),
        80018: (200, "the order has been filled or cancelled"),
    }
    rejections = {
        "unknown_contract": (109425,),
        "unknown_order": (80016,),
        "order_closed": (80018,),
    }

    def refusal(self, code, text: str, status: int) -> Response:
        return Response.of_json({"code": code, "msg": text,
                                 "timestamp": self.clock.now_ms()}, status)

    def authenticate(self, request: Request) -> ApiKey:
        key = self.find_key(request.header("X-BX-APIKEY") or "", request.host)
        if key is None:
            raise Refused(100413)
        parameters = request.parameters
        self.check_time(whole_number(parameters.get("timestamp")),
                        whole_number(parameters.get("recvWindow")) or 5000, 100421)
        signed, found, sign = request.query.rpartition("&signature=")
        if not found or not sign:
            raise Refused(100412)
        if not same(sign.lower(), mac("sha256", key.secret, signed).hex()):
            raise Refused(100001, "Signature verification failed due to signature mismatch")
        return key

    def balances(self, call: Call) -> Response:
        return _success([_balance(self.account)])

    def balance(self, call: Call) -> Response:
        return _success({"balance": _balance(self.account)})

    def positions(self, call: Call) -> Response:
        symbol = call.query("symbol", "")
        if symbol:
            self.account.contract(symbol)
        return _success([_position(held, self.account.mark(held.contract))
                         for held in self.account.positions.values()
                         if symbol in ("", held.contract.symbol)])

    def read_order(self, call: Call) -> Response:
        return _success({"order": _order(self._named_order(call))})

    def cancel_order(self, call: Call) -> Response:
        return _success({"order": _order(self.account.cancel(self._named_order(call).id))})

    def _named_order(self, call: Call) -> Order:
        contract: Contract = self.account.contract(call.query("symbol"))
        order = self.account.order(call.query("orderId"))
        if order.contract is not contract:
            raise Refused(80016)
        return order


def _success(data: Any) -> Response:
    return Response.of_json({"code": 0, "msg": "", "data": data})


def _balance(account: Account) -> Dict[str, str]:
    return {
        "userId": "10000001", "asset": "USDT", "balance": plain(account.balance),
        "equity": plain(account.equity), "unrealizedProfit": plain(account.unrealised),
        "realisedProfit": "0", "availableMargin": plain(account.available),
        "usedMargin": plain(account.position_margin),
        "freezedMargin": plain(account.order_margin), "shortUid": "1000001"}


def _position(held: Position, mark: Decimal) -> Dict[str, Any]:
    profit = held.unrealised(mark)
    amount = plain(abs(held.quantity))
    return {
        "positionId": str(held.id), "symbol": held.contract.symbol, "currency": "USDT",
        "positionAmt": amount, "availableAmt": amount, "positionSide": held.side.upper(),
        "isolated": True, "avgPrice": plain(held.entry_price),
        "initialMargin": plain(held.margin), "margin": plain(held.margin + profit),
        "leverage": int(held.leverage), "unrealizedProfit": plain(profit),
        "realisedProfit": plain(held.profit - held.open_fee), "liquidationPrice": 0,
        "pnlRatio": plain(profit / held.margin), "maxMarginReduction": "0", "riskRate": "",
        "markPrice": plain(mark), "positionValue": plain(held.value(mark)),
        "onlyOnePosition": False, "createTime": held.opened_ms, "updateTime": held.updated_ms}


def _order(placed: Order) -> Dict[str, Any]:
    return {
        "symbol": placed.contract.symbol, "orderId": int(placed.id),
        "side": "BUY" if placed.buy else "SELL", "positionSide": placed.position_side.upper(),
        "type": "LIMIT", "origQty": plain(placed.quantity), "price": plain(placed.price),
        "executedQty": plain(placed.filled), "avgPrice": plain(placed.average_price),
        "cumQuote": plain(placed.filled * placed.average_price), "stopPrice": "",
        "profit": plain(placed.profit), "commission": plain(-placed.fee),
        "status": STATES[placed.stage],
        "time": placed.created_ms, "updateTime": placed.updated_ms, "clientOrderId": "",
        "leverage": plain(placed.leverage) + "X", "advanceAttr": 0, "positionID": 0,
        "takeProfitEntrustPrice": 0, "stopLossEntrustPrice": 0, "orderType": "",
        "workingType": "MARK_PRICE", "onlyOnePosition": False, "reduceOnly": placed.reduce_only,
        "stopGuaranteed": "", "triggerOrderId": 0}
