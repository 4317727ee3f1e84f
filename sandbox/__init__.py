"""A small stand-in for the outside world: six exchanges, the relay, the download host."""

from .box import Sandbox
from .faults import Fault
from .http_message import Request, Response
from .keys import ApiKey

__all__ = ["ApiKey", "Fault", "Request", "Response", "Sandbox"]
