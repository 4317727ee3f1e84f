"""On a Mac: keeps the sandbox away from the user's own keychain items."""

import os
import subprocess
import sys
from collections.abc import Iterable
from typing import Optional

SECURITY = "/usr/bin/security"
SYSTEM_KEYCHAINS = "/Library/Keychains/"


class KeychainInUse(Exception):
    """The user's own keychain holds items of the connector."""


class MacKeychain:
    """A throwaway keychain in the sandbox's home; does nothing anywhere but on a Mac.

    Where the home decides which keychains are searched, the user's are never in play. Where it
    does not, `close` deletes what the connector stored: nothing of the kind was there before.
    """

    def __init__(self, home: str, exchanges: Iterable[str]) -> None:
        self._home, self._exchanges, self._ours = home, list(exchanges), ""
        if sys.platform != "darwin":
            self._exchanges = []
            return
        held = [one for one in self._exchanges if self._item("find", one, os.environ["HOME"])]
        if held:
            raise KeychainInUse(f"your keychain holds the connector's own credentials for "
                                f"{', '.join(held)}; the sandbox does not start beside them")
        for folder in ("Keychains", "Preferences"):
            os.makedirs(os.path.join(home, "Library", folder), mode=0o700)
        listed = "".join(self._run(home, words, "-d", "user") or ""
                         for words in ("list-keychains", "default-keychain"))
        if all(path.strip(' "').startswith((home, SYSTEM_KEYCHAINS))
               for path in listed.splitlines()):
            self._create(os.path.join(home, "Library", "Keychains", "sandbox.keychain-db"))

    def close(self) -> None:
        if self._ours:
            self._run(self._home, "delete-keychain", self._ours)
            return
        for exchange in self._exchanges:
            self._item("delete", exchange, self._home)

    def _create(self, path: str) -> None:
        self._ours = path
        for words in (("create-keychain", "-p", "sandbox", path), ("set-keychain-settings", path),
                      ("unlock-keychain", "-p", "sandbox", path),
                      ("list-keychains", "-d", "user", "-s", path),
                      ("default-keychain", "-d", "user", "-s", path)):
            if self._run(self._home, *words) is None:
                self.close()
                raise RuntimeError(f"security {words[0]} failed")

    def _item(self, verb: str, exchange: str, home: str) -> bool:
        return self._run(home, verb + "-generic-password", "-s", "morvane.connector." + exchange,
                         "-a", exchange) is not None

    def _run(self, home: str, *arguments: str) -> Optional[str]:
        """What it printed; None when it failed."""
        done = subprocess.run((SECURITY,) + arguments, env={**os.environ, "HOME": home},
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True)
        return done.stdout if done.returncode == 0 else None
