# shellcheck shell=bash
# The agent with its windows: how soon it is there, how soon its panel opens, what it takes while nobody
# looks at it. Runs inside ./orvel bench. A display, a window manager, a tray and a session bus of our own.

windowRounds=5

measureWindows() {
    endProcess "$agentPid"
    [[ -n ${DBUS_SESSION_BUS_ADDRESS:-} ]] || startSessionBus
    start openbox openbox --sm-disable
    start trayer trayer --edge top --align right --widthtype request --height 24
    waitUntil 10 hasWindow panel || fail "no tray: $(tail -n 3 "$scratch/trayer.log")"
    local round
    printf '\nThe agent with its windows, %d starts\n' "$windowRounds"
    printf '%-8s %16s %16s %14s %14s %12s %14s %12s\n' start 'listening, ms' 'tray icon, ms' 'panel, ms' 'again, ms' \
        'RSS, MB' 'private, MB' 'wake-ups/s'
    for ((round = 0; round < windowRounds; ++round)); do measureWindowedStart; done
}

milliseconds() { printf '%s' $(($(date +%s%N) / 1000000)); }

# What the tray holds, as window numbers.
trayIcons() { xwininfo -name panel -tree 2>/dev/null | grep -c 'orvel-agent'; }
trayHasIcon() { (($(trayIcons) > 0)); }
isListening() { grep -qs 'listening on port' "$scratch/windowed.log"; }

# Prints how many ms later the panel is there, or gone: at the top right, below the icon.
clickTheIcon() {
    "$root/build/release/orvel-click-probe" "$(iconPlace x)" "$(iconPlace y)" "$((${virtualSize%x*} - 200))" 60 ||
        fail "the panel does not open"
}

# promptly CONDITION: like waitUntil, but looks every few milliseconds, for ten seconds at most.
promptly() {
    local tries
    for ((tries = 0; tries < 2000; ++tries)); do
        if "$@"; then return 0; fi
        sleep 0.002
    done
    return 1
}

measureWindowedStart() {
    local began listening icon pid wakeups first again
    rm -f "$scratch/windowed.log"
    began=$(milliseconds)
    start windowed "$root/build/release/orvel-agent" --state-dir "$scratch/agent" --no-advertise --bind 127.0.0.1
    pid=$!
    promptly isListening || fail "the agent does not come up: $(tail -n 3 "$scratch/windowed.log")"
    listening=$(($(milliseconds) - began))
    promptly trayHasIcon || fail "the tray has no icon"
    icon=$(($(milliseconds) - began))
    sleep 3 # the tray has put it where it belongs
    wakeups=$(waits "$pid")
    sleep 10
    wakeups=$(awk -v a="$wakeups" -v b="$(waits "$pid")" 'BEGIN { printf "%.1f", (b - a) / 10 }')
    local rss private
    rss=$(awk '/^Rss/ { printf "%.0f", $2 / 1024 }' "/proc/$pid/smaps_rollup")
    private=$(awk '/^Private/ { sum += $2 } END { printf "%.0f", sum / 1024 }' "/proc/$pid/smaps_rollup")
    first=$(clickTheIcon)
    sleep 1 # two clicks in a row are something else
    clickTheIcon >/dev/null
    sleep 1
    again=$(clickTheIcon)
    printf '%-8s %16s %16s %14s %14s %12s %14s %12s\n' "$((round + 1))" "$listening" "$icon" "$first" "$again" \
        "$rss" "$private" "$wakeups"
    endProcess "$pid"
}

# iconPlace x|y: the middle of the icon on the screen.
iconPlace() {
    local window
    window=$(xwininfo -name panel -tree | awk '/orvel-agent/ { print $1; exit }')
    xwininfo -id "$window" | awk -v axis="$1" '
        /Absolute upper-left X/ { x = $NF } /Absolute upper-left Y/ { y = $NF }
        /^  Width/ { w = $NF } /^  Height/ { h = $NF }
        END { print int(axis == "x" ? x + w / 2 : y + h / 2) }'
}
