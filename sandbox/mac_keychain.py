"""On a Mac: keeps the sandbox away from the user's own keychain items."""

import os
import subprocess
import sys

from . import hosts


class KeychainInUse(Exception):
    """The user's own keychain holds items of the connector."""


class MacKeychain:
    """Refuses to begin beside items of the connector; `close` removes what it has stored since.

    Does nothing anywhere but on a Mac.
    """

    def __init__(self, home: str) -> None:
        self._homes = (home, os.environ.get("HOME", home))
        self._exchanges = hosts.BY_EXCHANGE if sys.platform == "darwin" else ()
        held = [one for one in self._exchanges if self._security("find", one, self._homes[1])]
        if held:
            raise KeychainInUse("your keychain holds the connector's own credentials for "
                                f"{', '.join(held)}; the sandbox does not start beside them")

    def close(self) -> None:
        for exchange in self._exchanges:
            for home in self._homes:
                self._security("delete", exchange, home)

    def _security(self, verb: str, exchange: str, home: str) -> bool:
        return subprocess.run(
            ["/usr/bin/security", f"{verb}-generic-password",
             "-s", f"morvane.connector.{exchange}", "-a", exchange],
            env={**os.environ, "HOME": home}, stdin=subprocess.DEVNULL,
            capture_output=True).returncode == 0
