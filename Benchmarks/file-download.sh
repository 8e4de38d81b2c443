# shellcheck shell=bash
# A download beside scp with the same cipher, in turns, over loopback and from memory to memory. Runs
# inside ./orvel bench.

downloadRounds=5

measureDownloads() {
    prepareLargeFile
    startSecureShell
    local round bytes our=() their=() ourCPU=() theirCPU=()
    bytes=$(stat -c %s "$scratch/large")
    printf '\nA file of %s from memory to memory, %d rounds in turns; CPU of both ends together\n' \
        "$(numfmt --to=iec "$bytes")" "$downloadRounds"
    printf '%10s %12s %10s %10s %12s %10s %14s\n' 'orvel s' 'agent s/GB' 'phone s/GB' 'scp s' 'sshd s/GB' 'ssh s/GB' 'speed, CPU'
    for ((round = 0; round < downloadRounds; ++round)); do
        downloadByPhone
        downloadByScp
        printf '%10.2f %12.2f %10.2f %10.2f %12.2f %10.2f %14s\n' "$phoneSeconds" "$agentPerGB" "$phonePerGB" \
            "$scpSeconds" "$sshdPerGB" "$sshPerGB" \
            "$(awk -v a="$phoneSeconds" -v b="$scpSeconds" -v c="$agentPerGB" -v d="$phonePerGB" -v e="$sshdPerGB" -v f="$sshPerGB" \
                'BEGIN { printf "%.2f, %.2f", b / a, (c + d) / (e + f) }')"
        our+=("$phoneSeconds") their+=("$scpSeconds")
        ourCPU+=("$(awk -v a="$agentPerGB" -v b="$phonePerGB" 'BEGIN { print a + b }')")
        theirCPU+=("$(awk -v a="$sshdPerGB" -v b="$sshPerGB" 'BEGIN { print a + b }')")
    done
    printf 'medians: %.2f s and %.2f s for scp; CPU %.2f s/GB and %.2f s/GB for scp\n' "$(middle "${our[@]}")" \
        "$(middle "${their[@]}")" "$(middle "${ourCPU[@]}")" "$(middle "${theirCPU[@]}")"
    endProcess "$sshdPid"
    rm -f "$scratch/large"
}

middle() { printf '%s\n' "$@" | sort -g | sed -n "$((($# + 1) / 2))p"; }

# A file of a gigabyte, or of what the memory has room for.
prepareLargeFile() {
    [[ -f $scratch/large ]] && return
    local room
    room=$(($(df --output=avail -B1 "$scratch" | tail -n 1) / 4))
    head -c "$((room < 1 << 30 ? room : 1 << 30))" /dev/urandom >"$scratch/large"
}

# The server as the package brings it, but not installed: nobody's computer shall serve the world's shells
# because it was measured here. Keys for one run, loopback only. Sets sshdPid, sshPort and sshUser.
startSecureShell() {
    local server=$root/build/sshd/usr/sbin/sshd as=()
    if [[ ! -x $server ]]; then
        say "unpacking the SSH server that downloads are held against"
        mkdir -p "$root/build/sshd"
        (cd "$root/build/sshd" && apt-get -q download openssh-server >apt.log 2>&1 && dpkg-deb -x openssh-server_*.deb .) ||
            fail "the SSH server cannot be had: $(tail -n 3 "$root/build/sshd/apt.log")"
    fi
    sshUser=$(id -un)
    if ((EUID == 0)); then
        # As root it would ask for an account of its own that the machine does not have.
        sshUser=nobody
        as=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
    fi
    mkdir -p "$scratch/ssh"
    ssh-keygen -q -t ed25519 -N '' -f "$scratch/ssh/host"
    ssh-keygen -q -t ed25519 -N '' -f "$scratch/ssh/phone"
    sshPort=$(freePort)
    cat >"$scratch/ssh/config" <<END
ListenAddress 127.0.0.1:$sshPort
HostKey $scratch/ssh/host
AuthorizedKeysFile $scratch/ssh/phone.pub
PidFile none
StrictModes no
UsePAM yes
PasswordAuthentication no
KbdInteractiveAuthentication no
Ciphers chacha20-poly1305@openssh.com
Subsystem sftp internal-sftp
ForceCommand internal-sftp
END
    chmod 711 "$scratch"
    ((EUID != 0)) || chown "$sshUser" "$scratch/ssh/host"
    chmod 711 "$scratch/ssh"
    chmod 644 "$scratch/ssh/config" "$scratch/ssh/phone.pub" "$scratch/large"
    # It does not wait for all its grandchildren: as their subreaper it does, and their time is known.
    start sshd "${as[@]}" /usr/bin/python3 -c 'import ctypes, os, sys
ctypes.CDLL(None).prctl(36, 1, 0, 0, 0)  # PR_SET_CHILD_SUBREAPER
os.execv(sys.argv[1], sys.argv[1:])' "$server" -D -e -f "$scratch/ssh/config"
    sshdPid=$!
    waitUntil 10 sshAnswers || fail "the SSH server does not start: $(tail -n 3 "$scratch/sshd.log")"
}

