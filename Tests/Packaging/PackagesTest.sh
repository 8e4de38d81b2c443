#!/usr/bin/env bash
# PackagesTest.sh BUILD: Debian packages are made of the programs in BUILD, looked at, installed into a
# scratch root, used there and purged. The scratch root is this system with a layer above it, where that can be
# mounted; otherwise an empty folder, into which dpkg installs without what the packages depend on.
# shellcheck disable=SC2317 # claim calls the functions
set -uo pipefail

root=$(cd -P "$(dirname "$0")/../.." && pwd)
failures=0

# claim TEXT COMMAND ...: the command ends with 0.
claim() {
    local text=$1 output
    shift
    if output=$("$@" 2>&1 </dev/null); then
        printf 'ok      %s\n' "$text"
    else
        printf 'FAILED  %s: %s\n%s\n' "$text" "$*" "$output"
        ((failures += 1))
    fi
}

# prints PATTERN COMMAND ...: it succeeds with a line like this.
prints() {
    local output pattern=$1
    shift
    if output=$("$@" 2>&1) && grep -q -e "$pattern" <<<"$output"; then return; fi
    printf '%s\n' "$output"
    return 1
}

# silent COMMAND ...: it succeeds and has nothing to say.
silent() {
    local output
    if output=$("$@" 2>&1) && [[ -z $output ]]; then return; fi
    printf '%s\n' "$output"
    return 1
}

