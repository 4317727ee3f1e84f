"""Gate, API v4: USDT-settled perpetual futures, single-position mode, whole contracts."""

import hashlib

from .call import mac
from .exchange import Exchange, plain

BASE = "/api/v4/futures/usdt"


class Gate(Exchange):
    name = "gate"
    contracts = (("BTC_USDT", "BTC", "1", "0.0001"), ("ETH_USDT", "ETH", "1", "0.01"))
    routes = [
        ("GET", BASE + "/accounts", "balance"),
        ("GET", BASE + "/positions", "position"),
        ("GET", BASE + "/orders/(?P<order>[^/]*)", "order"),
        ("DELETE", BASE + "/orders/(?P<order>[^/]*)", "cancel"),
        ("POST", BASE + "/positions/(?P<contract>[^/]*)/leverage", "leverage"),
        ("POST", BASE + "/orders", "place"),
        ("GET", BASE + "/account_book", "funding"),
        ("GET", BASE + "/my_trades", "closings"),
    ]
    credentials = {"key": "KEY", "time": "Timestamp", "sign": "SIGN"}
    checks = ("time", "key", "sign")
    window_ms = (60_000, 60_000)
    names = {"symbol": "contract", "quantity": "size"}
    choices = {"tif": ("gtc",)}
    errors = {
        "not_found": (404, "NOT_FOUND", "Request path not found"),
        "no_header": (400, "MISSING_REQUIRED_HEADER", "Missing required header: {}"),
        "time": (403, "REQUEST_EXPIRED", "gap between request Timestamp and server time exceeds "
                                         "60"),
        "key": (401, "INVALID_KEY", "Invalid key provided"),
        "sign": (401, "INVALID_SIGNATURE", "Signature mismatch"),
        "bad_body": (400, "INVALID_REQUEST_BODY", "Invalid request body"),
        "missing": (400, "MISSING_REQUIRED_PARAM", "Missing required parameter: {}"),
        "invalid": (400, "INVALID_PARAM_VALUE", "Invalid parameter value: {}"),
        "symbol": (400, "CONTRACT_NOT_FOUND", "contract not found"),
        "no_balance": (400, "INSUFFICIENT_AVAILABLE", "insufficient available balance"),
        "no_position": (400, "POSITION_EMPTY", "empty position"),
        "unknown_order": (404, "ORDER_NOT_FOUND", "order not found"),
        "order_closed": (400, "ORDER_FINISHED", "order already finished"),
    }
    balance_fields = ("currency='USDT' total=balance available unrealised_pnl=unrealised "
                      "position_margin order_margin")
    position_fields = leverage_fields = (
        "contract=contract.symbol size=#quantity mode='single' entry_price leverage margin "
        "mark_price=contract.mark unrealised_pnl=unrealised realised_pnl=realised pnl_pnl=profit "
        "pnl_fee=-fees open_time=opened_ms update_time=updated_ms")
    order_fields = ("id=#id contract=contract.symbol price fill_price=average tif='gtc' "
                    "is_reduce_only=reduce_only size=#signed left=#signed_left status=state "
                    "create_time=created_ms")
    trade_fields = ("id=#id create_time=time_ms contract=contract.symbol order_id=order.id "
                    "price=order.average fee size=#order.signed")
    orders_have_symbols = False

    def sign(self, request, key, time):
        body = hashlib.sha512(request.body).hexdigest()
        lines = (request.method, request.path, request.query, body, time)
        return mac("sha512", key.secret, "\n".join(lines)).hex()

    def moment_ms(self, text):
        return super().moment_ms(text) * 1000

    def envelope(self, code, text, data):
        return {"label": code, "message": text} if code else data

    def time(self, moment_ms):
        return moment_ms / 1000

    def fields(self, table, record):
        """A finished order also tells how it ended, and when."""
        row = super().fields(table, record)
        if row.get("status", "open") != "open":
            row.update(status="finished", finish_as=record.state,
                       finish_time=self.time(record.updated_ms))
        return row

    def asked_quantity(self, call):
        """A size below zero sells."""
        size = call.number("quantity")
        return size > 0, abs(size)

    def asked_period(self, call):
        return int(call.number("from", "0")) * 1000, self.now_ms(), call.text("symbol", "")

    def ledger_rows(self, entry):
        """What a fill brought and what it cost are rows of their own."""
        balance = entry.balance - entry.change
        rows = []
        for kind, change in (("fund", entry.funding), ("pnl", entry.profit), ("fee", -entry.fee)):
            balance += change
            if change:
                rows.append({"time": self.time(entry.time_ms), "type": kind,
                             "contract": entry.contract.symbol, "change": plain(change),
                             "balance": plain(balance)})
        return rows

    def closing_rows(self, fills):
        """Every fill, whether it closed or opened."""
        return [{**self.fields(self.trade_fields, entry),
                 "close_size": int(entry.closed if entry.order.buy else -entry.closed)}
                for entry in fills]
