"""KuCoin futures, API v1: one-way positions in whole contracts."""

from __future__ import annotations

from decimal import Decimal
from typing import Any, Dict, Optional, Union

from .. import hosts
from ..account import Account
from ..http_message import Request, Response
from ..keys import ApiKey
from ..records import Contract, Order, Position
from .exchange import (Call, Exchange, Refusals, Refused, base64_mac, plain, same, whole_number)

OPEN_ORDER_ID = "245892470114914304"


class Kucoin(Exchange):
    name = "kucoin"
    hosts = hosts.BY_EXCHANGE[name]
    contracts = {symbol: Contract(symbol, coin, Decimal(1), Decimal(coins))
                 for symbol, coin, coins in (("XBTUSDTM", "BTC", "0.001"),
                                             ("ETHUSDTM", "ETH", "0.01"),
                                             ("SOLUSDTM", "SOL", "0.1"))}
    initial_orders = (("XBTUSDTM", "10", "50000", ""), ("XBTUSDTM", "20", "45000", OPEN_ORDER_ID))
    first_order_id = 245_892_470_114_900_001
    routes = [
        ("GET", "/api/v1/account-overview", "overview"),
        ("GET", "/api/v1/position", "position"),
        ("GET", "/api/v1/orders/(?P<id>[^/]*)", "read_order"),
        ("DELETE", "/api/v1/orders/(?P<id>[^/]*)", "cancel_order"),
    ]
    refusals = Refusals(not_found=("404000",),
                        missing_parameter=("400100", "Parameter {0} is required"),
                        bad_body=("400100",), bad_content_type=("415000",))
    errors = {
        "404000": (404, "Url Not Found"),
        "415000": (415, "Unsupported Media Type"),
        "100001": (200, "error.getOrder.orderNotExist"),
        "100004": (200, "The order cannot be canceled."),
        "400001": (401, "Please check the header of your request for KC-API-KEY, KC-API-SIGN, "
                        "KC-API-TIMESTAMP, KC-API-PASSPHRASE"),
        "400002": (401, "Invalid KC-API-TIMESTAMP"),
        "400003": (401, "KC-API-KEY not exists"),
        "400004": (401, "Invalid KC-API-PASSPHRASE"),
        "400005": (401, "Invalid KC-API-SIGN"),
        "400100": (400, "Parameter Error"),
    }
    rejections = {
        "unknown_contract": ("400100", "The symbol does not exist"),
        "unknown_order": ("100001",),
        "order_closed": ("100004",),
    }

    def refusal(self, code, text: str, status: int) -> Response:
        return Response.of_json({"code": code, "msg": text}, status)

    def authenticate(self, request: Request) -> ApiKey:
        text, sign, sent, passphrase = (request.header("KC-API-" + name) or "" for name in
                                        ("KEY", "SIGN", "TIMESTAMP", "PASSPHRASE"))
        if not (text and sign and sent and passphrase):
            raise Refused("400001")
        key = self.find_key(text, request.host)
        if key is None:
            raise Refused("400003")
        self.check_time(whole_number(sent), 5000, "400002")
        if not same(sign, base64_mac(key.secret, sent, request.method, request.target,
                                     request.body)):
            raise Refused("400005")
        # The passphrase is kept per key version, so that of another version is a wrong one.
        if request.header("KC-API-KEY-VERSION") != key.version or \
                not same(passphrase, base64_mac(key.secret, key.passphrase)):
            raise Refused("400004")
        return key

    def overview(self, call: Call) -> Response:
        return _success(_overview(self.account))

    def position(self, call: Call) -> Response:
        contract = self.account.contract(call.query("symbol"))
        return _success(_position(contract, self.account.position(contract.symbol),
                                  self.account, self.clock.now_ms()))

    def read_order(self, call: Call) -> Response:
        return _success(_order(self.account.order(call.path_names["id"])))

    def cancel_order(self, call: Call) -> Response:
        order_id = call.path_names["id"]
        if order_id not in self.account.orders:
            raise Refused("100004")
        return _success({"cancelledOrderIds": [self.account.cancel(order_id).id]})


def _success(data: Any) -> Response:
    return Response.of_json({"code": "200000", "data": data})


