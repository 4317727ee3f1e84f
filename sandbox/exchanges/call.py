"""A call as an exchange hears it: who calls, and with which parameters."""

import base64
import hmac
import json
import re
from dataclasses import dataclass
from decimal import Decimal
from typing import Any, Optional

from ..account import Refused
from ..http_message import Request, wire_bytes


@dataclass(frozen=True)
class ApiKey:
    key: str
    secret: str
    passphrase: str = ""
    site: str = ""  # the one host where the key exists; the exchange's first when empty
    version: str = "2"
    can_trade: bool = True
    can_withdraw: bool = False


class Call:
    """The parameters of path, query and JSON body alike, by our words or their own names."""

    def __init__(self, request: Request, path_names: dict[str, str], names: dict[str, str],
                 key: ApiKey) -> None:
        self.key, self._names = key, names
        try:
            document = json.loads(request.body or b"{}", parse_float=Decimal)
            self._values: dict[str, Any] = {**request.parameters, **document, **path_names}
        except (ValueError, TypeError, RecursionError):
            raise Refused("invalid", "body") from None

    def text(self, word: str, default: Optional[str] = None) -> str:
        """Without a default it must be there."""
        name = self._names.get(word, word)
        value = str(self._values.get(name, "")) or default
        if value is None:
            raise Refused("missing", name)
        return value

    def number(self, word: str) -> Decimal:
        value = self.text(word)
        if not re.fullmatch(r"-?[0-9]{1,18}(\.[0-9]{1,18})?", value):
            raise Refused("invalid", word)
        return Decimal(value)


def mac(algorithm: str, key: ApiKey, message: bytes) -> bytes:
    return hmac.new(wire_bytes(key.secret), message, algorithm).digest()


def base64_mac(key: ApiKey, message: bytes) -> str:
    return base64.b64encode(mac("sha256", key, message)).decode("ascii")
