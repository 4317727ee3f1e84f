"""Bybit, API v5: linear perpetuals of a unified account, one-way mode."""

from __future__ import annotations

import uuid
from decimal import Decimal
from typing import Any, Dict, List

from .. import hosts
from ..http_message import Request, Response, wire_bytes, wire_text
from ..keys import ApiKey
from ..records import Contract
from . import bybit_documents as documents
from .exchange import (Call, Exchange, Refusals, Refused, mac, newest_first, number,
                       same, whole_number)

DAY_MS = 86_400_000
SIDES = {"Buy": True, "Sell": False}


class Bybit(Exchange):
    name = "bybit"
    hosts = hosts.BY_EXCHANGE[name]
    contracts = {symbol: Contract(symbol, symbol[:3], Decimal(step)) for symbol, step in
                 (("BTCUSDT", "0.001"), ("ETHUSDT", "0.01"), ("SOLUSDT", "0.1"))}
    routes = [
        ("GET", "/v5/user/query-api", "key_information"),
        ("GET", "/v5/account/wallet-balance", "wallet_balance"),
        ("GET", "/v5/position/list", "positions"),
        ("GET", "/v5/order/realtime", "orders"),
        ("POST", "/v5/order/create", "create_order"),
        ("POST", "/v5/order/cancel", "cancel_order"),
        ("POST", "/v5/position/set-leverage", "set_leverage"),
        ("GET", "/v5/account/transaction-log", "transaction_log"),
        ("GET", "/v5/position/closed-pnl", "closed_pnl"),
    ]
    refusals = Refusals(not_found=(404,),
                        missing_parameter=(10001, "params error: {0} is required"),
                        bad_body=(10001,), bad_content_type=(10001,))
    errors = {
        404: (404, "Not Found"),
        10001: (200, "Request parameter error."),
        10002: (200, "invalid request, please check your server timestamp or recv_window param."),
        10003: (200, "API key is invalid."),
        10004: (200, "error sign!"),
        10005: (200, "Permission denied, please check your API key permissions."),
        110001: (200, "order not exists or too late to cancel"),
        110007: (200, "ab not enough for new order"),
        110017: (200, "current position is zero, cannot fix reduce-only order qty"),
        110043: (200, "leverage not modified"),
    }
    rejections = {
        "unknown_contract": (10001, "params error: symbol invalid"),
        "bad_quantity": (10001, "Qty invalid"),
        "bad_price": (10001, "Price invalid"),
        "bad_leverage": (10001, "leverage invalid"),
        "same_leverage": (110043,),
        "no_balance": (110007,),
        "no_position": (110017,),
        "same_direction": (110017, "orderQty will be truncated to zero."),
        "unknown_order": (110001,),
        "order_closed": (110001,),
    }

    def new_order_id(self) -> str:
        return str(uuid.uuid4())

    def refusal(self, code, text: str, status: int) -> Response:
        if status == 404:
            return Response(404, b"404 page not found", "text/plain")
        return self._envelope(code, text, {}, status)

    def authenticate(self, request: Request) -> ApiKey:
        text, sent, window, sign = (request.header("X-BAPI-" + name) or "" for name in
                                    ("API-KEY", "TIMESTAMP", "RECV-WINDOW", "SIGN"))
        if not (text and sent and sign):
            raise Refused(10001, f"empty value: apiTimestamp[{sent}] apiKey[{text}] "
                                 f"apiSignature[{sign}]")
        key = self.find_key(text, request.host)
        if key is None:
            raise Refused(10003)
        self.check_time(whole_number(sent), whole_number(window) or 5000, 10002,
                        f"{self.errors[10002][1]} req_timestamp[{sent}],"
                        f"server_timestamp[{self.clock.now_ms()}],recv_window[{window}]")
        signed = wire_bytes(request.query) if request.method == "GET" else request.body
        if not same(sign.lower(), mac("sha256", key.secret, sent, text, window, signed).hex()):
            origin = sent + text + window + wire_text(signed)
            raise Refused(10004, f"error sign! origin_string[{origin}]")
        if request.method == "POST" and not key.can_trade:
            raise Refused(10005)
        return key

    def key_information(self, call: Call) -> Response:
        return self._success(documents.key_information(call.key))

    def wallet_balance(self, call: Call) -> Response:
        if call.query("accountType") != "UNIFIED":
            raise Refused(10001, "accountType only support UNIFIED.")
        return self._success(documents.wallet(self.account))

    def positions(self, call: Call) -> Response:
        contract = self._contract(call)
        return self._page([documents.position(self.account, contract)])

    def orders(self, call: Call) -> Response:
        contract, wanted = self._contract(call), call.query("orderId", "")
        found = [order for order in self.account.orders.values()
                 if order.contract is contract
                 and (order.id == wanted if wanted else order.state == "open")]
        return self._page([documents.order(order) for order in found])

    def create_order(self, call: Call) -> Response:
        contract = self._contract(call, in_body=True)
        if call.word("side") not in SIDES:
            raise Refused(10001, "Side invalid")
        if call.word("orderType") != "Limit":
            raise Refused(10001, "OrderType invalid")
        order = self.account.place(
            contract.symbol, SIDES[call.word("side")],
            number(call.member("qty")), number(call.member("price")),
            call.member("reduceOnly", False) is True)
        return self._success({"orderId": order.id, "orderLinkId": ""})

    def cancel_order(self, call: Call) -> Response:
        contract = self._contract(call, in_body=True)
        order = self.account.order(call.word("orderId"))
        if order.contract is not contract:
            raise Refused(110001)
        self.account.cancel(order.id)
        return self._success({"orderId": order.id, "orderLinkId": ""})

    def set_leverage(self, call: Call) -> Response:
        contract = self._contract(call, in_body=True)
        buy, sell = number(call.member("buyLeverage")), number(call.member("sellLeverage"))
        if buy is None or buy != sell:
            raise Refused(10001, "leverage invalid")
        self.account.set_leverage(contract.symbol, buy)
        return self._success({})

    def transaction_log(self, call: Call) -> Response:
        # The log knows no symbol: one that is asked for changes nothing.
        start = whole_number(call.query("startTime", str(self.clock.now_ms() - DAY_MS)))
        if start is None:
            raise Refused(10001, "params error: startTime invalid")
        rows = [documents.funding(entry) for entry in self.account.funding]
        rows += [documents.trade(fill) for fill in self.account.fills]
        found = [row for row in rows
                 if start <= int(row["transactionTime"]) <= start + DAY_MS]
        return self._page(newest_first(found, "transactionTime", call))

    def closed_pnl(self, call: Call) -> Response:
        contract = self._contract(call)
        rows = [documents.closing(closing) for closing in self.account.closings
                if closing.fill.order.contract is contract]
        return self._page(newest_first(rows, "updatedTime", call))

    def _contract(self, call: Call, in_body: bool = False) -> Contract:
        read = call.word if in_body else call.query
        if read("category") != "linear":
            raise Refused(10001, "Illegal category")
        return self.account.contract(read("symbol"))

    def _envelope(self, code: int, text: str, result: Any, status: int = 200) -> Response:
        return Response.of_json({"retCode": code, "retMsg": text, "result": result,
                                 "retExtInfo": {}, "time": self.clock.now_ms()}, status)

    def _success(self, result: Any) -> Response:
        return self._envelope(0, "OK", result)

    def _page(self, rows: List[Dict[str, Any]]) -> Response:
        return self._success({"list": rows, "nextPageCursor": "", "category": "linear"})
