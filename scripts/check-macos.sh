# shellcheck shell=bash
# ./orvel check-macos SDK=DIR [SPARKLE=DIR]: the Mac's side, looked at from here. Everything the agent and the relay consist of
# is compiled for both processors against the headers of a macOS SDK, with warnings as errors, and linked against
# its stubs. The other libraries are here as headers alone: what the programs want of them stays open, and
# nothing else may.

macLlvm=/usr/lib/llvm-19/bin

# Whose symbols may stay open: a name, and what they look like once they are demangled.
macOpenSymbols=(
    # In macOS since 13.3, as the SDK's headers say; stubs of before that may be what is there.
    "libc++ std::__1::to_chars\(char\*, char\*, (float|double)\)$"
    "boost (boost::|(vtable|typeinfo)( name)? for boost::)"
    "openssl _?(OSSL|SSL|TLS|EVP|ERR|X509|BIO|OPENSSL|CRYPTO|RAND|HMAC|SHA|PEM|ASN1|BN|d2i|i2d|GENERAL)_?[A-Za-z0-9_]*$"
    "webrtc (webrtc|rtc|cricket|dcsctp)::|(vtable|typeinfo|VTT|(non-)?virtual thunk|guard variable)( name)? (for|to) (webrtc|rtc|cricket|dcsctp)::"
    "absl absl::"
    "opus _?opus_[a-z_]+$"
    "soxr _?soxr_[a-z_]+$"
    "icu _?u[a-z]+_[A-Za-z0-9]+_[0-9]+$|icu(_[0-9]+)?::|(vtable|typeinfo)( name)? for icu"
    "sparkle _?OBJC_CLASS_\\\$_SPU[A-Za-z]+$"
    "qt Q[A-Z][A-Za-z]+|QtPrivate::|q[A-Z][A-Za-z]+|operator.*\(Q[A-Z]|(vtable|typeinfo|(non-)?virtual thunk)( name)? (for|to) Q[A-Z]|qt_|_?qt_"
)

checkMacos() {
    local sdk=${SDK:-} sparkle=${SPARKLE:-} argument processor began=$SECONDS bad=0
    for argument; do
        case $argument in
            SDK=?*) sdk=${argument#SDK=} ;;
            SPARKLE=?*) sparkle=${argument#SPARKLE=} ;;
            *)
                say "check-macos takes SDK=DIR, a folder with the headers of a macOS SDK, and SPARKLE=DIR, one with" \
                    "Sparkle.framework (Docs/BuildingOnMac.md)"
                exit 2
                ;;
        esac
    done
    [[ -n $sdk ]] || fail "check-macos needs SDK=DIR (or SDK in the environment)"
    sdk=$(cd "$sdk" 2>/dev/null && pwd) || fail "there is no such folder: $sdk"
    [[ -d $sdk/System/Library/Frameworks/ScreenCaptureKit.framework ]] ||
        fail "that is no macOS SDK of version 14 or later: $sdk"
    if [[ -n $sparkle ]]; then
        sparkle=$(cd "$sparkle" 2>/dev/null && pwd)/Sparkle.framework
        [[ -d $sparkle ]] || fail "there is no such folder: $sparkle"
    fi
    setUp build macos
    macHeaders
    for processor in arm64 x86_64; do checkMacosFor "$processor" "$sdk" "$sparkle" || bad=1; done
    analyzeMacSources arm64 || bad=1
    say "took $(((SECONDS - began) / 60)) min $(((SECONDS - began) % 60)) s"
    return "$bad"
}