# Warnings about a manual page.
renders() { LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$1" >/dev/null; }

# listens COMMAND ...: it is a relay that comes up.
listens() {
    local line='' relay
    exec {relay}< <(exec timeout 60 "$@")
    read -r -t 40 line <&"$relay"
    kill "$!"
    exec {relay}<&-
    [[ $line == '{"listening":'* ]]
}

# namesPlace FOLDER PATH ...: the files below FOLDER that contain one of these paths.
namesPlace() {
    local folder=$1
    shift
    grep -rlF "${@/#/-e}" "$folder" || (($? == 1))
}

# --- in the scratch root -----------------------------------------------------------------------------

# useThem FOLDER PROGRAMS [COMMAND ...]: what is installed below FOLDER works; COMMAND runs it, by the name that
# it has in the folder PROGRAMS.
useThem() {
    local folder=$1 programs=$2 program
    shift 2
    for program in orvel-agent orvel-phone orvel-relay; do
        claim "$program knows its version" prints "^$program [0-9]" "$@" "$programs/$program" --version
        claim "$program has help" prints '--help' "$@" "$programs/$program" --help
        claim "$program has a manual page" silent renders "$folder/usr/share/man/man1/$program.1.gz"
    done
    claim 'the relay listens' listens "$@" "$programs/orvel-relay" --port 0
    claim 'no service was enabled' silent find "$folder/etc" -path '*systemd*' -name 'orvel*'
    claim 'the release notes are of this version' grep -q "<release version=\"$(version)\"" \
        "$folder/usr/share/metainfo/com.halverton.orvel.agent.metainfo.xml"
}

version() { sed -n 's/^project(Orvel VERSION \([0-9.]*\) .*/\1/p' "$root/CMakeLists.txt"; }

# inLayer FOLDER: in a mount namespace, whose mounts end with it. Status 77 when there is no layer to be had.
inLayer() {
    local packages=$1 over=$1/over top=$1/over/top new=$1/over/new
    mkdir -p "$over" && mount -t tmpfs tmpfs "$over" && mkdir "$top" "$over/work" "$new" &&
        mount -t overlay overlay -o "lowerdir=/,upperdir=$top,workdir=$over/work" "$new" &&
        mount -t proc proc "$new/proc" && mount --rbind /dev "$new/dev" && mount -t tmpfs tmpfs "$new/run" &&
        mount -t tmpfs tmpfs "$new/tmp" && cp "$packages"/*.deb "$new/tmp" || return 77
    local files=("$new"/tmp/*.deb)
    files=("${files[@]#"$new"}")
    local apt=(chroot "$new" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Dpkg::Use-Pty=0)

    claim 'apt installs them' "${apt[@]}" --no-install-recommends install "${files[@]}"
    useThem "$new" /usr/bin chroot "$new" env HOME=/tmp
    claim 'systemd understands the service of the agent' \
        silent chroot "$new" env XDG_RUNTIME_DIR=/run systemd-analyze verify --man=no --user orvel-agent.service
    claim 'systemd understands the service of the relay' \
        silent chroot "$new" systemd-analyze verify --man=no orvel-relay.service
    claim 'man finds the pages' prints 'man1/orvel-phone.1.gz' chroot "$new" man -w orvel-phone
    # shellcheck disable=SC2016
    claim 'bash loads the completions' prints '-F _orvel_phone orvel-phone' chroot "$new" bash -c '
        source /usr/share/bash-completion/bash_completion
        _completion_loader orvel-phone
        complete -p orvel-phone'
    claim 'apt purges them' "${apt[@]}" purge orvel-agent orvel-phone orvel-relay
    claim 'the purge leaves nothing behind' silent leftIn "$top"
    return 0
}

# What the layer has that the system below has not, or hides of it; caches and logs do not count.
leftIn() {
    local path
    while IFS= read -r path; do
        if [[ -c $1/$path || ! -e /$path ]]; then printf '%s\n' "$path"; fi
    done < <(cd "$1" && find . -mindepth 1 \( -path ./var/cache -o -path ./var/log -o -path ./var/lib/apt -o -path ./tmp \
        -o -path ./run -o -path ./var/lib/dpkg/triggers \) -prune -o ! -name '*-old' ! -name 'lock*' -printf '%P\n')
}

inFolder() {
    local new=$1/root
    local dpkg=(dpkg --root="$new" --force-depends --force-script-chrootless --log=/dev/null)
    mkdir -p "$new"/var/lib/dpkg/{info,updates}
    touch "$new/var/lib/dpkg/status"
    claim 'dpkg installs them' "${dpkg[@]}" --install "$1"/*.deb
    useThem "$new" "$new/usr/bin" env HOME="$1"
    claim 'dpkg purges them' "${dpkg[@]}" --purge orvel-agent orvel-phone orvel-relay
    claim 'the purge leaves nothing behind' silent find "$new" -path "$new/var/lib/dpkg" -prune -o -iname '*orvel*' -print
}

case $1 in
    --in-layer)
        inLayer "$2" || exit 77
        exit $((failures > 0))
        ;;
    --in-folder)
        inFolder "$2"
        exit $((failures > 0))
        ;;
esac

# --- before ----------------------------------------------------------------------------------------------

build=$(cd -P "$1" && pwd)
# shellcheck source=scripts/common.sh
source "$root/scripts/common.sh"
# shellcheck source=scripts/package.sh
source "$root/scripts/package.sh"
trap - ERR
needScratch
packages=$scratch/packages
makePackages "$build" "$packages"

claim 'lintian finds no error and no warning' lintian --allow-root --fail-on error,warning "$packages"/*.deb
for package in "$packages"/*.deb; do dpkg-deb -x "$package" "$packages/files"; done
claim 'the desktop entry is valid' silent desktop-file-validate "$packages/files/usr/share/applications/orvel-agent.desktop"
claim 'the description for software centres is valid' appstreamcli validate --no-net \
    "$packages/files/usr/share/metainfo/com.halverton.orvel.agent.metainfo.xml"
claim 'no path of this machine is in them' silent namesPlace "$packages/files" "$root" "$build" "$packages"
cp -r "$packages" "$scratch/first"
makePackages "$build" "$packages"
for package in "$packages"/*.deb; do claim "${package##*/} is the same again" cmp "$package" "$scratch/first/${package##*/}"; done

# Without root, and in containers, there may be no layer.
status=77
if ((EUID == 0)); then
    status=0
    unshare --mount bash "$0" --in-layer "$packages" || status=$?
fi
if ((status == 77)); then
    printf 'no layer can be mounted here: dpkg installs into an empty folder\n'
    status=0
    as=()
    ((EUID == 0)) || as=(unshare --user --map-root-user)
    "${as[@]}" bash "$0" --in-folder "$packages" || status=$?
fi
exit $((failures > 0 || status != 0))
