PS1='(sandbox) \w \$ '
PROMPT_COMMAND=
completions=$SANDBOX_SHARE/bash-completion/completions/morvane-connector
[ ! -r "$completions" ] || . "$completions"
