"""The shell that somebody gets who asks for no command."""

import os
from typing import Optional

GREETING = """\
Sandbox: the exchanges, the relay and the download host are stand-ins, and HOME is an empty folder.
Keys: demo-bybit-key demo-bybit-secret, and so on; okx, kucoin, bitget: also demo-passphrase.
Bind token: demo-bind-token     Switches: curl http://sandbox.control/
Leave with exit or Ctrl-D: everything in here is gone then.
"""
BASH = """\
PS1='(sandbox) \\w \\$ '
PROMPT_COMMAND=
HISTFILE=~/.bash_history
completions='{share}/bash-completion/completions/morvane-connector'
[ ! -r "$completions" ] || . "$completions"
unset completions
"""
ZSH = """\
PROMPT='(sandbox) %~ %# '
RPROMPT=
HISTFILE=~/.zsh_history HISTSIZE=1000 SAVEHIST=1000
fpath=('{share}/zsh/site-functions' $fpath)
autoload -Uz compinit && compinit -u -D
"""


def prepare_shell(env: dict[str, str], share: Optional[str]) -> list[str]:
    """The command line of the user's shell; its settings lie in HOME, which is the sandbox's.

    `share` is a folder laid out as an installation's share: manual and completions come from it.
    """
    shell = env.get("SHELL") or "/bin/sh"
    share = os.path.abspath(share or "share")
    env["MANPATH"] = os.path.join(share, "man") + ":" + env.get("MANPATH", "")
    env.update(PS1="(sandbox) $ ", ZDOTDIR=env["HOME"], BASH_SILENCE_DEPRECATION_WARNING="1",
               SHELL_SESSIONS_DISABLE="1")
    for name, text in ((".bashrc", BASH), (".zshrc", ZSH)):
        with open(os.path.join(env["HOME"], name), "w", encoding="utf-8") as file:
            file.write(text.replace("{share}", share.replace("'", "'\\''")))
    return [shell]
