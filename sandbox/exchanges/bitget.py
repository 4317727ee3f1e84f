"""Bitget, API v2: USDT-M futures in hedge mode."""

from .exchange import Exchange

MIX = "/api/v2/mix"


class Bitget(Exchange):
    name = "bitget"
    contracts = (("BTCUSDT", "BTC", "0.0001", "1"), ("ETHUSDT", "ETH", "0.01", "1"))
    routes = [
        ("GET", MIX + "/account/accounts", "balance"),
        ("GET", MIX + "/position/single-position", "position"),
        ("GET", MIX + "/order/detail", "order"),
        ("POST", MIX + "/order/cancel-order", "cancel"),
    ]
    credentials = {"key": "ACCESS-KEY", "sign": "ACCESS-SIGN",
                   "passphrase": "ACCESS-PASSPHRASE", "time": "ACCESS-TIMESTAMP"}
    window_ms = (30_000, 30_000)
    names = {"order": "orderId"}
    choices = {"productType": ("USDT-FUTURES",), "marginCoin": ("USDT",)}
    words = {"open": "live", "cancelled": "canceled"}
    ok = ("00000", "success")
    errors = {
        "not_found": (404, "40404", "Request URL NOT FOUND"),
        "no_header ACCESS-KEY": (400, "40006", "Invalid ACCESS_KEY"),
        "no_header ACCESS-SIGN": (400, "40002", "ACCESS_SIGN cannot be empty"),
        "key": (400, "40037", "Apikey does not exist"),
        "time": (400, "40008", "Request timestamp expired"),
        "passphrase": (400, "40012", "apikey/password is incorrect"),
        "sign": (400, "40009", "sign signature error"),
        "bad_body": (400, "40017", "Parameter verification failed"),
        "missing": (400, "40019", "Parameter {} cannot be empty"),
        "invalid": (400, "40034", "Parameter {} does not exist"),
        "unknown_order": (400, "40109", "The data of the order cannot be found, please confirm the "
                                        "order number"),
        "nothing_to_cancel": (400, "40768", "Order does not exist"),
        "order_closed": (400, "22001", "No order to cancel"),
    }
    balance_fields = ("marginCoin='USDT' accountEquity=equity available locked=order_margin "
                      "unrealizedPL=unrealised isolatedMargin=position_margin")
    position_fields = (
        "symbol=contract.symbol marginCoin='USDT' holdSide=side total=size "
        "openPriceAvg=entry_price markPrice=contract.mark leverage marginSize=margin "
        "unrealizedPL=unrealised achievedProfits=profit deductedFee=fees cTime=opened_ms "
        "uTime=updated_ms")
    order_fields = (
        "symbol=contract.symbol orderId=id orderType='limit' side posSide=position_side price "
        "size=quantity baseVolume=filled priceAvg=average fee=-fee state cTime=created_ms "
        "uTime=updated_ms")
    done_fields = "orderId=id"
    shapes = {"balance": lambda row: [row]}
    cancels_unknown = "nothing_to_cancel"
    hedged = True
    start_orders = (("BTCUSDT", "0.01", "50000"), ("BTCUSDT", "0.02", "45000"))

    def envelope(self, code, text, data):
        return {"code": code, "msg": text, "requestTime": self.now_ms(), "data": data}
