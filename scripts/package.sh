# shellcheck shell=bash
# ./orvel package: Debian packages of the release build, in dist/.

package() {
    (($# == 0)) || { usage >&2; exit 2; }
    setUp build package
    build release orvel-agent orvel-phone orvel-relay orvel-manual-pages
    makePackages "$root/build/release" "$root/build/package"
    say "checking them with lintian"
    lintian --allow-root --fail-on error,warning "$root"/build/package/*.deb || fail "lintian finds fault with them"
    rm -rf -- "$root/dist"
    mkdir "$root/dist"
    cp -- "$root"/build/package/*.deb "$root/dist"
    say "install them with: apt-get install ./dist/*.deb"
    (cd "$root" && ls -sh1 dist/*.deb)
}

# makePackages BUILD FOLDER: packages of what BUILD holds, in FOLDER, which is made anew. The same programs of the
# same commit give the same bytes.
makePackages() {
    local folder=$2 source=$2/source version
    version=$(packageVersion)
    say "making packages of version $version"
    rm -rf -- "$folder"
    mkdir -p "$source"
    cp -r -- "$root/Packaging/linux/debian" "$source"
    rm -- "$source/debian/control.in"
    cp -- "$1/Packaging/linux/debian/control" "$source/debian"
    cat >"$source/debian/changelog" <<END_OF_ENTRY
orvel ($version) unstable; urgency=medium

  * $(sourceOrigin)

 -- $(sed -n 's/^Maintainer: //p' "$source/debian/control")  $(LC_ALL=C date -u -R -d "@$(sourceTime)")
END_OF_ENTRY
    (cd "$source" && umask 022 &&
        ORVEL_BUILD=$1 ORVEL_SOURCE=$root LC_ALL=C.UTF-8 dpkg-buildpackage --build=binary --no-sign --no-check-builddeps) \
        >"$folder/log" 2>&1 || {
        tail -n 30 "$folder/log" >&2
        fail "the packages could not be made; all of it: ${folder#"$root"/}/log"
    }
}

# Of the clone, whoever owns it.
ofCommit() { git -C "$root" -c safe.directory="$root" "$@" 2>/dev/null; }

# The project's version; between two releases with the time and name of the commit, so that a newer one
# replaces an older one.
packageVersion() {
    local version
    version=$(sed -n 's/^project(Orvel VERSION \([0-9.]*\) .*/\1/p' "$root/CMakeLists.txt")
    if ofCommit rev-parse -q HEAD >/dev/null && ! ofCommit describe --exact-match --match "v$version" HEAD >/dev/null; then
        version+=+git$(date -u -d "@$(sourceTime)" +%Y%m%d.%H%M%S).$(ofCommit rev-parse --short=8 HEAD)
    fi
    printf '%s-0orvel1\n' "$version"
}

# When the commit was made; of sources without git the newest file.
sourceTime() {
    ofCommit log -1 --format=%ct ||
        find "$root" -path "$root/build" -prune -o -path "$root/dist" -prune -o -type f -printf '%T@\n' | sort -n | tail -n 1 | cut -d . -f 1
}

sourceOrigin() {
    local commit changed
    commit=$(ofCommit rev-parse HEAD) || { printf 'Made from sources without a history.\n'; return; }
    changed=$(ofCommit status --porcelain --untracked-files=no)
    printf 'Made from commit %s%s.\n' "$commit" "${changed:+, with changes}"
}
