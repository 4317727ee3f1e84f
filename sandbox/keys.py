"""The API keys that the sandbox's exchanges know."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Dict, List, Optional

from . import hosts

PASSPHRASE = "demo-passphrase"
WITH_PASSPHRASE = ("okx", "kucoin", "bitget")

FOREIGN_LETTERS_KEY = "clé-Größe-鍵"
FOREIGN_LETTERS_SECRET = "Schlüssel-秘密"
FOREIGN_LETTERS_PASSPHRASE = "Пароль"


@dataclass(frozen=True)
class ApiKey:
    """A key as its owner made it on the exchange's site."""

    key: str
    secret: str
    passphrase: str = ""
    site: Optional[str] = None
    """The one host where the key exists; None is the exchange's first host."""
    version: str = "2"
    can_trade: bool = True
    can_withdraw: bool = False


def demo_keys() -> Dict[str, List[ApiKey]]:
    """A fresh copy per sandbox, so that a test may add its own."""
    keys = {exchange: [_named(exchange), _foreign_letters(exchange)]
            for exchange in hosts.BY_EXCHANGE}
    keys["bybit"] += [_named("bybit", "read", can_trade=False),
                      _named("bybit", "withdraw", can_withdraw=True)]
    keys["okx"] += [_named("okx", "eea", site=hosts.OKX_EEA),
                    _named("okx", "us", site=hosts.OKX_US)]
    keys["kucoin"] += [_named("kucoin", "v2"), _named("kucoin", "v3", version="3")]
    return keys


def _named(exchange: str, kind: str = "", **traits) -> ApiKey:
    stem = "-".join(filter(None, ("demo", exchange, kind)))
    passphrase = PASSPHRASE if exchange in WITH_PASSPHRASE else ""
    return ApiKey(stem + "-key", stem + "-secret", passphrase, **traits)


def _foreign_letters(exchange: str) -> ApiKey:
    passphrase = FOREIGN_LETTERS_PASSPHRASE if exchange in WITH_PASSPHRASE else ""
    return ApiKey(FOREIGN_LETTERS_KEY, FOREIGN_LETTERS_SECRET, passphrase)
