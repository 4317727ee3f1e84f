"""HTTP/1.1 messages: what came over the wire, kept as it came, and what goes back."""

import http.client
import json
from dataclasses import dataclass, field
from typing import Any, Optional
from urllib.parse import parse_qsl


@dataclass
class Request:
    """A request as received; bytes that are not UTF-8 survive as surrogates."""

    scheme: str
    host: str
    method: str
    target: str  # path and query exactly as on the wire
    headers: list[tuple[str, str]]
    body: bytes = b""

    def __post_init__(self) -> None:
        self.path, _, self.query = self.target.partition("?")

    def header(self, name: str) -> Optional[str]:
        wanted = name.lower()
        return next((value for key, value in self.headers if key.lower() == wanted), None)

    @property
    def parameters(self) -> dict[str, str]:
        return dict(parse_qsl(self.query, keep_blank_values=True, errors="surrogateescape"))


@dataclass
class Response:
    status: int = 200
    body: bytes = b""
    content_type: str = "application/json"
    headers: list[tuple[str, str]] = field(default_factory=list)

    @classmethod
    def of_json(cls, document: Any, status: int = 200) -> "Response":
        text = json.dumps(document, ensure_ascii=False, separators=(",", ":"))
        return cls(status, wire_bytes(text))

    def head(self, length: Optional[int]) -> bytes:
        lines = [f"HTTP/1.1 {self.status} {http.client.responses.get(self.status, 'Unknown')}",
                 f"Content-Type: {self.content_type}", "Connection: close"]
        lines += [f"{name}: {value}" for name, value in self.headers]
        lines += [] if length is None else [f"Content-Length: {length}"]
        return wire_bytes("\r\n".join(lines) + "\r\n\r\n")


def wire_text(raw: bytes) -> str:
    return raw.decode("utf-8", "surrogateescape")


def wire_bytes(text: str) -> bytes:
    return text.encode("utf-8", "surrogateescape")
