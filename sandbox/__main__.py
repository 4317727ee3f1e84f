"""python3 -m sandbox [--path DIR]... [CMD ARG...]"""

from __future__ import annotations

import argparse
import os
import signal
import subprocess
import sys
from typing import Any, List

from .box import Sandbox
from .mac_keychain import KeychainInUse

GREETING = """\
Sandbox: the exchanges, the relay and the download host are stand-ins now, and HOME is empty.
Keys: demo-bybit-key demo-bybit-secret, and so on; okx, kucoin, bitget: demo-passphrase.
Bind token: demo-bind-token. Switches: curl http://sandbox.control/   Leave with: exit
"""


def main(arguments: List[str]) -> int:
    options = _parse(arguments)
    signal.signal(signal.SIGTERM, _stop)
    signal.signal(signal.SIGHUP, _stop)
    try:
        with Sandbox(options.path) as box:
            if options.command:
                return _run(options.command, box)
            sys.stderr.write(GREETING)
            return _run([os.environ.get("SHELL") or "/bin/sh"], box)
    except KeychainInUse as refusal:
        sys.stderr.write("sandbox: %s\n" % refusal)
        return 1


def _parse(arguments: List[str]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="python3 -m sandbox",
        description="Runs a command, or a shell, among stand-ins for the outside world.")
    parser.add_argument("--path", action="append", default=[], metavar="DIR",
                        help="a directory to come first on the PATH")
    parser.add_argument("command", nargs=argparse.REMAINDER, metavar="CMD ARG...")
    return parser.parse_args(arguments)


def _run(command: List[str], box: Sandbox) -> int:
    """The command's exit status, 128 and more for a signal, 127 when it cannot be started."""
    try:
        child = subprocess.Popen(command, env=box.env)
    except OSError as error:
        sys.stderr.write("sandbox: %s\n" % error)
        return 127
    signal.signal(signal.SIGINT, lambda *_: _interrupt(child))
    try:
        status = child.wait()
    except SystemExit:
        _end(child)
        raise
    return status if status >= 0 else 128 - status


def _interrupt(child: "subprocess.Popen[bytes]") -> None:
    """A terminal's Ctrl-C has reached the command as well; its end is ours."""
    if not sys.stdin.isatty():
        child.send_signal(signal.SIGINT)


def _end(child: "subprocess.Popen[bytes]") -> None:
    child.terminate()
    try:
        child.wait(timeout=2)
    except subprocess.TimeoutExpired:
        child.kill()
        child.wait()


def _stop(number: int, _frame: Any) -> None:
    signal.signal(number, signal.SIG_IGN)
    sys.exit(128 + number)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