# macHeaders: build/macos/headers: those of the other libraries, and nothing of this system's.
macHeaders() {
    local headers=$root/build/macos/headers multiarch name
    multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || gcc -print-multiarch)
    rm -rf "$headers"
    mkdir -p "$headers/openssl" "$headers/qt6"
    for name in absl boost CLI opus soxr.h tg_owt unicode; do ln -s "/usr/include/$name" "$headers/$name"; done
    ln -s "/usr/include/openssl"/*.h "/usr/include/$multiarch/openssl"/*.h "$headers/openssl"
    ln -s "/usr/include/$multiarch/qt6"/* "$headers/qt6"
    ln -s "/usr/lib/$multiarch/qt6/mkspecs" "$headers/qt6/mkspecs"
}

# checkMacosFor PROCESSOR SDK SPARKLE
checkMacosFor() {
    local processor=$1 sdk=$2 sparkle=$3 dir=$root/build/macos/$1 log=$root/build/macos/$1.log
    say "compiling for $processor"
    if ! cmake -S "$root" -B "$dir" -G Ninja --toolchain "$root/cmake/mac-check/toolchain.cmake" \
        -DCMAKE_BUILD_TYPE=Release -DORVEL_MAC_PROCESSOR="$processor" -DORVEL_MAC_SDK="$sdk" \
        -DORVEL_MAC_HEADERS="$root/build/macos/headers" -DORVEL_MAC_LLVM="$macLlvm" \
        -DSPARKLE="$sparkle" >"$log" 2>&1; then
        tail -n 30 "$log" >&2
        report FAILED "macos/$processor" "CMake"
        return 1
    fi
    if ! nice ninja -C "$dir" -k 0 "${ninjaOptions[@]}" all >"$log" 2>&1; then
        grep -E '(error|warning): |undefined symbol' "$log" | sort -u | head -n 40 >&2
        report FAILED "macos/$processor" "see build/macos/$processor.log"
        return 1
    fi
    report ok "macos/$processor" \
        "$(find "$dir" -name '*.o' | wc -l) files compiled, $(grep -c 'warning:' "$log" || true) warnings"
    checkMacSymbols "$dir"
}

# checkMacSymbols DIR: what the programs leave open, by library.
checkMacSymbols() {
    local program bad=0 open rest entry found
    while IFS= read -r -d '' program; do
        open=$("$macLlvm/llvm-nm" -m -u "$program" | sed -n 's/^ *(undefined) \(weak \)\{0,1\}external \(.*\) (dynamically looked up)$/\2/p' |
            "$macLlvm/llvm-cxxfilt" --strip-underscore | sort -u)
        rest=$open found=()
        for entry in "${macOpenSymbols[@]}"; do
            found+=("$(grep -cE "^(${entry#* })" <<<"$rest" || true) ${entry%% *}")
            rest=$(grep -vE "^(${entry#* })" <<<"$rest" || true)
        done
        say "${program##*/} leaves open: $(printf '%s, ' "${found[@]}" | sed 's/, $//')"
        if [[ -n $rest ]]; then
            say "and what no library of these has:"
            head -n 40 <<<"$rest" >&2
            bad=1
        fi
    done < <(find "$1" -maxdepth 4 -type f -perm -u+x \( -path '*.app/Contents/MacOS/*' -o -name 'orvel-relay' \) -print0)
    return "$bad"
}

# analyzeMacSources PROCESSOR: clang's static analyzer over the Mac's own sources.
analyzeMacSources() {
    local dir=$root/build/macos/$1 log=$root/build/macos/analyzer.log commands
    commands=$(jq -r '.[] | select(.file | test("/Platform/MacOS/")) | .command' "$dir/compile_commands.json" |
        sed -E 's/^.*\/clang(\+\+)? //; s/ -o [^ ]+ -c / /')
    (cd "$dir" && xargs -d '\n' -P "$(nproc)" -I '{}' sh -c \
        "nice $macLlvm/clang++ --analyze --analyzer-output text -Wno-unused-command-line-argument {}" \
        <<<"$commands") >"$log" 2>&1 || true
    if [[ -s $log ]]; then
        head -n 40 "$log" >&2
        report FAILED macos/analyzer "$(grep -c 'warning:' "$log" || true) findings"
        return 1
    fi
    report ok macos/analyzer "$(wc -l <<<"$commands") files, nothing found"
}

# As a part of ./orvel test.
testMacos() {
    if [[ -z ${SDK:-} ]]; then
        say "no macOS SDK is given (SDK=DIR): the Mac's side is not checked"
        ((skipped += 1))
    elif (checkMacos); then
        ((passed += 1))
    else
        ((failed += 1))
        failures+=(check-macos)
    fi
}
