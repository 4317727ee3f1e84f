"""KuCoin futures, API v1: one-way positions in whole contracts."""

from ..account import now_ms
from ..http_message import wire_bytes
from .call import base64_mac
from .exchange import Exchange


class Kucoin(Exchange):
    name = "kucoin"
    contracts = (("XBTUSDTM", "BTC", "1", "0.001"), ("ETHUSDTM", "ETH", "1", "0.01"))
    routes = {
        "GET /api/v1/account-overview": "balance",
        "GET /api/v1/position": "position",
        "GET /api/v1/orders/(?P<order>[^/]*)": "order",
        "DELETE /api/v1/orders/(?P<order>[^/]*)": "cancel",
    }
    credentials = {"key": "KC-API-KEY", "sign": "KC-API-SIGN", "time": "KC-API-TIMESTAMP",
                   "passphrase": "KC-API-PASSPHRASE"}
    words = {"filled": "done", "cancelled": "done"}
    ok = ("200000", "")
    errors = """
        key 401 400003 The API key does not exist or site mismatch.
        time 400 400002 Invalid KC-API-TIMESTAMP
        sign 401 400005 Invalid KC-API-SIGN
        passphrase 401 400004 Invalid KC-API-PASSPHRASE
        invalid 400 400100 Parameter Error
        unknown_order 200 100001 error.getOrder.orderNotExist
        cancel 200 100004 Order is in not cancelable state
    """
    balance_fields = """currency='USDT' accountEquity=#equity unrealisedPNL=#unrealised
        marginBalance=#balance positionMargin=#position_margin orderMargin=#order_margin
        availableBalance=#available"""
    position_fields = """symbol=contract.symbol currentQty=#quantity avgEntryPrice=#entry_price
        markPrice=#contract.mark markValue=#value marginMode='ISOLATED' crossMode=false
        realLeverage=#leverage posCost=#entry_value posInit=#margin posMargin=#margin
        unrealisedPnl=#unrealised realisedPnl=#realised settleCurrency='USDT'
        openingTimestamp=#opened_ms"""
    order_fields = """id symbol=contract.symbol type='limit' side price size=#quantity
        timeInForce='GTC' reduceOnly=closes leverage filledSize=#filled avgDealPrice=average
        status=state isActive=is_open cancelExist=is_cancelled createdAt=#created_ms
        updatedAt=#time_ms"""
    shapes = {"position": lambda rows: {**rows[0], "currentTimestamp": now_ms()},
              "cancel": lambda row: {"cancelledOrderIds": [row["id"]]}}
    demo_keys = {"kucoin-v3": {"version": "3"}}
    start_quantity = "10"

    def passphrase(self, request, key):
        """Whether it refuses the version of another key is not known; here it does."""
        same = request.header("KC-API-KEY-VERSION") == key.version
        return base64_mac(key, wire_bytes(key.passphrase)) if same else ""
