# shellcheck shell=bash
# ./orvel demo: agent, reference phone, pairing, ten seconds and more of this display and its sound while the
# phone works at it; then looks with an independent decoder whether what was recorded is what was shown.

demoSeconds=10
faithful=30 # dB: a picture at least as like the screen as this shows the screen

demo() {
    if [[ $# == 1 && $1 == --internet ]]; then
        demoInternet
        return
    fi
    (($# == 0)) || { usage >&2; exit 2; }
    setUp build run
    build release orvel-agent orvel-phone orvel-moving-screen
    needScratch
    local film=$root/demo/session.mp4 picture=$root/demo/screen.png
    mkdir -p "$root/demo"
    rm -f "$film" "$picture"
    rows=()

    prepareDesk
    startAgent --name "$demoName" "${demoBind[@]}"
    phoneFindsAgent
    say "pairing: the agent shows six digits, the phone's user types them"
    pairPhone --agent "$demoName"
    row 'paired' "by the code ${pairingCode:0:3} ${pairingCode:3}"
    phoneAsks
    phoneWatches "$film"
    phoneTakesPicture "$picture"
    agentEnds
    showRows
}

# row NAME TEXT: a line of the table at the end.
row() { rows+=("$1|$2"); }

showRows() {
    printf '\n'
    local each
    for each in "${rows[@]}"; do printf '  %-16s %s\n' "${each%%|*}" "${each#*|}"; done
    printf '\n'
}

# A display with something that moves, and somebody who answers for DNS-SD. Sets demoName, demoBind and
# moving, the processes that draw.
prepareDesk() {
    demoName="Orvel demo $$"
    demoBind=()
    moving=()
    if displayAnswers; then
        say "the agent shows this display, $DISPLAY"
        isOwnDisplay=
    else
        say "no X display answers: the agent shows a virtual one of $virtualSize"
        startVirtualDesk
        isOwnDisplay=yes
        moving+=("$clockPid")
    fi
    if ! avahiAnswers; then
        say "no Avahi daemon answers: starting one for this computer alone"
        startPrivateAvahi || fail "the Avahi daemon does not start: $(tail -n 3 "$scratch/avahi.log")"
        demoBind=(--bind 127.0.0.1)
    fi
    start moving "$root/build/release/orvel-moving-screen" --size 1080 600 --at 760 400
    moving+=("$!")
    waitUntil 10 hasWindow 'Moving screen' || fail "nothing to show: $(tail -n 3 "$scratch/moving.log")"
}

phoneFindsAgent() {
    say "the phone looks for computers"
    waitUntil 15 isFound || fail "the phone does not find the agent: $(phone discover 2>&1 | tail -n 3)"
    row 'found' "$(jq -r '"\(.name), at \(.addresses[0]) port \(.port)"' <<<"$found")"
}

isFound() {
    found=$(phone --json discover 2>/dev/null |
        jq -c --arg name "$demoName" --argjson port "$agentPort" 'select(.name == $name and .port == $port)') || true
    [[ -n $found ]]
}

phoneAsks() {
    local answer
    answer=$(phone --agent "$demoName" --json displays) || fail "the phone gets no list of displays"
    row 'displays' "$(jq -rs 'map("\(.name) \(.width)x\(.height)") | join(", ")' <<<"$answer")"
    answer=$(phone --agent "$demoName" --json ping -c 5) || fail "the agent does not answer a ping"
    row 'ping' "$(jq -r '"\(.medianMs * 100 | round / 100) ms"' <<<"$answer")"
}

# Watches while the phone does everything else, for demoSeconds at least. Everything stands still for the
# last two seconds, so that the film's last picture can be held against the screen.
phoneWatches() {
    local film=$1 name=${1#"$root/"} pid status=0 begun=$SECONDS
    say "the phone watches"
    startTone
    "${orvelPhone[@]}" --agent "$demoName" --json watch --events -o "$film" </dev/null >"$scratch/watch.json" &
    pid=$!
    adopt "$pid"
    # From here on the other commands use its link; earlier they would take the computer from it.
    waitUntil 30 test -s "$scratch/watch.json" || fail "the phone sees nothing"
    phoneDrives
    phoneFetches
    local rest=$((demoSeconds - 2 - (SECONDS - begun)))
    if ((rest > 0)); then sleep "$rest"; fi
    kill -STOP "${moving[@]}"
    sleep 2
    kill -TERM "$pid"
    waitUntil 20 isGone "$pid" || fail "the watching does not come to an end"
    endTone
    wait "$pid" || status=$?
    forget "$pid"
    ((status == 0)) || fail "the watching failed"
    row 'first picture' "$(jq -rs 'last | "after \(.firstPictureMs | round) ms"' "$scratch/watch.json")"
    row 'pictures' "$(jq -rs 'last | "\(.frames) in \(.seconds | round) s (\(.framesPerSecond * 10 | round / 10) a second), " +
        "\(.megabitsPerSecond * 10 | round / 10) Mbit/s, \(.keyframes) keyframes, \(.drops) lost"' "$scratch/watch.json")"
    if jq -es 'last | has("latencyMedianMs")' "$scratch/watch.json" >/dev/null; then
        row 'latency' "$(jq -rs 'last | "\(.latencyMedianMs * 10 | round / 10) ms in the median, " +
            "\(.latency95Ms * 10 | round / 10) ms for 95 of 100"' "$scratch/watch.json")"
    fi

    local trouble lasts
    trouble=$(ffmpeg -v error -xerror -i "$film" -fps_mode passthrough -enc_time_base -1 -f null - 2>&1 </dev/null) || trouble="${trouble:-ffmpeg fails}"
    [[ -z $trouble ]] || fail "$name does not play: $trouble"
    lasts=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$film")
    awk -v lasts="$lasts" -v wanted="$demoSeconds" 'BEGIN { exit !(lasts > wanted - 2) }' ||
        fail "$name lasts $lasts s instead of $demoSeconds"
    local count
    count=$(ffprobe -v error -select_streams v -count_packets -show_entries stream=nb_read_packets -of csv=p=0 "$film")
    ffmpeg -v error -y -i "$film" -vf "select=eq(n\,$((count - 1)))" -frames:v 1 "$scratch/last.png" </dev/null
    compareWithScreen "$scratch/last.png" "the film's last picture"
    phoneHeard
    hearTone "$film"
    row "$name" "$(describe "$film"), $(LC_ALL=C printf '%.1f' "$lasts") s; last picture $likeness dB like the screen"
}

phoneTakesPicture() {
    local name=${1#"$root/"}
    say "the phone takes a picture"
    phone --agent "$demoName" shot "$1" >/dev/null || fail "the phone gets no picture"
    compareWithScreen "$1" "$name"
    row "$name" "$(describe "$1"); $likeness dB like the screen"
    kill -CONT "${moving[@]}"
}

# describe FILE: size, codec and bytes.
describe() {
    printf '%s, %s' "$(ffprobe -v error -select_streams v -show_entries stream=codec_name,width,height -of csv=p=0 "$1" |
        awk -F, '{ print $2 "x" $3 " " $1 }')" "$(numfmt --to=si --suffix=B "$(stat -c %s "$1")")"
}

# compareWithScreen PICTURE NAME: holds it against a screenshot that another program takes. Sets
# likeness, the peak signal-to-noise ratio in dB. Fails when it shows something else; on somebody's own
# display other things may move, so that a poor likeness is only said there.
compareWithScreen() {
    local size
    size=$(xdpyinfo | awk '/dimensions:/ && !seen++ { print $2 }')
    ffmpeg -v error -y -f x11grab -video_size "$size" -i "$DISPLAY" -frames:v 1 "$scratch/grab.png" </dev/null
    likeness=$(ffmpeg -v info -i "$1" -i "$scratch/grab.png" -lavfi \
        '[1][0]scale2ref[b][a];[a]format=gbrp[a];[b]format=gbrp[b];[a][b]psnr' -f null - 2>&1 </dev/null |
        sed -n 's/.* average:\([0-9.inf]*\).*/\1/p')
    [[ -n $likeness ]] || fail "$2 cannot be compared with the screen"
    if [[ $likeness != inf ]]; then likeness=$(LC_ALL=C printf '%.1f' "$likeness"); fi
    if awk -v is="$likeness" -v wanted="$faithful" 'BEGIN { exit !(is != "inf" && is < wanted) }'; then
        [[ -z $isOwnDisplay ]] || fail "$2 does not show the screen ($likeness dB)"
        say "$2 differs from the screen ($likeness dB): does something else move there?"
    fi
}

agentEnds() {
    local status=0
    kill -TERM "$agentPid"
    waitUntil 10 isGone "$agentPid" || fail "the agent does not end"
    wait "$agentPid" || status=$?
    forget "$agentPid"
    ((status == 0)) || fail "the agent ended with $status: $(tail -n 3 "$scratch/agent.log")"
}
