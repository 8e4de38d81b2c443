# shellcheck shell=bash
# What all parts of ./orvel share: messages, a scratch folder, and processes that end with the script.

say() { printf 'orvel: %s\n' "$*" >&2; }

fail() {
    say "$*"
    exit 1
}

# needScratch: makes $scratch, a private folder with a path short enough for sockets; removed at exit.
scratch=
needScratch() {
    [[ -n $scratch ]] || scratch=$(mktemp -d /tmp/orvel.XXXXXX)
}

asRoot() {
    if ((EUID == 0)); then "$@"; else sudo "$@"; fi
}

# What was started, newest last: "PID" for our own, "root:PID" for what ran by asRoot.
started=()

# start NAME COMMAND ...: runs it in the background with its output in $scratch/NAME.log; its pid is $!.
start() {
    local name=$1
    shift
    needScratch
    "$@" </dev/null >"$scratch/$name.log" 2>&1 &
    started+=("$!")
}

# adopt PID: an already running child that has to end with this script.
adopt() { started+=("$1"); }

# forget PID: it has ended and was waited for; its number may be another's by now.
forget() {
    local index
    for index in "${!started[@]}"; do
        if [[ ${started[index]#root:} == "$1" ]]; then unset "started[index]"; fi
    done
}

# endProcess [root:]PID: asks it to end, insists after five seconds, and returns when it is gone.
endProcess() {
    local pid=${1#root:} by=()
    if [[ $1 == root:* ]]; then by=(asRoot); fi
    "${by[@]}" kill -TERM "$pid" 2>/dev/null || true
    "${by[@]}" kill -CONT "$pid" 2>/dev/null || true
    waitUntil 5 isGone "$pid" || "${by[@]}" kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
    forget "$pid"
}

# A child that ended but was not waited for still has an entry, in state Z.
isGone() {
    local stat
    { read -r stat <"/proc/$1/stat"; } 2>/dev/null || return 0
    stat=${stat##*) } # behind the name, which may hold anything
    [[ $stat == Z* ]]
}

# waitUntil SECONDS COMMAND ...: polls ten times a second; false when the time is over.
waitUntil() {
    local tries=$(($1 * 10))
    shift
    while ! "$@"; do
        ((tries-- > 0)) || return 1
        sleep 0.1
    done
}

cleanUp() {
    local status=$?
    trap - EXIT
    trap '' INT TERM HUP
    while ((${#started[@]})); do endProcess "${started[-1]}"; done
    if [[ -n $scratch ]]; then rm -rf -- "$scratch"; fi
    exit "$status"
}
trap cleanUp EXIT
# An error that nobody answered ends the script (set -e): not without a word.
set -E
trap 'say "stopped by an error in ${BASH_SOURCE[0]##*/}, line $LINENO"' ERR
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM
