"""A small stand-in for the outside world: six exchanges, the relay, the download host."""

from . import hosts
from .box import Sandbox
from .http_message import Fault

__all__ = ["Fault", "Sandbox", "hosts"]
