"""Bitget, API v2: USDT-M futures in hedge mode."""

from ..account import now_ms
from .exchange import Exchange


class Bitget(Exchange):
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
    words = {"open": "live", "cancelled": "canceled", True: "YES", False: "NO"}
    ok = ("00000", "success")
    errors = """
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
    balance_fields = """marginCoin='USDT' accountEquity=equity usdtEquity=equity available
        locked=order_margin isolatedMargin=position_margin unrealizedPL=unrealised"""
    position_fields = """symbol=contract.symbol marginCoin='USDT' holdSide=side
        marginMode='isolated' posMode='hedge_mode' total=size openPriceAvg=entry_price
        markPrice=contract.mark leverage marginSize=margin unrealizedPL=unrealised
        achievedProfits='0' cTime=opened_ms uTime=updated_ms"""
    order_fields = """symbol=contract.symbol orderId=id clientOid='' orderType='limit' side
        posSide=position_side marginCoin='USDT' marginMode='isolated' posMode='hedge_mode' leverage
        force='gtc' reduceOnly=closes price size=quantity baseVolume=filled priceAvg=average?
        fee=-fee state cTime=created_ms uTime=time_ms"""
    done_fields = "orderId=id clientOid=''"
    shapes = {"balance": lambda row: [row]}
    hedged = True
    start_quantity = "0.01"

    def envelope(self, code, text, data):
        return {"code": code, "msg": text, "requestTime": now_ms(), "data": data}
