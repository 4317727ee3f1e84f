PROMPT='(sandbox) %~ %# ' RPROMPT= HISTSIZE=1000 SAVEHIST=1000
fpath=("$SANDBOX_SHARE/zsh/site-functions" $fpath)
autoload -Uz compinit && compinit -u -D
