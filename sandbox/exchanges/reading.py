"""BingX, KuCoin futures and Bitget: exchanges that are read, and whose orders are cancelled."""

from ..account import now_ms
from ..http_message import wire_bytes
from .exchange import Exchange, base64_mac, mac


class Bingx(Exchange):
    """BingX, swap API v2 and v3: perpetuals whose requests are signed in the query."""

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
    balance_fields = "asset='USDT' balance equity availableMargin=available"
    position_fields = """symbol=contract.symbol positionSide=side positionAmt=size
        avgPrice=entry_price markPrice=contract.mark leverage=#leverage margin
        unrealizedProfit=unrealised realisedProfit=realised createTime=#opened_ms
        updateTime=#updated_ms"""
    order_fields = """symbol=contract.symbol orderId=#id type='LIMIT' side
        positionSide=position_side price origQty=quantity executedQty=filled avgPrice=average
        commission=-fee status=state time=#created_ms updateTime=#updated_ms"""
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


class Kucoin(Exchange):
    """KuCoin futures, API v1: one-way positions in whole contracts."""

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
        no_header 401 400001 Please check the header of your request for {}
        key 401 400003 The API key does not exist or site mismatch.
        time 400 400002 Invalid KC-API-TIMESTAMP
        sign 401 400005 Invalid KC-API-SIGN
        passphrase 401 400004 Invalid KC-API-PASSPHRASE
        invalid 400 400100 Parameter Error
        unknown_order 200 100001 error.getOrder.orderNotExist
        cancel 200 100004 Order is in not cancelable state
    """
    balance_fields = """currency='USDT' accountEquity=#equity marginBalance=#balance
        availableBalance=#available"""
    position_fields = """symbol=contract.symbol currentQty=#quantity avgEntryPrice=#entry_price
        markPrice=#contract.mark realLeverage=#leverage posMargin=#margin unrealisedPnl=#unrealised
        realisedPnl=#realised openingTimestamp=#opened_ms"""
    order_fields = """id symbol=contract.symbol type='limit' side price size=#quantity
        filledSize=#filled avgDealPrice=average status=state createdAt=#created_ms
        updatedAt=#updated_ms"""
    shapes = {"position": lambda rows: rows[0],
              "cancel": lambda row: {"cancelledOrderIds": [row["id"]]}}
    demo_keys = {"kucoin-v3": {"version": "3"}}
    start_quantity = "10"

    def passphrase(self, request, key):
        """Whether it refuses the version of another key is not known; here it does."""
        same = request.header("KC-API-KEY-VERSION") == key.version
        return base64_mac(key, wire_bytes(key.passphrase)) if same else ""


class Bitget(Exchange):
    """Bitget, API v2: USDT-M futures in hedge mode."""

    name = "bitget"
    contracts = (("BTCUSDT", "BTC", "0.0001", "1"), ("ETHUSDT", "ETH", "0.01", "1"))
    routes = {
        "GET /api/v2/mix/account/accounts": "balance",
        "GET /api/v2/mix/position/single-position": "position",
        "GET /api/v2/mix/order/detail": "order",
        "POST /api/v2/mix/order/cancel-order": "cancel",
    }
    credentials = {"key": "ACCESS-KEY", "sign": "ACCESS-SIGN",
                   "passphrase": "ACCESS-PASSPHRASE", "time": "ACCESS-TIMESTAMP"}
    window_ms = (30_000, 30_000)
    names = {"order": "orderId"}
    words = {"open": "live", "cancelled": "canceled"}
    ok = ("00000", "success")
    errors = """
        no_header 400 40002 ACCESS_SIGN cannot be empty
        key 400 40037 Apikey does not exist
        time 400 40008 Request timestamp expired
        passphrase 400 40012 apikey/password is incorrect
        sign 400 40009 sign signature error
        missing 400 40019 Parameter {} cannot be empty
        invalid 400 40034 Parameter {} does not exist
        unknown_order 400 40109 The data of the order cannot be found, please confirm the order \
            number
        cancel/unknown 400 40768 Order does not exist
        cancel 400 22001 No order to cancel
    """
    balance_fields = "marginCoin='USDT' accountEquity=equity available"
    position_fields = """symbol=contract.symbol marginCoin='USDT' holdSide=side total=size
        openPriceAvg=entry_price markPrice=contract.mark leverage marginSize=margin
        unrealizedPL=unrealised achievedProfits='0' cTime=opened_ms uTime=updated_ms"""
    order_fields = """symbol=contract.symbol orderId=id orderType='limit' side posSide=position_side
        price size=quantity baseVolume=filled priceAvg=average fee=-fee state cTime=created_ms
        uTime=updated_ms"""
    done_fields = "orderId=id"
    shapes = {"balance": lambda row: [row]}
    hedged = True
    start_quantity = "0.01"

    def envelope(self, code, text, data):
        return {"code": code, "msg": text, "requestTime": now_ms(), "data": data}
