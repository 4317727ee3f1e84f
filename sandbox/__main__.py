"""python3 -m sandbox [--path DIR]... [--share DIR] [--cwd DIR] [CMD ARG...]"""

import argparse
import os
import shutil
import signal
import subprocess
import sys

from .box import Sandbox

GREETING = """\
Sandbox: the exchanges, the relay and the download host are stand-ins, and HOME
is a new folder. Nothing in here is real, and nothing of yours is touched.
Begin with:
  morvane-connector validate bybit demo-bybit-key demo-bybit-secret
  morvane-connector balance bybit
Keys of the others are named likewise; okx, kucoin and bitget also want the
passphrase demo-passphrase. Bind token: demo-bind-token
Switches: curl http://sandbox.control/
Leave with exit or Ctrl-D: everything in here is gone then.
"""

# A HOME with settings for each shell that is at home here. A shell that is started within another
# reads its own, and so says as well where it is.
SHELLS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "shells")


def main() -> int:
    """The command's exit status, 128 and more for a signal."""
    parser = argparse.ArgumentParser(
        prog="python3 -m sandbox",
        description="Runs a command, or a shell, among stand-ins for the outside world.")
    parser.add_argument("--path", action="append", default=[], metavar="DIR",
                        help="a directory to come first on the PATH")
    parser.add_argument("--share", default="share", metavar="DIR",
                        help="where the shell finds the manual and the completions")
    parser.add_argument("--cwd", metavar="DIR", help="where to run it")
    parser.add_argument("command", nargs=argparse.REMAINDER, metavar="CMD ARG...")
    options = parser.parse_args()
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _stop)
    try:
        with Sandbox(options.path) as box:
            child = subprocess.Popen(options.command or _shell(box.env, options.share),
                                     env=box.env, cwd=options.cwd)
            signal.signal(signal.SIGINT, signal.SIG_IGN)  # Ctrl-C reaches the command as well.
            try:
                status = child.wait()
            finally:
                child.send_signal(signal.SIGHUP)
            return status if status >= 0 else 128 - status
    except (RuntimeError, OSError) as refusal:
        sys.stderr.write(f"sandbox: {refusal}\n")
        return 127


def _shell(env: dict[str, str], share: str) -> list[str]:
    """The command line of the user's shell; settings and history lie in the sandbox's HOME.

    `share` is a folder laid out as an installation's share: manual and completions come from it.
    """
    home, share, shell = env["HOME"], os.path.abspath(share), env.get("SHELL", "bash")
    if os.path.basename(shell) not in ("bash", "zsh", "fish"):
        sys.stderr.write(f"There are no settings for the shell '{shell}': this is bash.\n")
        shell = "bash"
    env.update(SANDBOX_SHARE=share, ZDOTDIR=home, HISTFILE=home + "/.history", SHELL=shell,
               PS1="(sandbox) $ ", MANPATH=share + "/man:" + env.get("MANPATH", ""),
               SHELL_SESSIONS_DISABLE="1", BASH_SILENCE_DEPRECATION_WARNING="1")
    shutil.copytree(SHELLS, home, dirs_exist_ok=True)
    sys.stderr.write(GREETING)
    return [shell]


def _stop(number, _frame) -> None:
    signal.signal(number, signal.SIG_IGN)
    sys.exit(128 + number)


if __name__ == "__main__":
    sys.exit(main())
