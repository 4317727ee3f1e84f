"""Gate, API v4: USDT-settled perpetual futures, single-position mode, whole contracts."""

from __future__ import annotations

import re
from decimal import Decimal
from typing import Any, Dict, List, Optional

from .. import hosts
from ..http_message import Request, Response
from ..keys import ApiKey
from ..records import Contract, Order
from . import gate_documents as documents
from .exchange import (Call, Exchange, Refusals, Refused, mac, newest_first, number, same,
                       sha512_hex, whole_number)

BASE = "/api/v4/futures/usdt"
ID = "(?P<id>[^/]*)"


class Gate(Exchange):
    name = "gate"
    hosts = hosts.BY_EXCHANGE[name]
    contracts = {symbol: Contract(symbol, symbol[:3], Decimal(1), Decimal(coins))
                 for symbol, coins in (("BTC_USDT", "0.0001"), ("ETH_USDT", "0.01"),
                                       ("SOL_USDT", "1"))}
    first_order_id = 58_000_001
    routes = [
        ("GET", BASE + "/accounts", "accounts"),
        ("GET", BASE + "/positions", "positions"),
        ("POST", BASE + "/positions/(?P<contract>[^/]*)/leverage", "set_leverage"),
        ("POST", BASE + "/orders", "create_order"),
        ("GET", BASE + "/orders/" + ID, "read_order"),
        ("DELETE", BASE + "/orders/" + ID, "cancel_order"),
        ("GET", BASE + "/account_book", "account_book"),
        ("GET", BASE + "/my_trades", "trades"),
    ]
    refusals = Refusals(
        not_found=("NOT_FOUND",),
        missing_parameter=("MISSING_REQUIRED_PARAM", "Missing required parameter: {0}"),
        bad_body=("INVALID_REQUEST_BODY",), bad_content_type=("INVALID_REQUEST_BODY",))
    errors = {
        "NOT_FOUND": (404, "Request path not found"),
        "MISSING_REQUIRED_HEADER": (400, "Missing required header"),
        "MISSING_REQUIRED_PARAM": (400, "Missing required parameter"),
        "INVALID_REQUEST_BODY": (400, "Invalid request body"),
        "INVALID_PARAM_VALUE": (400, "Invalid parameter value"),
        "INVALID_KEY": (401, "Invalid key provided"),
        "INVALID_SIGNATURE": (401, "Signature mismatch"),
        "REQUEST_EXPIRED": (403, "gap between request Timestamp and server time exceeds 60"),
        "CONTRACT_NOT_FOUND": (400, "contract not found"),
        "LEVERAGE_TOO_HIGH": (400, "leverage exceeds the contract's limit"),
        "INSUFFICIENT_AVAILABLE": (400, "insufficient available balance"),
        "POSITION_EMPTY": (400, "empty position"),
        "INCREASE_POSITION": (400, "reduce-only order would increase the position"),
        "ORDER_NOT_FOUND": (404, "order not found"),
        "ORDER_FINISHED": (400, "order already finished"),
    }
    rejections = {
        "unknown_contract": ("CONTRACT_NOT_FOUND",),
        "bad_quantity": ("INVALID_PARAM_VALUE", "invalid argument: size"),
        "bad_price": ("INVALID_PARAM_VALUE", "invalid argument: price"),
        "bad_leverage": ("LEVERAGE_TOO_HIGH",),
        "no_balance": ("INSUFFICIENT_AVAILABLE",),
        "no_position": ("POSITION_EMPTY",),
        "same_direction": ("INCREASE_POSITION",),
        "unknown_order": ("ORDER_NOT_FOUND",),
        "order_closed": ("ORDER_FINISHED",),
    }

    def refusal(self, code, text: str, status: int) -> Response:
        return Response.of_json({"label": code, "message": text}, status)

    def authenticate(self, request: Request) -> ApiKey:
        text, sent, sign = (request.header(name) or "" for name in ("KEY", "Timestamp", "SIGN"))
        for name, value in (("KEY", text), ("Timestamp", sent), ("SIGN", sign)):
            if not value:
                raise Refused("MISSING_REQUIRED_HEADER", "Missing required header: " + name)
        key = self.find_key(text, request.host)
        if key is None:
            raise Refused("INVALID_KEY")
        self.check_time(_moment_ms(sent), 60_000, "REQUEST_EXPIRED")
        expected = mac("sha512", key.secret, request.method, "\n", request.path, "\n",
                       request.query, "\n", sha512_hex(request.body), "\n", sent)
        if not same(sign.lower(), expected.hex()):
            raise Refused("INVALID_SIGNATURE")
        return key

    def accounts(self, call: Call) -> Response:
        return Response.of_json(documents.account(self.account))

    def positions(self, call: Call) -> Response:
        held_only = call.query("holding", "false") == "true"
        return Response.of_json([
            documents.position(self.account, contract) for contract in self.contracts.values()
            if self.account.position(contract.symbol) or not held_only])

    def set_leverage(self, call: Call) -> Response:
        contract = self.account.contract(call.path_names["contract"])
        leverage = number(call.query("leverage"))
        if leverage is None or leverage < 1:
            raise Refused("INVALID_PARAM_VALUE", "invalid argument: leverage")
        if leverage != self.account.leverage(contract.symbol):
            self.account.set_leverage(contract.symbol, leverage)
        return Response.of_json(documents.position(self.account, contract))

    def create_order(self, call: Call) -> Response:
        symbol, size = call.word("contract"), number(call.member("size"))
        if call.member("tif", "gtc") != "gtc":
            raise Refused("INVALID_PARAM_VALUE", "invalid argument: tif")
        order = self.account.place(
            symbol, size is not None and size > 0, None if size is None else abs(size),
            number(call.member("price")), call.member("reduce_only", False) is True)
        return Response.of_json(documents.order(order), 201)

    def read_order(self, call: Call) -> Response:
        return Response.of_json(documents.order(self._order(call)))

    def cancel_order(self, call: Call) -> Response:
        return Response.of_json(documents.order(self.account.cancel(self._order(call).id)))

    def account_book(self, call: Call) -> Response:
        kind, symbol = call.query("type", ""), call.query("contract", "")
        start = whole_number(call.query("from", "0"))
        if start is None:
            raise Refused("INVALID_PARAM_VALUE", "invalid argument: from")
        rows: List[Dict[str, Any]] = [documents.funding(entry) for entry in self.account.funding]
        rows += [documents.fee(fill) for fill in self.account.fills]
        found = [row for row in rows if kind in ("", row["type"])
                 and symbol in ("", row["contract"]) and row["time"] >= start]
        return Response.of_json(newest_first(found, "time", call, 100))

    def trades(self, call: Call) -> Response:
        contract = self.account.contract(call.query("contract"))
        rows = [documents.trade(fill) for fill in self.account.fills
                if fill.order.contract is contract]
        return Response.of_json(newest_first(rows, "create_time", call, 100))

    def _order(self, call: Call) -> Order:
        if whole_number(call.path_names["id"]) is None:
            raise Refused("INVALID_PARAM_VALUE", "invalid argument: order_id")
        return self.account.order(call.path_names["id"])


def _moment_ms(seconds: str) -> Optional[int]:
    return int(float(seconds) * 1000) if re.fullmatch(r"[0-9]{1,12}(\.[0-9]+)?", seconds) else None
