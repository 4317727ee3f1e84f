"""The clock that the exchanges live by."""

import time
from dataclasses import dataclass


@dataclass
class Clock:
    """Ours, moved by `offset_ms`."""

    offset_ms: int = 0

    def now_ms(self) -> int:
        return time.time_ns() // 1_000_000 + self.offset_ms
