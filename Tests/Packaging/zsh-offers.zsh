#!/usr/bin/env zsh
# zsh-offers.zsh FOLDER LINE ...: what a real zsh, with the completions in FOLDER, offers at the end of each
# LINE, as "LINE|OFFER". The zsh runs on a terminal of its own, where the lines and the Tab key are typed.
zmodload zsh/zpty
export ORVEL_FOLDER=$1 ORVEL_OFFERS=$(mktemp)
shift

zpty -b shell zsh -f -i
zpty -w shell '
    PS1= PS2=
    fpath=($ORVEL_FOLDER $fpath)
    autoload -Uz compinit && compinit -u -D
    # All that is offered goes through here; with these options it is only asked for.
    compadd() {
        if [[ " ${@[1,(i)(-|--)]}" != *" -"[OAD]" "* ]]; then
            local -a offered
            builtin compadd -A offered "$@"
            if (( $#offered )); then print -rl -- $LBUFFER"|"$^offered >>$ORVEL_OFFERS; fi
        fi
        builtin compadd "$@"
    }
    offer() { zle list-choices; zle kill-buffer }
    zle -N offer
    bindkey "^I" offer'
for line; do zpty -w -n shell "$line"$'\t'; done
zpty -w shell exit
while zpty -t shell; do zpty -r shell ignored || sleep 0.01; done
sort -u $ORVEL_OFFERS
rm -f -- $ORVEL_OFFERS
