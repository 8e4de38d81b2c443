# shellcheck shell=bash
# The part of the demo in which the phone works at the computer: it types into an editor, selects by a
# drag, copies, pastes, scrolls and fetches a file, while it watches. What came of it is judged by the
# file that the editor saves, the sound by the film.

typedText=$'Şu ılık çöğüş 👍🏽, "1 < 2" & e\u0301 = é\nikinci satır: Ωmega €\n'
pastedText='the clipboard of the phone ✓'
scrollMark='typed where the phone scrolled to'
toneHertz=440
fetchedBytes=50000000

# startTone: something to hear, where there is a sound server.
startTone() {
    playsTone=
    if soundAnswers; then
        playTone "$toneHertz" 60
        playsTone=$!
    fi
}

endTone() { [[ -z $playsTone ]] || endProcess "$playsTone"; }

phoneDrives() {
    say "the phone works at the computer"
    openEditor
    if ! phoneDrags; then
        row 'not driven' 'the editor does not take the keyboard, and nothing else shall get what is typed'
        return
    fi
    phoneCopies
    phoneScrolls
    phoneTypes
    phonePastes
    endProcess "$editorPid"
}

# openEditor: sets editorPid, editor (its window) and note, the file that it edits.
openEditor() {
    note=$scratch/note.txt
    seq -f 'line %g of what was there before' 400 >"$note"
    start editor l3afpad "$note"
    editorPid=$!
    waitUntil 10 hasWindow note.txt || fail "the editor does not open: $(tail -n 3 "$scratch/editor.log")"
    editor=$(xwininfo -name note.txt | awk '/Window id:/ { print $4 }')
}

# inEditor X Y: the place X, Y per cent into the editor's window, as the phone says it: as parts of the
# display that it is shown.
inEditor() {
    local display
    display=$(xrandr --listactivemonitors | awk 'NR > 1 && (!found || $2 ~ /\*/) { found = $3 } END { print found }')
    { xwininfo -id "$editor"; } | awk -v x="$1" -v y="$2" -v display="$display" '
        /Absolute upper-left X:/ { left = $NF }
        /Absolute upper-left Y:/ { top = $NF }
        /Width:/ { width = $NF }
        /Height:/ { height = $NF }
        END {
            split(display, d, /[\/x+]/) # WIDTH/MMxHEIGHT/MM+X+Y
            printf "%.6f %.6f\n", (left + width * x / 100 - d[5]) / d[1], (top + height * y / 100 - d[6]) / d[3]
        }'
}

# Selects some lines. False when the editor does not get the keyboard from that.
phoneDrags() {
    local from to
    read -ra from < <(inEditor 10 40)
    read -ra to < <(inEditor 50 70)
    phone --agent "$demoName" drag "${from[@]}" "${to[@]}" || fail "the phone does not drag"
    waitUntil 3 editorIsActive
}

editorIsActive() {
    local active
    active=$(xprop -root _NET_ACTIVE_WINDOW 2>/dev/null | sed -n 's/.*# //p')
    # A desktop without a window manager has no such property, and gives the keyboard to whoever is clicked.
    [[ -z $active ]] || ((active == editor))
}

keys() { phone --agent "$demoName" key "$@" || fail "the phone presses no keys"; }

# saved COMMAND ...: saves until the command is content with the file.
saved() {
    keys cmd+s
    waitUntil 5 "$@"
}

phoneTypes() {
    keys cmd+home
    phone --agent "$demoName" type "$typedText" || fail "the phone does not type"
    saved noteStartsWith "$typedText" || fail "the editor got another text: $(head -n 2 "$note")"
    row 'typed' "$(head -n 1 "$note")"
}

noteStartsWith() {
    local text
    text=$(<"$note")
    [[ $text == "$1"* ]]
}

