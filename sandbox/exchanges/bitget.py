"""Bitget, API v2: USDT-M futures in hedge mode."""

from __future__ import annotations

from decimal import Decimal
from typing import Any, Dict

from .. import hosts
from ..account import Account
from ..http_message import Request, Response
from ..keys import ApiKey
from ..records import Contract, Order, Position
from .exchange import (Call, Exchange, Refusals, Refused, base64_mac, needed_header, plain, same,
                       whole_number)

MIX = "/api/v2/mix"
OPEN_ORDER_ID = "1265201188318224385"
STATES = {"open": "live", "partial": "partially_filled", "filled": "filled",
          "cancelled": "canceled"}


class Bitget(Exchange):
    name = "bitget"
    hosts = hosts.BY_EXCHANGE[name]
    contracts = {symbol: Contract(symbol, symbol[:3], Decimal(step)) for symbol, step in
                 (("BTCUSDT", "0.0001"), ("ETHUSDT", "0.01"), ("SOLUSDT", "0.1"))}
    hedged = True
    initial_orders = (("BTCUSDT", "0.01", "50000", ""),
                      ("BTCUSDT", "0.02", "45000", OPEN_ORDER_ID))
    first_order_id = 1_265_201_188_318_200_001
    routes = [
        ("GET", MIX + "/account/accounts", "accounts"),
        ("GET", MIX + "/position/single-position", "position"),
        ("GET", MIX + "/order/detail", "read_order"),
        ("POST", MIX + "/order/cancel-order", "cancel_order"),
    ]
    refusals = Refusals(not_found=("40404",),
                        missing_parameter=("40019", "Parameter {0} cannot be empty"),
                        bad_body=("40017",), bad_content_type=("40007",))
    errors = {
        "22001": (400, "No order to cancel"),
        "40001": (400, "ACCESS_KEY cannot be empty"),
        "40002": (400, "ACCESS_SIGN cannot be empty"),
        "40005": (400, "Invalid ACCESS_TIMESTAMP"),
        "40006": (400, "Invalid ACCESS_KEY"),
        "40007": (400, "Invalid Content_Type"),
        "40008": (400, "Request timestamp expired"),
        "40009": (400, "sign signature error"),
        "40011": (400, "ACCESS_PASSPHRASE cannot be empty"),
        "40012": (400, "apikey/password is incorrect"),
        "40017": (400, "Parameter verification failed"),
        "40019": (400, "Parameter cannot be empty"),
        "40034": (400, "Parameter does not exist"),
        "40109": (400, "The data of the order cannot be found, please confirm the order number"),
        "40404": (404, "Request URL NOT FOUND"),
        "40768": (400, "Order does not exist"),
    }
    rejections = {
        "unknown_contract": ("40034", "Parameter symbol does not exist"),
        "unknown_order": ("40768",),
        "order_closed": ("22001",),
    }

    def refusal(self, code, text: str, status: int) -> Response:
        return self._envelope(code, text, None, status)

    def authenticate(self, request: Request) -> ApiKey:
        text, sign, passphrase, sent = (
            needed_header(request, "ACCESS-" + name, code) for name, code in
            (("KEY", "40001"), ("SIGN", "40002"), ("PASSPHRASE", "40011"),
             ("TIMESTAMP", "40005")))
        key = self.find_key(text, request.host)
        if key is None:
            raise Refused("40006")
        moment = whole_number(sent)
        if moment is None:
            raise Refused("40005")
        self.check_time(moment, 30_000, "40008")
        if not same(passphrase, key.passphrase):
            raise Refused("40012")
        if not same(sign, base64_mac(key.secret, sent, request.method, request.target,
                                     request.body)):
            raise Refused("40009")
        return key

    def accounts(self, call: Call) -> Response:
        self._check_product(call.query("productType"))
        return self._success([_account(self.account)])

    def position(self, call: Call) -> Response:
        self._check_product(call.query("productType"))
        if call.query("marginCoin").upper() != "USDT":
            raise Refused("40034", "Parameter marginCoin does not exist")
        contract = self.account.contract(call.query("symbol"))
        return self._success([_position(held, self.account.mark(contract))
                              for held in self.account.positions.values()
                              if held.contract is contract])

    def read_order(self, call: Call) -> Response:
        self._check_product(call.query("productType"))
        contract = self.account.contract(call.query("symbol"))
        order = self.account.orders.get(call.query("orderId"))
        if order is None or order.contract is not contract:
            raise Refused("40109")
        return self._success(_order(order))

    def cancel_order(self, call: Call) -> Response:
        self._check_product(call.word("productType"))
        contract: Contract = self.account.contract(call.word("symbol"))
        order = self.account.order(call.word("orderId"))
        if order.contract is not contract:
            raise Refused("40768")
        self.account.cancel(order.id)
        return self._success({"orderId": order.id, "clientOid": ""})

    def _check_product(self, product: str) -> None:
        if product.upper() != "USDT-FUTURES":
            raise Refused("40034", "Parameter productType does not exist")

    def _success(self, data: Any) -> Response:
        return self._envelope("00000", "success", data, 200)

    def _envelope(self, code: str, text: str, data: Any, status: int) -> Response:
        return Response.of_json({"code": code, "msg": text, "requestTime": self.clock.now_ms(),
                                 "data": data}, status)


