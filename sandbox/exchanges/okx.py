"""OKX, API v5: USDT-margined swaps in long/short mode, three sites with keys of their own."""

from __future__ import annotations

import re
from datetime import datetime, timezone
from decimal import Decimal
from typing import Any, Collection, Dict, List, Optional

from .. import hosts
from ..http_message import Request, Response
from ..keys import ApiKey
from ..records import Contract, Order, Rejection
from . import okx_documents as documents
from .exchange import (Call, Exchange, Refusals, Refused, base64_mac, needed_header,
                       newest_first, number, same)

WEEK_MS = 7 * 86_400_000
SIDES = {"buy": True, "sell": False}
POSITION_SIDES = ("long", "short")


class Okx(Exchange):
    name = "okx"
    hosts = hosts.BY_EXCHANGE[name]
    contracts = {symbol: Contract(symbol, symbol[:3], Decimal("0.01"), Decimal(coins))
                 for symbol, coins in (("BTC-USDT-SWAP", "0.01"), ("ETH-USDT-SWAP", "0.1"),
                                       ("SOL-USDT-SWAP", "1"))}
    hedged = True
    first_order_id = 2_519_700_000_000_000_001
    routes = [
        ("GET", "/api/v5/account/config", "configuration"),
        ("GET", "/api/v5/account/balance", "balance"),
        ("GET", "/api/v5/account/positions", "positions"),
        ("GET", "/api/v5/account/positions-history", "positions_history"),
        ("GET", "/api/v5/account/bills", "bills"),
        ("POST", "/api/v5/account/set-leverage", "set_leverage"),
        ("GET", "/api/v5/trade/order", "read_order"),
        ("POST", "/api/v5/trade/order", "place_order"),
        ("POST", "/api/v5/trade/cancel-order", "cancel_order"),
    ]
    refusals = Refusals(not_found=("404",),
                        missing_parameter=("50014", "Parameter {0} can not be empty"),
                        bad_body=("50002",), bad_content_type=("50006",))
    errors = {
        "404": (404, "Not Found"),
        "50002": (400, "JSON syntax error"),
        "50006": (400, "Invalid Content-Type. Please use \"application/json\"."),
        "50014": (400, "Parameter can not be empty"),
        "50102": (401, "Timestamp request expired"),
        "50103": (401, "Request header \"OK-ACCESS-KEY\" can't be empty"),
        "50104": (401, "Request header \"OK-ACCESS-PASSPHRASE\" can't be empty"),
        "50105": (401, "Request header \"OK-ACCESS-PASSPHRASE\" incorrect"),
        "50106": (401, "Request header \"OK-ACCESS-SIGN\" can't be empty"),
        "50107": (401, "Request header \"OK-ACCESS-TIMESTAMP\" can't be empty"),
        "50111": (401, "Invalid OK-ACCESS-KEY"),
        "50112": (401, "Invalid OK-ACCESS-TIMESTAMP"),
        "50113": (401, "Invalid Sign"),
        "50119": (401, "API key doesn't exist"),
        "51000": (400, "Parameter error"),
        "51001": (200, "Instrument ID, Instrument ID code, or Spread ID doesn't exist."),
        "51008": (200, "Order failed. Insufficient USDT margin in account"),
        "51112": (200, "Close order size exceeds your available size."),
        "51121": (200, "Order quantity must be a multiple of the lot size."),
        "51169": (200, "Order failed because you don't have any positions in this direction "
                       "to reduce or close."),
        "51400": (200, "Cancellation failed as the order has been filled, canceled or does not "
                       "exist."),
        "51603": (200, "Order does not exist"),
        "59102": (200, "Leverage exceeds the maximum limit. Please lower the leverage."),
    }
    rejections = {
        "unknown_contract": ("51001",),
        "bad_quantity": ("51121",),
        "bad_price": ("51000", "Parameter px error"),
        "bad_leverage": ("59102",),
        "no_balance": ("51008",),
        "no_position": ("51169",),
        "same_direction": ("51169",),
        "above_position": ("51112",),
        "unknown_order": ("51603",),
        "order_closed": ("51400",),
    }

    def refusal(self, code, text: str, status: int) -> Response:
        return Response.of_json({"code": code, "data": [], "msg": text}, status)

    def authenticate(self, request: Request) -> ApiKey:
        text, passphrase, sign, sent = (
            needed_header(request, "OK-ACCESS-" + name, code) for name, code in
            (("KEY", "50103"), ("PASSPHRASE", "50104"), ("SIGN", "50106"), ("TIMESTAMP", "50107")))
        key = self.find_key(text, request.host)
        if key is None:
            elsewhere = any(self.find_key(text, host) for host in self.hosts)
            raise Refused("50119" if elsewhere else "50111")
        moment = _moment_ms(sent)
        if moment is None:
            raise Refused("50112")
        self.check_time(moment, 30_000, "50102")
        if not same(passphrase, key.passphrase):
            raise Refused("50105")
        if not same(sign, base64_mac(key.secret, sent, request.method, request.target,
                                     request.body)):
            raise Refused("50113")
        return key

    def configuration(self, call: Call) -> Response:
        return _success([documents.configuration(call.key)])

    def balance(self, call: Call) -> Response:
        wanted = call.query("ccy", "USDT").split(",")
        return _success([documents.balance(self.account, "USDT" in wanted, self.clock.now_ms())])

    def positions(self, call: Call) -> Response:
        symbol = call.query("instId", "")
        if symbol:
            self.account.contract(symbol)
        return _success([documents.position(held, self.account.mark(held.contract))
                         for held in self.account.positions.values()
                         if symbol in ("", held.contract.symbol)])

    def positions_history(self, call: Call) -> Response:
        symbol = call.query("instId", "")
        rows = [documents.closing(closing) for closing in self.account.closings
                if symbol in ("", closing.fill.order.contract.symbol)]
        return _success(newest_first(rows, "uTime", call, 100))

    def bills(self, call: Call) -> Response:
        symbol, kind = call.query("instId", ""), call.query("type", "")
        rows: List[Dict[str, Any]] = [documents.funding(entry) for entry in self.account.funding]
        rows += [documents.trade(fill) for fill in self.account.fills]
        oldest = self.clock.now_ms() - WEEK_MS
        found = [row for row in rows if symbol in ("", row["instId"])
                 and kind in ("", row["type"]) and int(row["ts"]) >= oldest]
        return _success(newest_first(found, "ts", call, 100))

    def set_leverage(self, call: Call) -> Response:
        contract, leverage = self._contract(call), number(call.member("lever"))
        self._one_of(call, "mgnMode", ("isolated", "cross"))
        side = self._one_of(call, "posSide", POSITION_SIDES)
        if leverage is None:
            raise Refused("51000", "Parameter lever error")
        if leverage != self.account.leverage(contract.symbol, side):
            self.account.set_leverage(contract.symbol, leverage, side)
        return _success([{"instId": contract.symbol, "lever": call.word("lever"),
                          "mgnMode": call.word("mgnMode"), "posSide": side}])

    def read_order(self, call: Call) -> Response:
        order = self._order(call.query("instId"), call.query("ordId"))
        return _success([documents.order(order)])

    def place_order(self, call: Call) -> Response:
        contract = self._contract(call)
        self._one_of(call, "tdMode", ("isolated", "cross"))
        self._one_of(call, "ordType", ("limit",))
        side = self._one_of(call, "posSide", POSITION_SIDES)
        buy = SIDES[self._one_of(call, "side", SIDES)]
        quantity, price = number(call.member("sz")), number(call.member("px"))
        for name, value in (("sz", quantity), ("px", price)):
            if value is None or value <= 0:
                raise Refused("51000", f"Parameter {name} error")
        try:
            order = self.account.place(contract.symbol, buy, quantity, price,
                                       position_side=side)
        except Rejection as rejection:
            return self._failed("", rejection)
        return self._done({"clOrdId": "", "ordId": order.id, "sCode": "0",
                           "sMsg": "Order placed", "tag": "", "ts": str(order.created_ms)})

    def cancel_order(self, call: Call) -> Response:
        contract, order_id = self._contract(call), call.word("ordId")
        order = self.account.orders.get(order_id)
        if order is None or order.contract is not contract or order.state != "open":
            return self._failed(order_id, Rejection("order_closed"))
        self.account.cancel(order_id)
        return self._done({"clOrdId": "", "ordId": order_id, "sCode": "0", "sMsg": "",
                           "ts": str(order.updated_ms)})

    def _contract(self, call: Call) -> Contract:
        return self.account.contract(call.word("instId"))

    def _order(self, symbol: str, order_id: str) -> Order:
        self.account.contract(symbol)
        order = self.account.order(order_id)
        if order.contract.symbol != symbol:
            raise Refused("51603")
        return order

    def _one_of(self, call: Call, name: str, values: Collection[str]) -> str:
        if call.word(name) not in values:
            raise Refused("51000", f"Parameter {name} error")
        return call.word(name)

    def _failed(self, order_id: str, rejection: Rejection) -> Response:
        code, *text = self.rejections[rejection.reason]
        row = {"clOrdId": "", "ordId": order_id, "sCode": code,
               "sMsg": text[0] if text else self.errors[code][1], "tag": "",
               "ts": str(self.clock.now_ms())}
        return self._done(row, "1", "All operations failed")

    def _done(self, row: Dict[str, str], code: str = "0", text: str = "") -> Response:
        now = str(self.clock.now_ms() * 1000)
        return Response.of_json({"code": code, "data": [row], "inTime": now, "msg": text,
                                 "outTime": now})


def _success(rows: List[Any]) -> Response:
    return Response.of_json({"code": "0", "data": rows, "msg": ""})


def _moment_ms(text: str) -> Optional[int]:
    if not re.fullmatch(r"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}Z", text):
        return None
    try:
        moment = datetime.strptime(text, "%Y-%m-%dT%H:%M:%S.%fZ")
    except ValueError:
        return None
    return int(moment.replace(tzinfo=timezone.utc).timestamp() * 1000)