phoneCopies() {
    local pid copied text status=0
    "${orvelPhone[@]}" --agent "$demoName" clip -c 1 </dev/null >"$scratch/copied" &
    pid=$!
    adopt "$pid"
    keys cmd+c
    waitUntil 5 isGone "$pid" || fail "the phone does not hear what was copied"
    wait "$pid" || status=$?
    forget "$pid"
    ((status == 0)) || fail "the phone does not hear what was copied"
    copied=$(<"$scratch/copied")
    text=$(<"$note")
    [[ -n $copied && $text == *"$copied"* ]] || fail "the phone heard another text than what was selected"
    row 'dragged, copied' "${#copied} characters, $(wc -l <<<"$copied") lines: $(head -n 1 <<<"$copied") ..."
}

phonePastes() {
    phone --agent "$demoName" clip "$pastedText" || fail "the phone does not set the clipboard"
    keys cmd+home
    keys cmd+v
    saved noteStartsWith "$pastedText" || fail "the editor did not paste the phone's text: $(head -n 1 "$note")"
    row 'pasted' "$pastedText"
}

phoneScrolls() {
    local place line
    phone --agent "$demoName" scroll 0 -2500 || fail "the phone does not scroll"
    read -ra place < <(inEditor 60 60)
    phone --agent "$demoName" click --at "${place[@]}" || fail "the phone does not click"
    waitUntil 3 editorIsActive || fail "the editor lost the keyboard"
    phone --agent "$demoName" type "$scrollMark" || fail "the phone does not type"
    saved grep -q "$scrollMark" "$note" || fail "nothing was typed where the phone scrolled to"
    line=$(grep -n "$scrollMark" "$note" | cut -d : -f 1)
    ((line > 60)) || fail "the editor did not scroll: line $line"
    row 'scrolled' "to line $line of $(wc -l <"$note")"
}

phoneFetches() {
    local file=$scratch/shared/download.bin begun took
    mkdir -p "${file%/*}"
    head -c "$fetchedBytes" /dev/urandom >"$file"
    begun=$EPOCHREALTIME
    phone --agent "$demoName" get "$file" -o "$scratch/fetched.bin" >/dev/null || fail "the phone fetches no file"
    took=$(awk -v a="$begun" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.2f", b - a }')
    cmp -s "$file" "$scratch/fetched.bin" || fail "the file came over with other bytes"
    row 'fetched' "$(numfmt --to=si --suffix=B "$fetchedBytes") in $took s while the picture flowed, byte for byte"
}

# hearTone FILM: whether the tone is what the film has for sound: of all its power the narrow band around it
# must hold nearly all.
hearTone() {
    if [[ -z $playsTone ]]; then
        row 'sound' 'no sound server here'
        return
    fi
    local all band lost
    all=$(loudness "$1" anull)
    band=$(loudness "$1" "bandpass=frequency=$toneHertz:width_type=h:width=40")
    [[ -n $all && -n $band ]] || fail "the film has no sound"
    awk -v all="$all" -v band="$band" 'BEGIN { exit !(band > -30 && all - band < 1.5) }' ||
        fail "the film's sound is not the tone of $toneHertz Hz (all $all dB, there $band dB)"
    lost=$(jq -rs 'last.audioLost' "$scratch/watch.json")
    row 'sound' "the tone of $toneHertz Hz, $band dB of $all dB, $(jq -rs 'last.audioPackets' "$scratch/watch.json") packets, $lost lost"
}

# loudness FILM FILTER: in dB, from the second second on.
loudness() {
    ffmpeg -v info -ss 1 -i "$1" -vn -af "$2,volumedetect" -f null - 2>&1 </dev/null |
        sed -n 's/.*mean_volume: \(.*\) dB/\1/p'
}

# What the phone was told meanwhile.
phoneHeard() {
    local fronts focus
    fronts=$(jq -rs 'map(.frontApp | objects | .name | select(. != "")) | unique | join(", ")' "$scratch/watch.json")
    focus=$(jq -rs 'map(.textFocus | objects | ._0) | if any then "a text had the keyboard" else "no text field was seen" end' "$scratch/watch.json")
    row 'told' "in front: ${fronts:-unknown}; $focus"
}
