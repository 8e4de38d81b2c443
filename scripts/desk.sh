# shellcheck shell=bash
# What a desktop has and a bare machine lacks: a display with something on it, sound, and a DNS-SD
# responder.

virtualSize=1920x1080

displayAnswers() { [[ -n ${DISPLAY:-} ]] && timeout 5 xdpyinfo >/dev/null 2>&1; }

# startDisplay: an X server of our own on a free number; sets DISPLAY.
startDisplay() {
    needScratch
    # Xvfb writes the number once it answers. -noreset: it would forget its monitors with the last client.
    start xvfb Xvfb -displayfd 3 -screen 0 "${virtualSize}x24" -noreset -nolisten tcp 3>"$scratch/display"
    waitUntil 20 test -s "$scratch/display" || fail "Xvfb does not start: $(tail -n 3 "$scratch/xvfb.log")"
    DISPLAY=:$(<"$scratch/display")
    export DISPLAY
    unset WAYLAND_DISPLAY
}

soundAnswers() { timeout 5 pactl info >/dev/null 2>&1; }

# startSound: a sound server of our own whose output has no device; sets PULSE_SERVER. False when that
# cannot be had.
startSound() {
    command -v pulseaudio >/dev/null || return 1
    needScratch
    local address=unix:$scratch/sound
    # It would start a bus where it finds none, and write to the home of whoever runs this.
    start sound env -u DISPLAY -u XDG_CONFIG_HOME HOME="$scratch" XDG_RUNTIME_DIR="$scratch" \
        DBUS_SESSION_BUS_ADDRESS=disabled: DBUS_SYSTEM_BUS_ADDRESS=disabled: \
        pulseaudio -n --daemonize=no --use-pid-file=no --exit-idle-time=-1 --disallow-exit --log-target=stderr \
        -L "module-native-protocol-unix auth-cookie-enabled=0 socket=$scratch/sound" \
        -L 'module-null-sink sink_name=virtual rate=48000'
    PULSE_SERVER=$address waitUntil 10 soundAnswers || return 1
    export PULSE_SERVER=$address
}

# playTone HERTZ SECONDS: a sine of half the full scale on the default output, by a program of its own; its
# pid is $!.
playTone() {
    needScratch
    ffmpeg -v error -y -f lavfi -i "sine=frequency=$1:duration=$2:sample_rate=48000" -af volume=15dB -ac 2 "$scratch/tone.wav" </dev/null
    start player paplay "$scratch/tone.wav"
}

# startSession: a session bus of our own, which starts the accessibility service when it is asked for; sets
# DBUS_SESSION_BUS_ADDRESS.
startSession() {
    needScratch
    export XDG_RUNTIME_DIR=$scratch
    start session env DISPLAY="$DISPLAY" dbus-daemon --session --nofork --nopidfile --address="unix:path=$scratch/session"
    waitUntil 10 test -S "$scratch/session" || fail "the session bus does not start: $(tail -n 3 "$scratch/session.log")"
    export DBUS_SESSION_BUS_ADDRESS=unix:path=$scratch/session
}

# startVirtualDesk: a display with a window manager and a clock, whose process is clockPid; a session and
# sound.
startVirtualDesk() {
    startDisplay
    [[ -n ${DBUS_SESSION_BUS_ADDRESS:-} ]] || startSession
    startSound || say "the virtual desktop has no sound"
    xsetroot -solid '#31506b'
    start openbox openbox --sm-disable
    start clock xterm -geometry 64x14+60+60 -fa Monospace -fs 14 -bg '#10181f' -fg '#d8e6f0' -title 'Orvel' \
        -e sh -c 'while :; do clear; echo; echo "  A virtual desktop."; echo; date "+  %A %d %B, %H:%M:%S"; sleep 1; done'
    # shellcheck disable=SC2034 # the demo stops the clock
    clockPid=$!
    waitUntil 10 hasWindow Orvel || fail "the virtual desktop does not come up: $(tail -n 3 "$scratch/clock.log")"
}

hasWindow() { xwininfo -name "$1" >/dev/null 2>&1; }

avahiAnswers() {
    timeout 5 dbus-send --system --print-reply --dest=org.freedesktop.Avahi / \
        org.freedesktop.Avahi.Server.GetVersionString >/dev/null 2>&1
}

# startPrivateAvahi: a bus and a responder of our own that speak on the loopback interface only; sets
# DBUS_SYSTEM_BUS_ADDRESS. False when that cannot be had.
startPrivateAvahi() {
    needScratch
    chmod 711 "$scratch" # the daemon may run as another user than we do
    cat >"$scratch/bus.conf" <<END
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>unix:path=$scratch/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
END
    cat >"$scratch/avahi.conf" <<'END'
[server]
allow-interfaces=lo
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
END
    start bus dbus-daemon --config-file="$scratch/bus.conf" --nofork --nopidfile
    waitUntil 10 test -S "$scratch/bus" || return 1
    export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$scratch/bus

    # The daemon insists on its pid file in /run: with a /run of its own it cannot meet another one. Where
    # no new mount namespace is allowed it gets the common /run.
    local isolate=()
    if asRoot unshare --mount true 2>/dev/null; then isolate=(unshare --mount); fi
    # shellcheck disable=SC2016
    start avahi asRoot env DBUS_SYSTEM_BUS_ADDRESS="$DBUS_SYSTEM_BUS_ADDRESS" "${isolate[@]}" sh -c '
        echo $$ >"$1/avahi.pid"
        if [ "$2" = own ]; then mount -t tmpfs tmpfs /run; fi
        mkdir -p /run/avahi-daemon
        exec avahi-daemon --no-drop-root --no-chroot --no-proc-title --no-rlimits -f "$1/avahi.conf"
    ' sh "$scratch" "${isolate:+own}"
    waitUntil 5 test -s "$scratch/avahi.pid" || return 1
    started[-1]=root:$(<"$scratch/avahi.pid") # sudo, if any, ends with it
    waitUntil 10 avahiAnswers
}
