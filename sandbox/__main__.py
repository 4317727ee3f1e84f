"""python3 -m sandbox [--path DIR]... [--share DIR] [CMD ARG...]"""

import argparse
import signal
import subprocess
import sys
from typing import Any

from .box import Sandbox
from .shell import prepare_shell


def main() -> int:
    parser = argparse.ArgumentParser(
        prog="python3 -m sandbox",
        description="Runs a command, or a shell, among stand-ins for the outside world.")
    parser.add_argument("--path", action="append", default=[], metavar="DIR",
                        help="a directory to come first on the PATH")
    parser.add_argument("--share", default="share", metavar="DIR",
                        help="where the shell finds the manual and the completions")
    parser.add_argument("command", nargs=argparse.REMAINDER, metavar="CMD ARG...")
    options = parser.parse_args()
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _stop)
    try:
        with Sandbox(options.path) as box:
            return _run(options.command or prepare_shell(box.env, options.share), box.env)
    except (RuntimeError, OSError) as refusal:
        sys.stderr.write(f"sandbox: {refusal}\n")
        return 127


def _run(command: list[str], env: dict[str, str]) -> int:
    """The command's exit status, 128 and more for a signal."""
    child = subprocess.Popen(command, env=env)
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # Ctrl-C reaches the command as well.
    try:
        status = child.wait()
    finally:
        child.send_signal(signal.SIGHUP)
    return status if status >= 0 else 128 - status


def _stop(number: int, _frame: Any) -> None:
    signal.signal(number, signal.SIG_IGN)
    sys.exit(128 + number)


if __name__ == "__main__":
    sys.exit(main())
