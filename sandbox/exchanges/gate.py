"""Gate, API v4: USDT-settled perpetual futures, single-position mode, whole contracts."""

import hashlib

from ..http_message import wire_bytes
from .call import mac
from .exchange import Exchange


class Gate(Exchange):
    name = "gate"
    contracts = (("BTC_USDT", "BTC", "1", "0.0001"), ("ETH_USDT", "ETH", "1", "0.01"))
    routes = {
        "GET /api/v4/futures/usdt/accounts": "balance",
        "GET /api/v4/futures/usdt/positions": "position",
        "GET /api/v4/futures/usdt/orders/(?P<order>[^/]*)": "order",
        "DELETE /api/v4/futures/usdt/orders/(?P<order>[^/]*)": "cancel",
        "POST /api/v4/futures/usdt/positions/(?P<contract>[^/]*)/leverage": "leverage",
        "POST /api/v4/futures/usdt/orders": "place",
        "GET /api/v4/futures/usdt/account_book": "funding",
        "GET /api/v4/futures/usdt/my_trades": "closings",
    }
    credentials = {"key": "KEY", "time": "Timestamp", "sign": "SIGN"}
    window_ms = (60_000, 60_000)
    unit_ms = 1000
    names = {"symbol": "contract", "quantity": "size", "since": "from"}
    words = {"buy": "buy", "sell": "sell", "funding": "fund"}
    errors = """
        time 403 REQUEST_EXPIRED gap between request Timestamp and server time exceeds 60
        key 401 INVALID_KEY Invalid key provided
        sign 401 INVALID_SIGNATURE Signature mismatch
        invalid 400 INVALID_PARAM_VALUE Invalid parameter value: {}
        symbol 400 CONTRACT_NOT_FOUND contract not found
        no_balance 400 INSUFFICIENT_AVAILABLE insufficient available balance
        no_position 400 POSITION_EMPTY empty position
        unknown_order 404 ORDER_NOT_FOUND order not found
        cancel/unknown 404 ORDER_NOT_FOUND order not found
        cancel 400 ORDER_FINISHED order already finished
    """
    balance_fields = """currency='USDT' total=balance available position_margin order_margin
        unrealised_pnl=unrealised in_dual_mode=false"""
    position_fields = leverage_fields = """contract=contract.symbol mode='single' size=#quantity
        value entry_price leverage margin initial_margin=margin mark_price=contract.mark
        unrealised_pnl=unrealised realised_pnl=realised open_time=#opened_ms
        update_time=#updated_ms"""
    order_fields = """id=#id contract=contract.symbol price fill_price=average tif='gtc'
        size=#signed left=#signed is_reduce_only=closes is_close=false is_liq=false status=state
        create_time=#created_ms"""
    closing_fields = """create_time=#time_ms contract=contract.symbol order_id=id price=average
        fee size=#signed"""
    ledger_fields = "time=#time_ms type=kind contract=contract.symbol change balance"
    signed_sizes = reports_trades = True

    def sign(self, request, key, time):
        body = hashlib.sha512(request.body).hexdigest()
        text = "\n".join((request.method, request.path, request.query, body, time))
        return mac("sha512", key, wire_bytes(text)).hex()

    def envelope(self, code, text, data):
        return {"label": code, "message": text} if code != "0" else data

    def fields(self, table, record):
        """A finished order also tells how it ended, and when."""
        row = super().fields(table, record)
        if table == self.order_fields and not record.is_open:
            row.update(status="finished", finish_as=record.state, left=0 if record.filled
                       else row["size"], finish_time=record.time_ms / 1000)
        return row
