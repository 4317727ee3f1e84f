"""Faults: what can go wrong between the connector and a host."""

from dataclasses import dataclass
from typing import Optional

from .http_message import Response


@dataclass
class Fault:
    """One thing that goes wrong at `host`; the first that fits a request is used.

    With a `response`, and whenever `unheard`, the host itself never sees the request.
    """

    host: str
    path: str = ""  # of requests whose target begins so; a certificate is the host's
    times: Optional[int] = None  # how many more requests it spoils; None is all of them
    response: Optional[Response] = None
    delivery: str = "whole"  # or half, slow, nothing, endless
    unheard: bool = False
    unvouched: bool = False  # nobody vouches for the host's certificate
    pieces: int = 10
    pause_seconds: float = 0.05

    @classmethod
    def answer(cls, host: str, status: int = 200, body: bytes = b"",
               content_type: str = "application/json", **where) -> "Fault":
        return cls(host, response=Response(status, body, content_type), **where)

    @classmethod
    def close(cls, host: str, **where) -> "Fault":
        """The connection ends before the host heard anything."""
        return cls(host, delivery="nothing", unheard=True, **where)

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
    def endless(cls, host: str, status: int = 200, body: bytes = b"x" * 4096,
                **where) -> "Fault":
        """`body` again and again until the client leaves or the sandbox closes."""
        return cls(host, delivery="endless", response=Response(status, body), **where)

    @classmethod
    def slow(cls, host: str, **where) -> "Fault":
        return cls(host, delivery="slow", **where)

    @classmethod
    def unknown_ca(cls, host: str, **where) -> "Fault":
        return cls(host, unvouched=True, **where)

    def fits(self, host: str, target: Optional[str]) -> bool:
        """Without a target it is about the certificate."""
        return self.host == host and self.times != 0 and self.unvouched == (target is None) \
            and (target or "").startswith("" if target is None else self.path)


def take_fault(faults: list[Fault], host: str, target: Optional[str] = None) -> Optional[Fault]:
    fault = next((one for one in faults if one.fits(host, target)), None)
    if fault and fault.times is not None:
        fault.times -= 1
    return fault
