"""The shell that somebody gets who asks for no command."""

import os
import sys

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


def prepare_shell(env: dict[str, str], share: str) -> list[str]:
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
