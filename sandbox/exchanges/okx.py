"""OKX, API v5: USDT-margined swaps in long/short mode, three sites with keys of their own."""

from datetime import datetime

from .. import hosts
from ..account import now_ms
from .exchange import Exchange


class Okx(Exchange):
    name = "okx"
    contracts = (("BTC-USDT-SWAP", "BTC", "0.01", "0.01"), ("ETH-USDT-SWAP", "ETH", "0.01", "0.1"))
    routes = {
        "GET /api/v5/account/config": "key",
        "GET /api/v5/account/balance": "balance",
        "GET /api/v5/account/positions": "position",
        "GET /api/v5/trade/order": "order",
        "POST /api/v5/trade/cancel-order": "cancel",
        "POST /api/v5/account/set-leverage": "leverage",
        "POST /api/v5/trade/order": "place",
        "GET /api/v5/account/bills": "funding",
        "GET /api/v5/account/positions-history": "closings",
    }
    credentials = {"key": "OK-ACCESS-KEY", "passphrase": "OK-ACCESS-PASSPHRASE",
                   "sign": "OK-ACCESS-SIGN", "time": "OK-ACCESS-TIMESTAMP"}
    window_ms = (30_000, 30_000)
    names = {"symbol": "instId", "order": "ordId", "quantity": "sz", "price": "px",
             "leverage": "lever", "position_side": "posSide"}
    words = {"buy": "buy", "sell": "sell", "open": "live", "cancelled": "canceled",
             "funding": "8", True: "true", False: "false"}
    ok = ("0", "")
    errors = """
        key 401 50111 Invalid OK-ACCESS-KEY
        key/elsewhere 401 50119 API key doesn't exist
        time 401 50102 Timestamp request expired
        passphrase 401 50105 Request header "OK-ACCESS-PASSPHRASE" incorrect
        sign 401 50113 Invalid signature.
        missing 400 50014 Parameter {} can not be empty
        missing/ordId 400 51003 Either client order ID or order ID is required.
        invalid 400 51000 Parameter {} error
        symbol 200 51001 Instrument ID doesn't exist.
        no_balance 200 51008 Order failed. Insufficient USDT margin in account
        quantity 200 51121 Order quantity must be a multiple of the lot size.
        no_position 200 51169 Order failed because you don't have any positions in this \
            direction to reduce or close.
        cancel 200 51400 Cancellation failed as the order has been filled, canceled or does \
            not exist.
        unknown_order 200 51603 Order does not exist
    """
    balance_fields = """ccy='USDT' eq=equity cashBal=balance availBal=available availEq=available
        frozenBal=margin ordFrozen=order_margin upl=unrealised"""
    shapes = {"balance": lambda coin: {"totalEq": coin["eq"], "uTime": str(now_ms()),
                                       "details": [{**coin, "uTime": str(now_ms())}]}}
    position_fields = """instType='SWAP' instId=contract.symbol posSide=side pos=size
        avgPx=entry_price markPx=contract.mark lever=leverage mgnMode='isolated' margin imr=''
        notionalUsd=value ccy='USDT' upl=unrealised realizedPnl=realised cTime=opened_ms
        uTime=updated_ms"""
    order_fields = """instType='SWAP' ordId=id clOrdId='' instId=contract.symbol ordType='limit'
        tdMode='isolated' lever=leverage side posSide=position_side reduceOnly=closes px=price
        sz=quantity accFillSz=filled avgPx=average? fee=-fee feeCcy='USDT' state
        cTime=created_ms uTime=time_ms"""
    done_fields = "ordId=id clOrdId='' sCode='0' sMsg=''"
    leverage_fields = "instId=contract.symbol lever=leverage mgnMode='isolated'"
    ledger_fields = """instId=contract.symbol ccy='USDT' type=kind pnl=change fee='0'
        balChg=change bal=balance ts=time_ms"""
    closing_fields = """instId=contract.symbol direction=position_side openAvgPx=entry_price
        closeAvgPx=average closeTotalPos=closed pnl=profit fee=-fees realizedPnl=realised
        lever=leverage uTime=time_ms"""
    hedged = True
    demo_keys = {"okx-eea": {"site": hosts.OKX_EEA}, "okx-us": {"site": hosts.OKX_US}}

    def moment_ms(self, text):
        """Of a time such as 2025-03-07T09:05:03.042Z."""
        try:
            return int(datetime.strptime(text, "%Y-%m-%dT%H:%M:%S.%f%z").timestamp() * 1000)
        except ValueError:
            return -1

    def envelope(self, code, text, data):
        """Without data where nobody is let in; as a row of data where an order fails."""
        if code.startswith("501"):
            return {"msg": text, "code": code}
        if code in ("51008", "51121", "51169", "51400"):
            data = {"ordId": "", "sCode": code, "sMsg": text}
            code, text = "1", "All operations failed"
        rows = data if isinstance(data, list) else [data] if data else []
        return {"code": code, "data": rows, "msg": text}

    def key(self, _call):
        return {"acctLv": "2", "posMode": "long_short_mode", "perm": "read_only,trade"}
