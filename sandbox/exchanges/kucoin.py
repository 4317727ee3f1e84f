"""KuCoin futures, API v1: one-way positions in whole contracts."""

from ..records import Refused
from .call import base64_mac
from .exchange import Exchange


class Kucoin(Exchange):
    name = "kucoin"
    contracts = (("XBTUSDTM", "BTC", "1", "0.001"), ("ETHUSDTM", "ETH", "1", "0.01"))
    routes = [
        ("GET", "/api/v1/account-overview", "balance"),
        ("GET", "/api/v1/position", "position"),
        ("GET", "/api/v1/orders/(?P<order>[^/]*)", "order"),
        ("DELETE", "/api/v1/orders/(?P<order>[^/]*)", "cancel"),
    ]
    credentials = {"key": "KC-API-KEY", "sign": "KC-API-SIGN", "time": "KC-API-TIMESTAMP",
                   "passphrase": "KC-API-PASSPHRASE"}
    checks = ("key", "time", "sign", "passphrase")
    ok = ("200000", "")
    errors = {
        "not_found": (404, "404000", "Url Not Found"),
        "no_header": (401, "400001", "Please check the header of your request for {}"),
        "key": (401, "400003", "The API key does not exist or site mismatch."),
        "time": (400, "400002", "Invalid KC-API-TIMESTAMP"),
        "sign": (401, "400005", "Invalid KC-API-SIGN"),
        "passphrase": (401, "400004", "Invalid KC-API-PASSPHRASE"),
        "invalid": (400, "400100", "Parameter Error"),
        "unknown_order": (200, "100001", "error.getOrder.orderNotExist"),
        "order_closed": (200, "100004", "Order is in not cancelable state"),
    }
    balance_fields = (
        "currency='USDT' accountEquity=#equity marginBalance=#balance availableBalance=#available "
        "unrealisedPNL=#unrealised positionMargin=#position_margin orderMargin=#order_margin")
    position_fields = (
        "symbol=contract.symbol currentQty=#quantity avgEntryPrice=#entry_price "
        "markPrice=#contract.mark realLeverage=#leverage posMargin=#margin "
        "unrealisedPnl=#unrealised realisedPnl=#realised openingTimestamp=opened_ms")
    order_fields = (
        "id symbol=contract.symbol type='limit' side price size=#quantity filledSize=#filled "
        "avgDealPrice=average createdAt=created_ms updatedAt=updated_ms")
    shows_empty = True
    orders_have_symbols = False
    more_keys = {"v3": {"version": "3"}}
    start_orders = (("XBTUSDTM", "10", "50000"), ("XBTUSDTM", "20", "45000"))
    first_order_id = 245_892_470_114_900_001
    time = int

    def passphrase(self, request, key, _time):
        """Whether it refuses the version of another key is not known; here it does."""
        same = request.header("KC-API-KEY-VERSION") == key.version
        return base64_mac(key.secret, key.passphrase) if same else ""

    def envelope(self, code, text, data):
        return {"code": code, "msg": text} if data is None else {"code": code, "data": data}

    def position(self, call):
        row, = super().position(call)
        return {**row, "isOpen": row["currentQty"] != 0}

    def order(self, call):
        state = self.asked_order(call).state
        return {**super().order(call), "status": "open" if state == "open" else "done",
                "isActive": state == "open", "cancelExist": state == "cancelled"}

    def cancel(self, call):
        """An order that it does not know cannot be cancelled either."""
        if call.text("order") not in self.account.orders:
            raise Refused("order_closed")
        super().cancel(call)
        return {"cancelledOrderIds": [call.text("order")]}