freePort() {
    local port
    for ((port = 22022; port < 22122; ++port)); do
        if ! (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
            printf '%s' "$port"
            return
        fi
    done
    fail "no free port"
}

sshAnswers() { (: <"/dev/tcp/127.0.0.1/$sshPort") 2>/dev/null; }

# perGB MILLISECONDS: in seconds for each 10^9 bytes of the large file.
perGB() { awk -v ms="$1" -v bytes="$(stat -c %s "$scratch/large")" 'BEGIN { printf "%.3f", ms / 1000 / (bytes / 1e9) }'; }

# timed COMMAND ...: sets seconds and, in ms of CPU, cost.
timed() {
    local TIMEFORMAT='%R %U %S' user system
    { time "$@" 2>"$scratch/timed.log"; } 2>"$scratch/times" || fail "$1: $(tail -n 3 "$scratch/timed.log")"
    read -r seconds user system < <(tail -n 1 "$scratch/times")
    cost=$(awk -v u="$user" -v s="$system" 'BEGIN { print (u + s) * 1000 }')
}

downloadByPhone() {
    local before seconds cost
    before=$(cpuTime "$agentPid")
    timed phone "${benchPhone[@]}" get "$scratch/large" -o "$scratch/fetched" >"$scratch/get.json"
    agentPerGB=$(perGB "$(awk -v a="$before" -v b="$(cpuTime "$agentPid")" 'BEGIN { print b - a }')")
    phonePerGB=$(perGB "$cost")
    phoneSeconds=$seconds
    cmp "$scratch/large" "$scratch/fetched"
    rm -f "$scratch/fetched"
}

downloadByScp() {
    local before seconds cost
    before=$(childrenTime "$sshdPid")
    timed scp -q -F /dev/null -P "$sshPort" -i "$scratch/ssh/phone" -c chacha20-poly1305@openssh.com \
        -o BatchMode=yes -o IdentitiesOnly=yes -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null -o LogLevel=ERROR \
        "$sshUser@127.0.0.1:$scratch/large" "$scratch/fetched"
    # What the server's processes took is known when they were waited for.
    waitUntil 10 hasNoChildren "$sshdPid" || fail "the SSH server does not end its session"
    sshdPerGB=$(perGB "$(awk -v a="$before" -v b="$(childrenTime "$sshdPid")" 'BEGIN { print b - a }')")
    sshPerGB=$(perGB "$cost")
    scpSeconds=$seconds
    cmp "$scratch/large" "$scratch/fetched"
    rm -f "$scratch/fetched"
}

hasNoChildren() { [[ -z $(<"/proc/$1/task/$1/children") ]]; }

# The processor time, in ms, of a process's children that have ended.
childrenTime() { awk -v hz="$(getconf CLK_TCK)" '{ print ($16 + $17) * 1000 / hz }' "/proc/$1/stat"; }
