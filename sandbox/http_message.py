"""HTTP/1.1 messages: what came over the wire, kept as it came, and what goes back."""

from __future__ import annotations

import http
import json
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, List, Optional, Tuple
from urllib.parse import parse_qsl

HEAD_LIMIT = 4 << 20
CHUNK = 1 << 16


@dataclass
class Request:
    """A request as received; bytes that are not UTF-8 survive as surrogates."""

    scheme: str
    host: str
    method: str
    target: str
    """Path and query exactly as on the wire."""
    headers: List[Tuple[str, str]]
    body: bytes = b""

    def header(self, name: str) -> Optional[str]:
        wanted = name.lower()
        return next((value for key, value in self.headers if key.lower() == wanted), None)

    @property
    def path(self) -> str:
        return self.target.partition("?")[0]

    @property
    def query(self) -> str:
        return self.target.partition("?")[2]

    @property
    def parameters(self) -> Dict[str, str]:
        return dict(parse_qsl(self.query, keep_blank_values=True, errors="surrogateescape"))


@dataclass
class Response:
    status: int = 200
    body: bytes = b""
    content_type: str = "application/json"
    headers: List[Tuple[str, str]] = field(default_factory=list)

    @classmethod
    def of_json(cls, document: Any, status: int = 200) -> "Response":
        text = json.dumps(document, ensure_ascii=False, separators=(",", ":"))
        return cls(status, wire_bytes(text))

    def head(self) -> bytes:
        lines = [f"HTTP/1.1 {self.status} {reason_phrase(self.status)}",
                 f"Content-Type: {self.content_type}",
                 f"Content-Length: {len(self.body)}",
                 "Connection: close"]
        lines += [f"{name}: {value}" for name, value in self.headers]
        return wire_bytes("\r\n".join(lines) + "\r\n\r\n")


def wire_text(raw: bytes) -> str:
    return raw.decode("utf-8", "surrogateescape")


def wire_bytes(text: str) -> bytes:
    return text.encode("utf-8", "surrogateescape")


def reason_phrase(status: int) -> str:
    try:
        return http.HTTPStatus(status).phrase
    except ValueError:
        return "Unknown"


def read_request(connection) -> Optional[Request]:
    """The next request of a connection; None when the client left or spoke no HTTP."""
    head, separator, body = _read_head(connection)
    if not separator:
        return None
    first, *lines = head.split(b"\r\n")
    words = wire_text(first).split(" ")
    if len(words) != 3 or not words[2].startswith("HTTP/1."):
        return None
    headers = [_header(line) for line in lines]
    request = Request("", "", words[0], words[1], headers)
    if (request.header("Expect") or "").lower() == "100-continue":
        connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
    length = request.header("Content-Length") or "0"
    if not length.isdigit():
        return None
    return _with_body(request, body, int(length), connection.recv)


def _read_head(connection) -> Tuple[bytes, bytes, bytes]:
    received = bytearray()
    while b"\r\n\r\n" not in received and len(received) < HEAD_LIMIT:
        chunk = connection.recv(CHUNK)
        if not chunk:
            break
        received += chunk
    return bytes(received).partition(b"\r\n\r\n")


def _header(line: bytes) -> Tuple[str, str]:
    name, _, value = line.partition(b":")
    return wire_text(name), wire_text(value.strip(b" \t"))


def _with_body(request: Request, start: bytes, length: int,
               receive: Callable[[int], bytes]) -> Optional[Request]:
    body = bytearray(start)
    while len(body) < length:
        chunk = receive(CHUNK)
        if not chunk:
            return None
        body += chunk
    request.body = bytes(body)
    return request
