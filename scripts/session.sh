# shellcheck shell=bash
# An agent and a phone of our own, with state in $scratch: what demo and benchmarks are made of.

# startAgent [OPTION ...]: the headless agent on this $DISPLAY. Sets agentPid, agentPort and, where its
# event lines arrive, events. Actions for it are what agentActions names, a file that is opened for reading.
agentActions=/dev/null
startAgent() {
    needScratch
    events=$scratch/events
    orvelPhone=("$root/build/release/orvel-phone" --state-dir "$scratch/phone")
    "$root/build/release/orvel-agent" --headless --state-dir "$scratch/agent" "$@" \
        <"$agentActions" >"$events" 2>"$scratch/agent.log" &
    agentPid=$!
    adopt "$agentPid"
    waitUntil 15 agentSays '.status.waiting | objects' ||
        fail "the agent does not come up: $(tail -n 3 "$scratch/agent.log")"
    agentPort=$(lastEvent '.listening.port | numbers')
    [[ -n $agentPort ]] || fail "the agent does not listen: $(tail -n 3 "$scratch/agent.log")"
}

# lastEvent FILTER: what this jq filter makes of the agent's event lines; the last, if any.
lastEvent() { jq -r "$1" "$events" 2>/dev/null | tail -n 1; }

agentSays() { [[ -n $(lastEvent "$1") ]]; }

# phone ARGUMENT ...: the reference phone with a state of its own. In the background use "${orvelPhone[@]}":
# of a function only the shell around it would be known, and ended.
phone() { "${orvelPhone[@]}" "$@"; }

# pairPhone ARGUMENT ...: pairs as a person would, who reads the digits on the computer and types them
# on the phone. Sets pairingCode.
pairPhone() {
    local digits status=0
    mkfifo "$scratch/digits"
    "${orvelPhone[@]}" "$@" pair <"$scratch/digits" >"$scratch/pair.log" 2>&1 &
    local pid=$!
    adopt "$pid"
    exec {digits}>"$scratch/digits"
    if waitUntil 15 agentSays '.pairingCode | strings'; then
        pairingCode=$(lastEvent '.pairingCode | strings')
        printf '%s\n' "$pairingCode" >&"$digits"
    fi
    exec {digits}>&-
    waitUntil 15 isGone "$pid" || fail "pairing does not come to an end: $(tail -n 3 "$scratch/pair.log")"
    wait "$pid" || status=$?
    forget "$pid"
    ((status == 0)) || fail "pairing failed: $(tail -n 3 "$scratch/pair.log")"
}
