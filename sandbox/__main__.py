"""python3 -m sandbox [--path DIR]... [--share DIR] [CMD ARG...]"""

import argparse
import os
import signal
import subprocess
import sys

from .box import Sandbox

GREETING = """\
Sandbox: the exchanges, the relay and the download host are stand-ins, and HOME is an empty folder.
Keys: demo-bybit-key demo-bybit-secret, and so on; okx, kucoin, bitget: also demo-passphrase.
Bind token: demo-bind-token     Switches: curl http://sandbox.control/
Leave with exit or Ctrl-D: everything in here is gone then.
"""
SETTINGS = {".bashrc": """\
PS1='(sandbox) \\w \\$ '
PROMPT_COMMAND=
completions=$SANDBOX_SHARE/bash-completion/completions/morvane-connector
[ ! -r "$completions" ] || . "$completions"
""", ".zshrc": """\
PROMPT='(sandbox) %~ %# ' RPROMPT= HISTSIZE=1000 SAVEHIST=1000
fpath=("$SANDBOX_SHARE/zsh/site-functions" $fpath)
autoload -Uz compinit && compinit -u -D
"""}


def main() -> int:
    """The command's exit status, 128 and more for a signal."""
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
            child = subprocess.Popen(options.command or _shell(box.env, options.share), env=box.env)
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
    home, share = env["HOME"], os.path.abspath(share)
    env.update(SANDBOX_SHARE=share, PS1="(sandbox) $ ", ZDOTDIR=home, HISTFILE=home + "/.history",
               MANPATH=share + "/man:" + env.get("MANPATH", ""), SHELL_SESSIONS_DISABLE="1",
               BASH_SILENCE_DEPRECATION_WARNING="1")
    for name, text in SETTINGS.items():
        with open(os.path.join(home, name), "w", encoding="ascii") as file:
            file.write(text)
    sys.stderr.write(GREETING)
    return [env.get("SHELL") or "/bin/sh"]


def _stop(number, _frame) -> None:
    signal.signal(number, signal.SIG_IGN)
    sys.exit(128 + number)


if __name__ == "__main__":
    sys.exit(main())
