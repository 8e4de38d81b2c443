# shellcheck shell=bash
# Installs what is missing of packages.txt.

# listed SECTION ...: the package names of these sections; of all when none is given.
listed() {
    awk -v wanted=" $* " '
        match($0, /^# \[[a-z]+\]/) { section = substr($0, 4, RLENGTH - 4); next }
        { sub(/#.*/, "") }
        NF && (wanted ~ /^ *$/ || index(wanted, " " section " ")) { print $1 }
    ' "$root/packages.txt"
}

# missing PACKAGE ...: those that are not installed.
missing() {
    local installed
    # dpkg-query fails for a name that it never heard of; what it says of the others still counts.
    installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null |
        awk '$2 == "installed" { print $1 }') || true
    printf '%s\n' "$@" | grep -vxF -f <(printf '%s\n' "$installed") || true
}

# setUp [SECTION ...]: instant when nothing is missing.
setUp() {
    local names lacking
    local section
    for section; do
        if [[ $section != build && $section != run && $section != test ]]; then
            say "packages.txt has no section \"$section\" (build, run, test)"
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
