# shellcheck shell=bash
# The whole program from outside: what a delivered frame costs the agent's process beside what the same
# screen costs ffmpeg, what a still screen costs, and how old a picture is when the phone has it.
# Runs inside ./orvel bench. Everything is on a display of its own; agent and ffmpeg take turns.

benchRounds=3
benchSeconds=8

measureWholeProgram() {
    local mode round
    printf '\nCPU for each delivered frame, %s, %d rounds of %d s in turns\n' "$virtualSize" "$benchRounds" "$benchSeconds"
    printf '%-8s %12s %8s %8s %14s %8s %8s %8s\n' screen 'agent ms' 'frames/s' 'Mbit/s' 'ffmpeg ms' 'frames/s' 'Mbit/s' ratio
    for mode in scroll film typing; do
        showScreen "$mode"
        for ((round = 0; round < benchRounds; ++round)); do
            measureAgent
            measureFFmpeg
            printf '%-8s %12s %8s %8s %14s %8s %8s %8s\n' "$mode" "$agentCost" "$agentRate" "$agentBits" \
                "$ffmpegCost" "$ffmpegRate" "$ffmpegBits" \
                "$(awk -v a="$agentCost" -v b="$ffmpegCost" 'BEGIN { printf "%.2f", a / b }')"
        done
        endScreen
    done

    measureStill
    printf '\nA still screen while a phone watches, %d s: %s %% of a core\n' $((2 * benchSeconds)) "$stillShare"
    printf '\nFrom a change on the display to its decoded picture at the phone (a frame time is 16.7 ms)\n'
    for mode in still typing scroll; do
        showScreen "$mode"
        phone "${benchPhone[@]}" watch --latency-probe --samples 150 |
            jq -r --arg mode "$mode" '"\($mode): median \(.probeMedianMs * 10 | round / 10) ms (\(.probeMedianMs * 6 | round / 100) frame times), " +
                "95 % \(.probe95Ms * 10 | round / 10) ms (\(.probe95Ms * 6 | round / 100)), not seen \(.probeLost) of \(.probeSamples)"'
        endScreen
    done
    printf '\nFrom the connect to the first decoded picture\n'
    for mode in still scroll; do
        showScreen "$mode"
        for ((round = 0; round < 10; ++round)); do
            phone "${benchPhone[@]}" watch --seconds 0.2
        done | jq -rs --arg mode "$mode" 'map(.firstPictureMs | round) | sort |
            "\($mode): median \(.[length / 2 | floor]) ms, worst \(.[-1]) ms of \(length)"'
        endScreen
    done
    printf '\n'
}

showScreen() {
    start screen "$root/build/release/orvel-moving-screen" --mode "$1" --whole
    screenPid=$!
    waitUntil 20 hasWindow 'Moving screen' || fail "nothing to measure: $(tail -n 3 "$scratch/screen.log")"
    sleep 1
}

endScreen() { endProcess "$screenPid"; }

# The processor time of a process so far, in ms.
cpuTime() { awk -v hz="$(getconf CLK_TCK)" '{ print ($14 + $15) * 1000 / hz }' "/proc/$1/stat"; }

measureAgent() {
    local before after
    before=$(cpuTime "$agentPid")
    phone "${benchPhone[@]}" watch --seconds "$benchSeconds" >"$scratch/watch.json"
    after=$(cpuTime "$agentPid")
    read -r agentCost agentRate agentBits < <(jq -r --argjson cpu "$(awk -v a="$before" -v b="$after" 'BEGIN { print b - a }')" \
        '"\($cpu / .frames * 100 | round / 100) \(.framesPerSecond * 10 | round / 10) \(.megabitsPerSecond * 10 | round / 10)"' \
        "$scratch/watch.json")
}

# 4:2:0 like the agent's own pictures; without being told ffmpeg would take 4:4:4 from this screen.
measureFFmpeg() {
    local TIMEFORMAT='%U %S' frames user system
    { time ffmpeg -v error -nostdin -f x11grab -framerate 60 -video_size "$virtualSize" -t "$benchSeconds" -i "$DISPLAY" \
        -pix_fmt yuv420p -c:v libx264 -preset ultrafast -tune zerolatency -f h264 -y -progress "$scratch/progress" \
        "$scratch/ffmpeg.h264"; } 2>"$scratch/times"
    frames=$(sed -n 's/^frame=//p' "$scratch/progress" | tail -n 1)
    read -r user system < <(tail -n 1 "$scratch/times")
    read -r ffmpegCost ffmpegRate ffmpegBits < <(awk -v cpu="$user $system" -v frames="$frames" -v s="$benchSeconds" \
        -v bytes="$(stat -c %s "$scratch/ffmpeg.h264")" \
        'BEGIN { split(cpu, t, " "); printf "%.2f %.1f %.1f\n", (t[1] + t[2]) * 1000 / frames, frames / s, bytes * 8 / s / 1e6 }')
    rm -f "$scratch/ffmpeg.h264"
}

# Sets stillShare, in % of a core, with a phone that watches; the beginning, with its sharp frame, is left out.
measureStill() {
    local before pid
    showScreen still
    "${orvelPhone[@]}" "${benchPhone[@]}" watch --seconds $((2 * benchSeconds + 5)) >/dev/null &
    pid=$!
    adopt "$pid"
    sleep 4
    before=$(cpuTime "$agentPid")
    sleep $((2 * benchSeconds))
    stillShare=$(awk -v before="$before" -v after="$(cpuTime "$agentPid")" -v s=$((2 * benchSeconds)) \
        'BEGIN { printf "%.2f", (after - before) / s / 10 }')
    wait "$pid"
    forget "$pid"
    endScreen
}
