"""Every host that the sandbox answers for, and nothing else."""

BYBIT = "api.bybit.com"
OKX_GLOBAL = "www.okx.com"
OKX_EEA = "eea.okx.com"
OKX_US = "us.okx.com"
GATE = "api.gateio.ws"
BINGX = "open-api.bingx.com"
KUCOIN = "api-futures.kucoin.com"
BITGET = "api.bitget.com"
RELAY = "relay.morvane.example"
DOWNLOAD = "download.morvane.example"
CONTROL = "sandbox.control"

BY_EXCHANGE = {"bybit": (BYBIT,), "okx": (OKX_GLOBAL, OKX_EEA, OKX_US), "gate": (GATE,),
               "bingx": (BINGX,), "kucoin": (KUCOIN,), "bitget": (BITGET,)}
BY_SCHEME = {"https": (*sum(BY_EXCHANGE.values(), ()), RELAY, DOWNLOAD),
             "http": (RELAY, DOWNLOAD, CONTROL)}