def _account(account: Account) -> Dict[str, Any]:
    available, equity = plain(account.available), plain(account.equity)
    profit = plain(account.unrealised)
    return {
        "marginCoin": "USDT", "locked": plain(account.order_margin), "available": available,
        "crossedMaxAvailable": available, "isolatedMaxAvailable": available,
        "maxTransferOut": available, "accountEquity": equity, "usdtEquity": equity,
        "btcEquity": plain(account.equity / account.marks["BTC"]), "crossedRiskRate": "0",
        "unrealizedPL": profit, "coupon": "0", "unionTotalMargin": "0", "unionAvailable": "0",
        "unionMm": "0", "isolatedMargin": plain(account.position_margin), "crossedMargin": "0",
        "crossedUnrealizedPL": "0", "isolatedUnrealizedPL": profit, "assetMode": "single"}


def _position(held: Position, mark: Decimal) -> Dict[str, Any]:
    size = plain(abs(held.quantity))
    return {
        "marginCoin": "USDT", "symbol": held.contract.symbol, "holdSide": held.side,
        "openDelegateSize": "0", "marginSize": plain(held.margin), "available": size,
        "locked": "0", "total": size, "leverage": plain(held.leverage),
        "achievedProfits": plain(held.profit), "openPriceAvg": plain(held.entry_price),
        "marginMode": "isolated", "posMode": "hedge_mode",
        "unrealizedPL": plain(held.unrealised(mark)), "liquidationPrice": "0",
        "keepMarginRate": "0.004", "markPrice": plain(mark), "marginRatio": "0",
        "breakEvenPrice": plain(held.entry_price), "totalFee": "",
        "deductedFee": plain(held.open_fee), "grant": "", "assetMode": "single",
        "autoMargin": "off", "takeProfit": "", "stopLoss": "", "takeProfitId": "",
        "stopLossId": "", "cTime": str(held.opened_ms), "uTime": str(held.updated_ms)}


def _order(placed: Order) -> Dict[str, Any]:
    return {
        "symbol": placed.contract.symbol, "size": plain(placed.quantity), "orderId": placed.id,
        "clientOid": "", "baseVolume": plain(placed.filled), "fee": plain(-placed.fee),
        "price": plain(placed.price),
        "priceAvg": plain(placed.average_price) if placed.filled else "",
        "state": STATES[placed.stage],
        "side": "buy" if placed.buy else "sell", "force": "gtc",
        "totalProfits": plain(placed.profit), "posSide": placed.position_side,
        "marginCoin": "USDT", "presetStopSurplusPrice": "", "presetStopLossPrice": "",
        "quoteVolume": plain(placed.filled * placed.average_price), "orderType": "limit",
        "leverage": plain(placed.leverage), "marginMode": "isolated",
        "reduceOnly": "YES" if placed.reduce_only else "NO", "enterPointSource": "API",
        "tradeSide": "open", "posMode": "hedge_mode", "orderSource": "normal",
        "cancelReason": "normal_cancel" if placed.state == "cancelled" else "",
        "cTime": str(placed.created_ms), "uTime": str(placed.updated_ms)}
