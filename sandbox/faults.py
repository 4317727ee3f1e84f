"""Faults: what can go wrong between the connector and a host."""

from __future__ import annotations

from dataclasses import dataclass
from typing import List, Optional

from .http_message import Response


@dataclass
class Fault:
    """One thing that goes wrong at `host`; the first that fits a request is used.

    With a `response`, and whenever `unheard`, the host itself never sees the request.
    """

    host: str
    path: str = ""
    """Requests whose target begins so; a certificate is the host's, whatever the path."""
    times: Optional[int] = None
    """How many more requests it spoils; None is all of them."""
    response: Optional[Response] = None
    delivery: str = "whole"
    """whole, half, slow, nothing or hang."""
    unheard: bool = False
    certificate: str = ""
    """unknown_ca or expired."""
    pieces: int = 10
    pause_seconds: float = 0.05

    @classmethod
    def answer(cls, host: str, status: int = 200, body: bytes = b"",
               content_type: str = "application/json", **where) -> "Fault":
        return cls(host, response=Response(status, body, content_type), **where)

    @classmethod
    def html_error(cls, host: str, status: int = 502, **where) -> "Fault":
        page = f"<html>\r\n<head><title>{status}</title></head>\r\n<body>" \
               f"<center><h1>{status}</h1></center><hr><center>nginx</center>\r\n</body></html>\r\n"
        return cls.answer(host, status, page.encode(), "text/html", **where)

    @classmethod
    def json_of_size(cls, host: str, size: int, **where) -> "Fault":
        return cls.answer(host, 200, json_of_size(size), **where)

    @classmethod
    def close(cls, host: str, **where) -> "Fault":
        """The connection ends before the host heard anything."""
        return cls(host, delivery="nothing", unheard=True, **where)

    @classmethod
    def lost_answer(cls, host: str, **where) -> "Fault":
        """The host does what it was asked to, and its answer is lost."""
        return cls(host, delivery="nothing", **where)

    @classmethod
    def cut_off(cls, host: str, **where) -> "Fault":
        """Content-Length promises the whole answer; half of it comes."""
        return cls(host, delivery="half", **where)

    @classmethod
    def slow(cls, host: str, **where) -> "Fault":
        return cls(host, delivery="slow", **where)

    @classmethod
    def hang(cls, host: str, **where) -> "Fault":
        """Silence until the client leaves or the sandbox closes."""
        return cls(host, delivery="hang", unheard=True, **where)

    @classmethod
    def unknown_ca(cls, host: str, **where) -> "Fault":
        return cls(host, certificate="unknown_ca", **where)

    @classmethod
    def expired_certificate(cls, host: str, **where) -> "Fault":
        return cls(host, certificate="expired", **where)


def take_fault(faults: List[Fault], host: str, target: str) -> Optional[Fault]:
    return _take(faults, lambda fault: not fault.certificate and fault.host == host
                 and target.startswith(fault.path))


def take_certificate_fault(faults: List[Fault], host: str) -> str:
    fault = _take(faults, lambda fault: bool(fault.certificate) and fault.host == host)
    return fault.certificate if fault else ""


def json_of_size(size: int) -> bytes:
    """A JSON object of exactly `size` bytes (16 at least) that reads as a success."""
    head, row, tail = b'{"retCode":0,"code":"0","data":[', b'{"px":"50000.1","sz":"0.25"},', b'""]}'
    if size < len(head) + len(tail):
        return b'{"a":"' + b"x" * (size - 8) + b'"}'
    rows, rest = divmod(size - len(head) - len(tail), len(row))
    return head + row * rows + b'"' + b" " * rest + tail[1:]


def _take(faults: List[Fault], fits) -> Optional[Fault]:
    for fault in faults:
        if fault.times != 0 and fits(fault):
            if fault.times is not None:
                fault.times -= 1
            return fault
    return None
