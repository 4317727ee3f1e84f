"""On a Mac: keeps the sandbox away from the user's own keychain items."""

from __future__ import annotations

import os
import subprocess
import sys
from typing import Dict, Iterable, List, Optional

SECURITY = "/usr/bin/security"
SERVICE_PREFIX = "morvane.connector."
SYSTEM_KEYCHAINS = "/Library/Keychains/"
PASSWORD = "sandbox"


class KeychainInUse(Exception):
    """The user's own keychain holds items of the connector."""


class MacKeychain:
    """A throwaway keychain in the sandbox's home; does nothing anywhere but on a Mac.

    Where the home decides which keychains are searched, the user's are never in play. Where
    it does not, `close` deletes what the connector stored: nothing of the kind was there
    before, or `open` would have refused.
    """

    def __init__(self, home: str, exchanges: Iterable[str]) -> None:
        self._environment = {**os.environ, "HOME": home}
        self._exchanges = list(exchanges)
        self._keychain = os.path.join(home, "Library", "Keychains", "sandbox.keychain-db")
        self._preferences = os.path.join(home, "Library", "Preferences")
        self._home = home
        self._open = False
        self._throwaway = False

    def open(self) -> None:
        if sys.platform != "darwin":
            return
        self._refuse_if_in_use()
        self._open = True
        os.makedirs(os.path.dirname(self._keychain), mode=0o700)
        os.makedirs(self._preferences, mode=0o700)
        if self._home_decides():
            self._throwaway = True
            self._create()

    def close(self) -> None:
        if not self._open:
            return
        self._open = False
        if self._throwaway:
            self._security("delete-keychain", self._keychain)
            return
        for exchange in self._exchanges:
            self._security("delete-generic-password", "-s", SERVICE_PREFIX + exchange,
                           "-a", exchange)

    def _refuse_if_in_use(self) -> None:
        held = [exchange for exchange in self._exchanges if self._security(
            "find-generic-password", "-s", SERVICE_PREFIX + exchange, "-a", exchange,
            environment=dict(os.environ)) is not None]
        if held:
            raise KeychainInUse(
                "your keychain holds the connector's own credentials for "
                + ", ".join(held) + "; the sandbox does not start beside them")

    def _home_decides(self) -> bool:
        """Whether the search list, seen from the sandbox's home, holds no keychain of the user."""
        listed = self._security("list-keychains", "-d", "user")
        default = self._security("default-keychain", "-d", "user")
        return all(path.startswith((os.path.realpath(self._home), self._home, SYSTEM_KEYCHAINS))
                   for path in _paths(listed) + _paths(default))

    def _create(self) -> None:
        self._must("create-keychain", "-p", PASSWORD, self._keychain)
        self._must("set-keychain-settings", self._keychain)
        self._must("unlock-keychain", "-p", PASSWORD, self._keychain)
        self._must("list-keychains", "-d", "user", "-s", self._keychain)
        self._must("default-keychain", "-d", "user", "-s", self._keychain)

    def _must(self, *arguments: str) -> None:
        if self._security(*arguments) is None:
            self.close()
            raise RuntimeError("security %s failed" % arguments[0])

    def _security(self, *arguments: str,
                  environment: Optional[Dict[str, str]] = None) -> Optional[str]:
        """What it printed; None when it failed."""
        done = subprocess.run((SECURITY,) + arguments, env=environment or self._environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True)
        return done.stdout if done.returncode == 0 else None


def _paths(printed: Optional[str]) -> List[str]:
    return [line.strip().strip('"') for line in (printed or "").splitlines() if line.strip()]
