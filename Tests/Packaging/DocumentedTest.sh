#!/usr/bin/env bash
# DocumentedTest.sh FOLDER: the options and commands that the programs in FOLDER print as their help are the
# ones that man pages and completions know, and no others. The completions are asked in real shells.
set -uo pipefail

programs=$(cd -P "$1" && pwd)
linux=$(cd -P "$(dirname "$0")/../../Packaging/linux" && pwd)
here=$(cd -P "$(dirname "$0")" && pwd)
folder=$(mktemp -d)
trap 'rm -rf -- "$folder"' EXIT
mkdir "$folder/work" "$folder/work/subfolder"
cd "$folder/work" || exit 1
touch film.mp4 picture.png text.txt
export HOME=$folder
failures=0

# same TEXT EXPECTED GOT: both are words, in any order, separated by anything.
same() {
    local difference
    difference=$(diff --label expected --label got -U 0 <(sorted "$2") <(sorted "$3")) && { printf 'ok      %s\n' "$1"; return; }
    printf 'FAILED  %s:\n%s\n' "$1" "$difference"
    ((failures += 1))
}

sorted() { tr ' ' '\n' <<<"$1" | sed '/^$/d' | sort -u; }

# What the help of a program, or of one of its commands, has under a title: the first word of each entry.
helpEntries() {
    local title=$1 program=$2
    shift 2
    "$programs/$program" "$@" --help | sed -n "/^$title:/,/^\$/s/^  \([^ ][^ ]*\).*/\1/p" | tr ',' '\n'
}

# The same in a man page's source: options are lines "*-o*, *--option* ...", commands are subtitles.
manOptions() {
    awk -v command="${2:-}" '
        /^# / { inside = ($0 == "# OPTIONS") && command == "" }
        /^## / { inside = $2 == command }
        inside && /^\*-/ { print }
    ' "$linux/man/$1.1.scd" | grep -o '^\*-[^*]*\*\|, \*-[^*]*\*' | tr -d ',* '
}

manCommands() { sed -n '/^# COMMANDS/,/^# [^C]/s/^## \([^ ]*\).*/\1/p' "$linux/man/$1.1.scd"; }

manSettings() { sed -n '/^## defaults/,/^#/p' "$linux/man/orvel-agent.1.scd" | grep '^\*' | grep -o '\*[a-zA-Z]*\*' | tr -d '*'; }

# offers SHELL LINE: what its Tab key offers at the end of LINE, which it was asked before.
offers() { awk -F '|' -v line="$2" '$1 == line { print $2 }' "$folder/$1"; }

askBash() {
    bash --norc --noprofile -c '
        source /usr/share/bash-completion/bash_completion
        for file in "$1"/completions/bash/*; do source "$file"; done
        shift
        compopt() { :; } # is for use below readline only
        for COMP_LINE; do
            # Words as readline makes them.
            read -ra COMP_WORDS <<<"${COMP_LINE//=/ = }"
            [[ $COMP_LINE != *[\ =] ]] || COMP_WORDS+=("")
            COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMP_POINT=${#COMP_LINE} COMP_TYPE=9 COMP_KEY=9 COMPREPLY=()
            [[ $(complete -p "${COMP_WORDS[0]}") =~ -F\ ([^ ]+) ]]
            "${BASH_REMATCH[1]}" "${COMP_WORDS[0]}" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
            printf "$COMP_LINE|%s\n" "${COMPREPLY[@]}"
        done
    ' bash "$linux" "$@" >"$folder/bash"
}

askZsh() { timeout 100 zsh -f "$here/zsh-offers.zsh" "$linux/completions/zsh" "$@" >"$folder/zsh"; }

# LINE|OFFERED|OFFERED IN ZSH WHERE THAT IS SOMETHING ELSE
values=(
    'orvel-agent --state-dir |subfolder'
    'orvel-agent defaults |read write delete'
    'orvel-agent defaults write keepAwake |true false'
    'orvel-agent --state-dir x defaults write remoteAccess |on standby off'
    'orvel-agent remote |on standby off'
    'orvel-agent keep-awake |on off'
    'orvel-agent --name |'
    'orvel-phone watch --audio |on off'
    'orvel-phone watch --audio=|on off'
    'orvel-phone watch -o |film.mp4 subfolder'
    'orvel-phone shot |picture.png subfolder'
    'orvel-phone get -o |film.mp4 picture.png text.txt subfolder'
    'orvel-phone --agent click drag --button |left right'
    'orvel-phone click |left right'
    'orvel-phone key cmd+sh|cmd+shift+|shift+'
    'orvel-phone key pagedo|pagedown'
    'orvel-phone get |'
    'orvel-relay --turn-secret-file |film.mp4 picture.png text.txt subfolder'
)

declare -A commands
lines=()
for program in orvel-agent orvel-phone orvel-relay; do
    commands[$program]=$(helpEntries Subcommands "$program")
    lines+=("$program " "$program -")
    for command in ${commands[$program]}; do lines+=("$program $command -"); done
done
for row in "${values[@]}"; do lines+=("${row%%|*}"); done
lines+=("orvel-agent defaults read ")
askBash "${lines[@]}"
askZsh "${lines[@]}"

for program in orvel-agent orvel-phone orvel-relay; do
    options=$(helpEntries Options "$program")
    same "$program: options in the man page" "$options" "$(manOptions "$program")"
    same "$program: commands in the man page" "${commands[$program]}" "$(manCommands "$program")"
    for shell in bash zsh; do
        same "$program: options in $shell" "$options" "$(offers $shell "$program -")"
        if [[ -n ${commands[$program]} ]]; then
            same "$program: commands in $shell" "${commands[$program]}" "$(offers $shell "$program ")"
        fi
    done
    for command in ${commands[$program]}; do
        own=$(helpEntries Options "$program" "$command")
        same "$program $command: options in the man page" "$own" "-h --help $(manOptions "$program" "$command")"
        # What may stand behind the command as well.
        if [[ $program == orvel-phone ]]; then own+=" ${options/--version/}"; else own+=' --state-dir'; fi
        for shell in bash zsh; do
            same "$program $command: options in $shell" "$own" "$(offers $shell "$program $command -")"
        done
    done
done
for shell in bash zsh; do
    same "settings in $shell" "$(manSettings)" "$(offers $shell 'orvel-agent defaults read ')"
done
for row in "${values[@]}"; do
    IFS='|' read -r line offered inZsh <<<"$row"
    same "$line in bash" "$offered" "$(offers bash "$line")"
    same "$line in zsh" "${inZsh:-$offered}" "$(offers zsh "$line")"
done

exit $((failures > 0))