def _number(value: Decimal) -> Union[int, float]:
    text = plain(value)
    return float(text) if "." in text else int(text)


def _overview(account: Account) -> Dict[str, Any]:
    return {
        "accountEquity": _number(account.equity), "unrealisedPNL": _number(account.unrealised),
        "marginBalance": _number(account.balance),
        "positionMargin": _number(account.position_margin),
        "orderMargin": _number(account.order_margin), "frozenFunds": 0,
        "availableBalance": _number(account.available), "currency": "USDT", "riskRatio": 0}


def _position(contract: Contract, held: Optional[Position], account: Account,
              now_ms: int) -> Dict[str, Any]:
    mark = account.mark(contract)
    row: Dict[str, Any] = {
        "id": contract.symbol.lower() + "-sandbox", "symbol": contract.symbol,
        "autoDeposit": False, "crossMode": False, "maintMarginReq": 0.005,
        "riskLimit": 2000000, "realLeverage": _number(account.leverage(contract.symbol)),
        "delevPercentage": 0.0, "currentTimestamp": now_ms, "currentQty": 0, "currentCost": 0,
        "currentComm": 0, "unrealisedCost": 0, "realisedGrossCost": 0, "realisedCost": 0,
        "isOpen": False, "markPrice": _number(mark), "markValue": 0, "posCost": 0,
        "posCross": 0, "posInit": 0, "posComm": 0, "posLoss": 0, "posMargin": 0, "posMaint": 0,
        "maintMargin": 0, "realisedGrossPnl": 0, "realisedPnl": 0, "unrealisedPnl": 0,
        "unrealisedPnlPcnt": 0, "unrealisedRoePcnt": 0, "avgEntryPrice": 0,
        "liquidationPrice": 0, "bankruptPrice": 0, "settleCurrency": "USDT",
        "marginMode": "ISOLATED", "positionSide": "BOTH"}
    if held:
        profit = held.unrealised(mark)
        row.update({
            "openingTimestamp": held.opened_ms, "currentQty": int(held.quantity),
            "currentCost": _number(held.value(held.entry_price)),
            "currentComm": _number(held.open_fee), "isOpen": True,
            "markValue": _number(held.value(mark)),
            "posCost": _number(held.value(held.entry_price)), "posInit": _number(held.margin),
            "posMargin": _number(held.margin), "maintMargin": _number(held.margin + profit),
            "realisedGrossPnl": _number(held.profit),
            "realisedPnl": _number(held.profit - held.open_fee),
            "unrealisedPnl": _number(profit),
            "unrealisedPnlPcnt": _number(profit / held.value(held.entry_price)),
            "unrealisedRoePcnt": _number(profit / held.margin),
            "avgEntryPrice": _number(held.entry_price)})
    return row


def _order(placed: Order) -> Dict[str, Any]:
    active = placed.state == "open"
    units = placed.contract.coins_per_unit
    value = plain(placed.filled * placed.average_price * units)
    return {
        "id": placed.id, "symbol": placed.contract.symbol, "type": "limit",
        "side": "buy" if placed.buy else "sell", "price": plain(placed.price),
        "size": int(placed.quantity), "value": plain(placed.quantity * placed.price * units),
        "dealValue": value, "dealSize": int(placed.filled), "stp": "", "stop": "",
        "stopPriceType": "", "stopTriggered": False, "stopPrice": None, "timeInForce": "GTC",
        "postOnly": False, "hidden": False, "iceberg": False,
        "leverage": plain(placed.leverage), "forceHold": False, "closeOrder": False,
        "visibleSize": None, "clientOid": "", "remark": None, "tags": "", "isActive": active,
        "cancelExist": placed.state == "cancelled", "createdAt": placed.created_ms,
        "updatedAt": placed.updated_ms, "endAt": None if active else placed.updated_ms,
        "orderTime": placed.created_ms * 1_000_000, "settleCurrency": "USDT",
        "marginMode": "ISOLATED", "avgDealPrice": plain(placed.average_price),
        "filledSize": int(placed.filled), "filledValue": value,
        "status": "open" if active else "done", "reduceOnly": placed.reduce_only}
