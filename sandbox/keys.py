"""API keys as their owners made them on the exchanges' sites."""

from dataclasses import dataclass

FOREIGN_LETTERS_KEY = "clé-Größe-鍵"
FOREIGN_LETTERS_SECRET = "Schlüssel-秘密"
FOREIGN_LETTERS_PASSPHRASE = "Пароль"


@dataclass(frozen=True)
class ApiKey:
    key: str
    secret: str
    passphrase: str = ""
    site: str = ""  # the one host where the key exists; the exchange's first when empty
    version: str = "2"
    can_trade: bool = True
    can_withdraw: bool = False


def demo_keys(exchange: str, passphrase: bool, more: dict[str, dict]) -> list[ApiKey]:
    """The exchange's demo key, `more` by what they are called, and one beyond ASCII."""
    keys = [ApiKey(f"demo-{exchange}{kind}-key", f"demo-{exchange}{kind}-secret",
                   "demo-passphrase" if passphrase else "", **traits)
            for kind, traits in (("", {}), *((f"-{kind}", more[kind]) for kind in more))]
    return keys + [ApiKey(FOREIGN_LETTERS_KEY, FOREIGN_LETTERS_SECRET,
                          FOREIGN_LETTERS_PASSPHRASE if passphrase else "")]
