"""BingX, swap API v2 and v3: perpetuals whose requests are signed in the query."""

from ..http_message import wire_bytes
from .call import mac
from .exchange import Exchange


class Bingx(Exchange):
    name = "bingx"
    contracts = (("BTC-USDT", "BTC", "0.0001", "1"), ("ETH-USDT", "ETH", "0.01", "1"))
    routes = {
        "GET /openApi/swap/v3/user/balance": "balance_list",
        "GET /openApi/swap/v2/user/balance": "balance",
        "GET /openApi/swap/v2/user/positions": "position",
        "GET /openApi/swap/v2/trade/order": "order",
        "DELETE /openApi/swap/v2/trade/order": "cancel",
    }
    credentials = {"key": "X-BX-APIKEY", "time": "timestamp", "sign": "signature"}
    names = {"order": "orderId"}
    words = {"buy": "BUY", "sell": "SELL", "long": "LONG", "short": "SHORT", "open": "NEW",
             "filled": "FILLED", "cancelled": "CANCELLED"}
    errors = """
        key 200 100413 Incorrect apiKey
        time 200 100421 Null timestamp or timestamp mismatch, try to run our sample code
        sign 200 100001 Signature verification failed due to signature mismatch
        invalid 200 109400 Invalid parameters, err:{}
        symbol 200 109425 SYMBOL not exist, please verify it in api
        unknown_order 200 109421 order does not exist
        cancel 200 109421 order does not exist
    """
    balance_fields = """asset='USDT' balance equity unrealizedProfit=unrealised
        realisedProfit=realised availableMargin=available usedMargin=position_margin
        freezedMargin=order_margin"""
    position_fields = """symbol=contract.symbol currency='USDT' positionSide=side positionAmt=size
        isolated=true avgPrice=entry_price markPrice=contract.mark positionValue=value
        leverage=#leverage margin initialMargin=margin unrealizedProfit=unrealised
        realisedProfit=realised createTime=#opened_ms updateTime=#updated_ms"""
    order_fields = """symbol=contract.symbol orderId=#id type='LIMIT' side
        positionSide=position_side reduceOnly=closes price origQty=quantity executedQty=filled
        avgPrice=average commission=-fee status=state time=#created_ms updateTime=#time_ms"""
    shapes = {"balance": lambda row: {"balance": row}, "balance_list": lambda row: [row],
              "order": lambda row: {"order": row}, "cancel": lambda row: {"order": row}}
    hedged = True
    start_quantity = "0.01"
    balance_list = Exchange.balance

    def credential(self, request, part):
        """All but the key are in the query, the signature last."""
        if part == "key":
            return super().credential(request, part)
        signed, _, signature = request.query.rpartition("&signature=")
        return signature if part == "sign" else signed.rpartition("timestamp=")[2]

    def sign(self, request, key, _time):
        signed = request.query.rpartition("&signature=")[0]
        return mac("sha256", key, wire_bytes(signed)).hex()

    def envelope(self, code, text, data):
        return {"code": int(code), "msg": text, **({} if data is None else {"data": data})}
