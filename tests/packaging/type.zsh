# Types a line and a tab at an interactive zsh, and prints what the line has become: type.zsh LINE
zmodload zsh/zpty
print -r -- $'PS1= PS2= RPS1=\nautoload -Uz compinit && compinit -u\nzle -N tell\ntell() { print -r -- "<$BUFFER>"; exit }
bindkey "^T" tell\nprint ready' >/tmp/.zshrc
zpty shell 'ZDOTDIR=/tmp TERM=dumb zsh -i'
zpty -r shell output '*ready*'
zpty -w -n shell "$1"$'\t\C-t'
zpty -r -m shell output '*<*>*' && print -r -- ${${output##*<}%%>*}
