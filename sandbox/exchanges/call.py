"""A request as an operation reads it, and the arithmetic of signatures."""

import base64
import hmac
import json
import re
from decimal import Decimal
from typing import Any, Optional, Union

from ..records import Refused
from ..http_message import Request, wire_bytes
from ..keys import ApiKey


class Call:
    """Its parameters come from path, query and JSON body alike, by our words or their own names."""

    def __init__(self, request: Request, path_names: dict[str, str], names: dict[str, str],
                 choices: dict[str, tuple[str, ...]], key: ApiKey) -> None:
        self.key, self._names = key, names
        self._values: dict[str, Any] = {**request.parameters, **_document(request), **path_names}
        for name, known in choices.items():
            if self.text(name, known[0]) not in known:
                raise Refused("invalid", name)

    def text(self, word: str, default: Optional[str] = None) -> str:
        """Without a default it must be there."""
        name = self._names.get(word, word)
        value = self._values.get(name)
        if value in (None, "") or isinstance(value, (bool, dict, list)):
            if default is None:
                raise Refused("missing", name)
            return default
        return str(value)

    def number(self, word: str, default: Optional[str] = None) -> Decimal:
        value = self.text(word, default)
        if not re.fullmatch(r"-?[0-9]{1,18}(\.[0-9]{1,18})?", value):
            raise Refused("invalid", self._names.get(word, word))
        return Decimal(value)

    def flag(self, word: str) -> bool:
        return self._values.get(self._names.get(word, word)) is True

    def page(self, rows: list[Any], most: int) -> list[Any]:
        """The newest of them first, as many as the limit says."""
        return rows[::-1][:min(int(self.number("limit", str(most))), most)]


def mac(algorithm: str, secret: str, *pieces: Union[str, bytes]) -> bytes:
    """HMAC of what the pieces are on the wire, one after another."""
    message = b"".join(wire_bytes(piece) if isinstance(piece, str) else piece
                       for piece in pieces)
    return hmac.new(wire_bytes(secret), message, algorithm).digest()


def base64_mac(secret: str, *pieces: Union[str, bytes]) -> str:
    return base64.b64encode(mac("sha256", secret, *pieces)).decode("ascii")


def _document(request: Request) -> dict[str, Any]:
    if not request.body:
        return {}
    try:
        document = json.loads(request.body.decode("utf-8"), parse_float=Decimal)
    except (ValueError, RecursionError):
        document = None
    if not isinstance(document, dict) or \
            "application/json" not in (request.header("Content-Type") or ""):
        raise Refused("bad_body")
    return document
