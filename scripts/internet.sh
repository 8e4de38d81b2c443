# shellcheck shell=bash
# ./orvel demo --internet: a relay, an agent and a phone that is paired on the local network and then comes
# over WebRTC alone; the same session in a browser, where one is installed; and the computer in standby.

browserText='a browser was here'

demoInternet() {
    setUp build run
    build release orvel-agent orvel-phone orvel-relay orvel-moving-screen
    needScratch
    local film=$root/demo/internet.mp4 picture=$root/demo/internet.png page=$root/demo/browser.png
    mkdir -p "$root/demo"
    rm -f "$film" "$picture" "$page"
    rows=()

    prepareDesk
    startRelay
    local actions
    mkfifo "$scratch/actions"
    exec {actions}<>"$scratch/actions"
    agentActions=$scratch/actions
    startAgent --name "$demoName" "${demoBind[@]}"
    waitUntil 15 agentSays '.relay | select(. == true)' || fail "the agent does not come to the relay: $(tail -n 3 "$scratch/agent.log")"
    row 'relay' "$ORVEL_PROJECT_URL, with the agent on it"
    phoneFindsAgent
    say "pairing on the local network: over the internet only paired phones are let in"
    pairPhone --agent "$demoName"
    row 'paired' "by the code ${pairingCode:0:3} ${pairingCode:3}"
    orvelPhone+=(--internet)

    say "the phone comes over the internet"
    phoneComes
    phoneAsks
    phoneWatches "$film"
    phoneTakesPicture "$picture"
    browserComes "$page"
    standby "$actions"
    agentEnds
    showRows
}

# The relay is a project like a hosted one, for this agent and these phones.
startRelay() {
    start relay "$root/build/release/orvel-relay" --port 0
    local pid=$!
    waitUntil 10 relayListens || fail "the relay does not start: $(tail -n 3 "$scratch/relay.log")"
    isGone "$pid" && fail "the relay has ended: $(tail -n 3 "$scratch/relay.log")"
    export ORVEL_PROJECT_URL=http://127.0.0.1:$relayPort ORVEL_PROJECT_KEY=local
}

relayListens() {
    relayPort=$(jq -r '.listening.port | numbers' "$scratch/relay.log" 2>/dev/null) && [[ -n $relayPort ]]
}

# eventsFrom LINE FILTER: whether this filter makes something of the agent's event lines after the LINEth.
eventsFrom() { [[ -n $(tail -n "+$(($1 + 1))" "$events" | jq -r "$2" 2>/dev/null) ]]; }

# The whole way once: found on the relay, let in, and away again.
phoneComes() {
    local from
    from=$(wc -l <"$events")
    phone --agent "$demoName" --json ls / >/dev/null || fail "the phone does not come through the relay"
    eventsFrom "$from" '.status.connected | objects | select(.internet)' || fail "the phone did not come over the internet"
    row 'probe, here' "the computer answers on the relay"
    row 'offer, answer' "a session by WebRTC, seen by the agent as coming from the internet"
}

# The same computer in a browser: pictures, and a text into the editor.
browserComes() {
    local missing='' from pid saw
    command -v node >/dev/null || missing='no node'
    [[ -x ${ORVEL_BROWSER:-/usr/bin/chromium} ]] || missing='no Chromium'
    [[ -d $root/Phone/web/node_modules && -d $root/Tests/Web/node_modules ]] || missing="${missing:-packages of npm are missing}"
    if [[ -n $missing ]]; then
        say "no session in a browser: $missing (./orvel setup test installs it)"
        row 'browser' "not shown: $missing"
        return
    fi
    say "a browser takes the phone's place"
    openEditor
    local place
    read -ra place < <(inEditor 50 50)
    from=$(wc -l <"$events")
    kill -STOP "${moving[@]}" # a browser takes long enough to start
    # The buses of this demo have nothing that a browser waits for when it finds one.
    start browser env -u DISPLAY DBUS_SESSION_BUS_ADDRESS=disabled: DBUS_SYSTEM_BUS_ADDRESS=disabled: \
        node "$root/scripts/demo-browser.mjs" "$scratch/phone" "$demoName" "$1" "${place[@]}" "$browserText"
    pid=$!
    waitUntil 120 hasComeOrGone "$from" "$pid" || true
    kill -CONT "${moving[@]}"
    waitUntil 120 isGone "$pid" || fail "the browser does not come to an end"
    wait "$pid" || fail "the browser failed: $(head -n 3 "$scratch/browser.log")"
    forget "$pid"
    saw=$(tail -n 1 "$scratch/browser.log")
    row 'browser' "$(jq -r '"\(.width)x\(.height), \(.frames) pictures decoded in \(.seconds | round) s"' <<<"$saw")"
    keys cmd+s
    if waitUntil 5 grep -q "$browserText" "$note"; then
        row 'typed in it' "$browserText"
    else
        fail "the editor did not get the browser's text: $(head -n 2 "$note")"
    fi
    endProcess "$editorPid"
    row "${1#"$root/"}" "the page with the computer in it, $(numfmt --to=si --suffix=B "$(stat -c %s "$1")")"
}

hasComeOrGone() { eventsFrom "$1" '.status.connected | objects' || isGone "$2"; }

# isInStandby: the phone is told so, and not let in.
isInStandby() {
    ! phone --agent "$demoName" displays >"$scratch/refused" 2>&1 && grep -q 'standby' "$scratch/refused"
}

# standby ACTIONS: the agent is set to it through this descriptor.
standby() {
    local from
    say "the computer goes to standby"
    printf '{"setRemoteAccess":{"_0":"standby"}}\n' >&"$1"
    waitUntil 5 isInStandby || fail "the computer in standby lets the phone in"
    row 'probe, standby' "$(head -n 1 "$scratch/refused")"
    from=$(wc -l <"$events")
    phone --agent "$demoName" --unlock --json displays >/dev/null || fail "the phone cannot unlock the computer"
    eventsFrom "$from" '.unlock.until | numbers' || fail "the agent was not unlocked"
    row 'unlock, session' "let in; unlocked until $(date -d "@$(lastEvent '.unlock.until | numbers' | cut -d . -f 1)" +%H:%M)"
    waitUntil 20 eventsFrom "$from" '.unlock | objects | select(has("until") | not)' ||
        fail "the session's end does not lock the computer again"
    isInStandby || fail "the computer lets the phone in after the session's end"
    row 'locked again' "with the session's end, and the phone is refused"
}
