#!/usr/bin/env bash
# Makes what was built fit for other people's Macs.
#
#   sign-and-notarise.sh sign "Orvel Agent.app"    signs all of it, inside out, with the hardened runtime
#   sign-and-notarise.sh notarise Orvel.dmg        signs the image, has it notarised, staples the ticket
#
# ORVEL_SIGN_IDENTITY   the certificate: "Developer ID Application: ..."
# ORVEL_NOTARY_PROFILE  what `xcrun notarytool store-credentials` called the account (default: orvel)
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
identity=${ORVEL_SIGN_IDENTITY:?name the certificate, as in "Developer ID Application: NAME (TEAM)"}
profile=${ORVEL_NOTARY_PROFILE:-orvel}

signCode() { codesign --force --timestamp --options runtime --sign "$identity" "$@"; }

signApplication() {
    local application=$1 contents=$1/Contents code
    # Whatever contains other code is signed after what it contains: the deepest first.
    while IFS= read -r -d '' code; do
        signCode "$code"
    done < <(find "$contents" -depth \( -name '*.dylib' -o -name '*.so' -o -name '*.xpc' -o -name '*.app' \
        -o -name '*.framework' -o -path '*/Sparkle.framework/Versions/*/Autoupdate' \) -print0)
    signCode --entitlements "$here/OrvelAgent.entitlements" "$application"
    codesign --verify --deep --strict --verbose=2 "$application"
}

notarise() {
    codesign --force --timestamp --sign "$identity" "$1"
    xcrun notarytool submit "$1" --keychain-profile "$profile" --wait
    xcrun stapler staple "$1"
    spctl --assess --type open --context context:primary-signature --verbose=2 "$1"
}

case ${1:-} in
    sign) signApplication "${2:?which application?}" ;;
    notarise) notarise "${2:?which disk image?}" ;;
    *)
        sed -n '2,9s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
        exit 2
        ;;
esac
