"""On a Mac: keeps the sandbox away from the user's own keychain items."""

import os
import subprocess
import sys

from . import hosts


def refuse_used_keychain() -> None:
    held = [exchange for exchange in hosts.BY_EXCHANGE if _security("find", exchange, os.environ)]
    if held:
        raise RuntimeError("your keychain holds the connector's own credentials for "
                           f"{', '.join(held)}; the sandbox does not start beside them")


def remove_items(home: str) -> None:
    """What was stored since, from that HOME or from the user's own."""
    for exchange in hosts.BY_EXCHANGE:
        _security("delete", exchange, os.environ)
        _security("delete", exchange, {**os.environ, "HOME": home})


def _security(verb, exchange, env) -> bool:
    return sys.platform == "darwin" and subprocess.run(
        ["/usr/bin/security", f"{verb}-generic-password",
         "-s", f"morvane.connector.{exchange}", "-a", exchange],
        env=env, stdin=subprocess.DEVNULL, capture_output=True).returncode == 0
