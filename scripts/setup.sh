# shellcheck shell=bash
# Installs what is missing of packages.txt.

# listed SECTION ...: the packages of these sections; of all when none is given. NAME|OTHER where one of
# them will do.
listed() {
    awk -v wanted=" $* " '
        match($0, /^# \[[a-z]+\]/) { section = substr($0, 4, RLENGTH - 4); next }
        { sub(/#.*/, ""); gsub(/[ \t]/, "") }
        NF && (wanted ~ /^ *$/ || index(wanted, " " section " ")) { print }
    ' "$root/packages.txt"
}

# missing PACKAGE ...: those that are not installed, and the first where none is of several that will do.
missing() {
    local names
    mapfile -t names < <(printf '%s\n' "$@" | tr '|' '\n')
    # dpkg-query fails for a name that it never heard of; what it says of the others still counts.
    awk -F '|' '
        FILENAME == ARGV[1] { if ($2 == "installed") installed[$1]; next }
        { for (i = 1; i <= NF; ++i) if ($i in installed) next; print $1 }
    ' <(dpkg-query -W -f '${Package}|${db:Status-Status}\n' "${names[@]}" 2>/dev/null || true) <(printf '%s\n' "$@")
}

# setUp [SECTION ...]: instant when nothing is missing. Without a section: what all of the project needs here.
setUp() {
    (($#)) || set -- build run package test
    local names lacking
    local section
    for section; do
        if ! grep -qFx "# [$section]" "$root/packages.txt"; then
            say "packages.txt has no section \"$section\" (build, run, package, test, macos)"
            exit 2
        fi
    done
    command -v dpkg-query >/dev/null || fail "this needs Debian 12: dpkg and apt are not here"
    mapfile -t names < <(listed "$@")
    mapfile -t lacking < <(missing "${names[@]}")
    ((${#lacking[@]})) || return 0

    say "installing ${#lacking[@]} packages: ${lacking[*]}"
    if ((EUID != 0)) && ! command -v sudo >/dev/null; then
        fail "installing needs root: run ./orvel setup as root, or install sudo"
    fi
    needScratch
    local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0)
    asRoot "${apt[@]}" update 2>&1 </dev/null | aptProgress ||
        say "the package lists could not be renewed; trying with the old ones"
    if ! asRoot "${apt[@]}" install -y --no-install-recommends "${lacking[@]}" 2>&1 </dev/null | aptProgress; then
        if [[ ! -t 2 ]]; then tail -n 20 "$scratch/apt.log" >&2; fi
        fail "what is missing could not be installed; the reasons stand above"
    fi
}

# setUpClients: the phone in a browser and what drives it, and other people's clients of the relay, against
# which it is tested, and a TURN server. Without them those tests are skipped.
setUpClients() {
    local folder
    for folder in Phone/web Tests/Web Tests/Relay; do
        (setUpPackages "$folder") || say "their tests will be skipped"
    done
    setUpTurnServer
}

# setUpTurnServer: unpacked only: installed it would be a service, open to everybody.
setUpTurnServer() {
    local folder=$root/build/coturn
    if [[ -x $folder/usr/bin/turnserver ]]; then return 0; fi
    mkdir -p "$folder"
    (cd "$folder" && apt-get -q download coturn && dpkg-deb -x coturn_*.deb .) >"$folder/apt.log" 2>&1 ||
        say "no TURN server to be had, its test will be skipped: $(tail -n 1 "$folder/apt.log")"
}

# setUpPackages FOLDER: the packages of node that it lists; instant when they are there.
setUpPackages() {
    local folder=$root/$1
    if [[ $folder/node_modules/.package-lock.json -nt $folder/package-lock.json ]]; then return 0; fi
    say "installing the packages of $1"
    # By program: some distributions of node bring npm with them and are in the way of Debian's.
    local program
    for program in node npm; do
        if command -v "$program" >/dev/null; then continue; fi
        asRoot env DEBIAN_FRONTEND=noninteractive apt-get -q install -y --no-install-recommends \
            "${program/%node/nodejs}" >&2 </dev/null || true
    done
    (cd "$folder" && npm ci --ignore-scripts --no-fund --no-audit >&2 </dev/null) || fail "they could not be installed"
}

# What apt says, on stderr: all of it for a person, else every fiftieth package; all of it in a log, too.
aptProgress() {
    tee -a "$scratch/apt.log" | if [[ -t 2 ]]; then
        cat >&2
    else
        awk '
            /newly installed/ { print "    " $0 }
            /^Setting up / && ++count % 50 == 0 { print "    " count " packages set up" }
            { fflush() }
        ' >&2
    fi
}
