"""The shell that somebody gets who asks for no command."""

import os

GREETING = """\
Sandbox: the exchanges, the relay and the download host are stand-ins, and HOME is an empty folder.
Keys: demo-bybit-key demo-bybit-secret, and so on; okx, kucoin, bitget: also demo-passphrase.
Bind token: demo-bind-token     Switches: curl http://sandbox.control/
Leave with exit or Ctrl-D: everything in here is gone then.
"""
SETTINGS = {".bashrc": """\
PS1='(sandbox) \\w \\$ '
PROMPT_COMMAND=
if [ -r "$SANDBOX_SHARE/bash-completion/completions/morvane-connector" ]; then
  . "$SANDBOX_SHARE/bash-completion/completions/morvane-connector"
fi
""", ".zshrc": """\
PROMPT='(sandbox) %~ %# ' RPROMPT= HISTSIZE=1000 SAVEHIST=1000
fpath=("$SANDBOX_SHARE/zsh/site-functions" $fpath)
autoload -Uz compinit && compinit -u -D
"""}


def prepare_shell(env: dict[str, str], share: str) -> list[str]:
    """The command line of the user's shell; settings and history lie in the sandbox's HOME.

    `share` is a folder laid out as an installation's share: manual and completions come from it.
    """
    home = env["HOME"]
    env.update(SANDBOX_SHARE=os.path.abspath(share), PS1="(sandbox) $ ", ZDOTDIR=home,
               HISTFILE=os.path.join(home, ".history"), BASH_SILENCE_DEPRECATION_WARNING="1",
               SHELL_SESSIONS_DISABLE="1")
    env["MANPATH"] = os.path.join(env["SANDBOX_SHARE"], "man") + ":" + env.get("MANPATH", "")
    for name, text in SETTINGS.items():
        with open(os.path.join(home, name), "w", encoding="ascii") as file:
            file.write(text)
    return [env.get("SHELL") or "/bin/sh"]
