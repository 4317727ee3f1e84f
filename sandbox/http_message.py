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
    """One thing that goes wrong at `host`; the first that fits a request is used.

    With a `response` the host itself never sees the request.
    """

    host: str
    path: str = ""  # of requests whose target begins so; a certificate is the host's
    times: Optional[int] = None  # how many more requests it spoils; None is all of them
    response: Optional[Response] = None
    delivery: str = "whole"  # or half, nothing, endless
    unvouched: bool = False  # nobody vouches for the host's certificate

    def fits(self, request: Request) -> bool:
        return (self.host == request.host and request.target.startswith(self.path)
                and self.times != 0)

    @classmethod
    def answer(cls, host: str, status: int = 200, body: bytes = b"", **where) -> "Fault":
        return cls(host, response=Response(status, body), **where)

    @classmethod
    def close(cls, host: str, **where) -> "Fault":
        """The connection ends before the host heard anything."""
        return cls(host, response=Response(), delivery="nothing", **where)

    @classmethod
    def lost_answer(cls, host: str, **where) -> "Fault":
        """The host does what it was asked to, and its answer is lost."""
        return cls(host, delivery="nothing", **where)

    @classmethod
    def cut_off(cls, host: str, status: int = 0, body: bytes = b"", **where) -> "Fault":
        """The whole answer is promised and half of it comes: the host's own, or this one."""
        response = Response(status or 200, body) if status or body else None
        return cls(host, delivery="half", response=response, **where)

    @classmethod
    def endless(cls, host: str, status: int = 200, body: bytes = b"x" * 4096, **where) -> "Fault":
        """`body` again and again until the client leaves."""
        return cls(host, delivery="endless", response=Response(status, body), **where)

    @classmethod
    def unknown_ca(cls, host: str, **where) -> "Fault":
        return cls(host, unvouched=True, **where)


def wire_text(raw: bytes) -> str:
    return raw.decode("utf-8", "surrogateescape")


def wire_bytes(text: str) -> bytes:
    return text.encode("utf-8", "surrogateescape")
