"""HTTP/1.1 messages, kept as they came over the wire, and what can go wrong with them."""

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

    def header(self, name: str) -> str:
        """Empty when there is none."""
        return next((text for one, text in self.headers if one.lower() == name.lower()), "")

    @property
    def parameters(self) -> dict[str, str]:
        return dict(parse_qsl(self.query, keep_blank_values=True, errors="surrogateescape"))


@dataclass
class Response:
    status: int = 200
    body: bytes = b""
    headers: list[tuple[str, str]] = field(default_factory=list)

    @classmethod
    def of_json(cls, document: Any, status: int = 200) -> "Response":
        text = json.dumps(document, ensure_ascii=False, separators=(",", ":"))
        return cls(status, wire_bytes(text), [("Content-Type", "application/json")])


@dataclass
class Fault:
    """What goes wrong at `host`; the first that fits a request is used.

    An answer that never comes was still carried out by the host, unless there is a `response`.
    """

    host: str
    path: str = ""  # of requests whose target begins so
    times: Optional[int] = None  # how many more requests it spoils; None is all of them
    response: Optional[Response] = None  # stands for the host, which never sees the request
    delivery: str = "whole"  # or half, though all is promised; never; endless, again and again

    @classmethod
    def answer(cls, host: str, status: int = 200, body: bytes = b"", **where) -> "Fault":
        return cls(host, response=Response(status, body), **where)

    @classmethod
    def down(cls, host: str, **where) -> "Fault":
        """The connection ends before the host heard anything."""
        return cls(host, response=Response(), delivery="never", **where)

    def fits(self, request: Request) -> bool:
        return (self.host == request.host and request.target.startswith(self.path)
                and self.times != 0)


def wire_text(raw: bytes) -> str:
    return raw.decode("utf-8", "surrogateescape")


def wire_bytes(text: str) -> bytes:
    return text.encode("utf-8", "surrogateescape")
