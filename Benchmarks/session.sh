# shellcheck shell=bash
# A session from the phone's end, through the whole agent: the pointer, typing, what a download does to
# the rest, and what the agent costs when nothing happens. Runs inside ./orvel bench.

restSeconds=20

probe() { "$root/build/release/orvel-session-probe" --state-dir "$scratch/phone" --port "$agentPort" "$@"; }

measureInput() {
    printf '\nFrom a move to the event of an X client whose window is below\n'
    probe pointer
    printf '\nFrom a text to the program in a terminal window\n'
    mkfifo "$scratch/typed"
    # shellcheck disable=SC2016
    start typing env LC_ALL=C.UTF-8 xterm -u8 -geometry 100x30+0+0 -title Typing \
        -e sh -c 'stty raw -echo; exec cat >"$1"' sh "$scratch/typed"
    local terminal=$!
    waitUntil 10 hasWindow Typing || fail "no terminal window: $(tail -n 3 "$scratch/typing.log")"
    probe text "$scratch/typed"
    endProcess "$terminal"
    rm "$scratch/typed"
}

# A watching phone beside a download by the same phone, in turns with the same phone just watching.
measureBesideDownload() {
    prepareLargeFile
    showScreen scroll
    printf '\nA scrolling screen that the phone watches, %s, with and without a download\n' "$virtualSize"
    probe download "$scratch/large"
    endScreen
}

# The agent while nothing happens on the screen and nobody touches it, with all that it listens to on a
# desktop: sound, the session's bus, the keyboard focus.
measureRest() {
    endProcess "$agentPid"
    startSound || fail "no sound server: $(tail -n 3 "$scratch/sound.log")"
    startSessionBus
    startAgent --no-advertise --bind 127.0.0.1
    benchPhone=(--host 127.0.0.1 --port "$agentPort" --json)
    showScreen still
    printf '\nThe agent at rest, %d s each\n' "$restSeconds"
    printf '%-56s %12s %12s %8s\n' '' '% of a core' 'wake-ups/s' threads
    restRow 'no phone'
    phoneRests 'a phone watches, sound off' --audio off
    phoneRests 'a phone watches, sound on, nothing plays' --audio on
    endScreen
}

# phoneRests NAME [OPTION ...]: the row for a phone that watches a still screen.
phoneRests() {
    local pid
    "${orvelPhone[@]}" "${benchPhone[@]}" watch --seconds $((restSeconds + 8)) "${@:2}" >/dev/null &
    pid=$!
    adopt "$pid"
    sleep 6 # the first pictures and the sharp one after them
    restRow "$1"
    wait "$pid" || fail "the phone does not watch"
    forget "$pid"
}

# A bus of our own, with the accessibility bus on it; sets DBUS_SESSION_BUS_ADDRESS.
startSessionBus() {
    start sessionbus dbus-daemon --session --nofork --nopidfile --address="unix:path=$scratch/session-bus"
    waitUntil 10 test -S "$scratch/session-bus" || fail "no session bus: $(tail -n 3 "$scratch/sessionbus.log")"
    export DBUS_SESSION_BUS_ADDRESS=unix:path=$scratch/session-bus
    start accessibility /usr/libexec/at-spi-bus-launcher --launch-immediately
    waitUntil 10 accessibilityAnswers || fail "no accessibility bus: $(tail -n 3 "$scratch/accessibility.log")"
}

accessibilityAnswers() {
    timeout 5 dbus-send --session --print-reply --dest=org.a11y.Bus /org/a11y/bus org.a11y.Bus.GetAddress >/dev/null 2>&1
}

restRow() {
    local cpu wakeups
    cpu=$(runTime "$agentPid")
    wakeups=$(waits "$agentPid")
    sleep "$restSeconds"
    printf '%-56s %12s %12s %8s\n' "$1" \
        "$(awk -v a="$cpu" -v b="$(runTime "$agentPid")" -v s="$restSeconds" 'BEGIN { printf "%.3f", (b - a) / s / 1e7 }')" \
        "$(awk -v a="$wakeups" -v b="$(waits "$agentPid")" -v s="$restSeconds" 'BEGIN { printf "%.1f", (b - a) / s }')" \
        "$(awk '/^Threads/ { print $2 }' "/proc/$agentPid/status")"
}

# Of all threads of a process: how long they ran, in ns, and how often they went to sleep.
runTime() { awk '{ sum += $1 } END { printf "%.0f", sum }' /proc/"$1"/task/*/schedstat; }
waits() { awk '/^voluntary_ctxt_switches/ { sum += $2 } END { print sum }' /proc/"$1"/task/*/status; }

# The phone in a browser; brings its own desktop and agent.
measureWebSessions() {
    setUpClients
    printf '\nThe agent and a browser, through the relay\n'
    ORVEL_BUILD=$root/build/release node "$root/Benchmarks/web-session.mjs"
}
