set -g fish_greeting
function fish_prompt
    echo -n "(sandbox) "(prompt_pwd)" > "
end
set -p fish_complete_path $SANDBOX_SHARE/fish/vendor_completions.d
# A fish that finds one of these does not read all manuals to make completions of them: a job of
# minutes, which would go on writing after the sandbox is gone. (Of the version 3, and of 4.)
mkdir -p ~/.local/share/fish/generated_completions ~/.cache/fish/generated_completions
