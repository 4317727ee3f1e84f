"""The six exchanges."""

from .bingx import Bingx
from .bitget import Bitget
from .bybit import Bybit
from .gate import Gate
from .kucoin import Kucoin
from .okx import Okx

EXCHANGES = (Bybit, Okx, Gate, Bingx, Kucoin, Bitget)
