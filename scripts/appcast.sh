# shellcheck shell=bash
# ./orvel appcast: what a maintainer publishes with a new version (Docs/Updates.md).

appcastUsage() {
    cat <<'END'
usage: ./orvel appcast PACKAGE KEYFILE URL [--notes FILE] [--into FEED]

Signs PACKAGE (a .deb) with the private Ed25519 key in KEYFILE (PEM) and prints a feed that offers
it at URL (https). With --notes the feed says what is new (FILE is HTML); with --into
the version is put at the head of an existing FEED, which is replaced.
END
}

# xmlText TEXT: as it stands in XML, in an attribute too.
xmlText() {
    local text=${1//&/\&amp;}
    text=${text//</\&lt;}
    text=${text//>/\&gt;}
    printf '%s' "${text//\"/\&quot;}"
}

# appcastItem PACKAGE KEYFILE URL NOTES: prints the item.
appcastItem() {
    local package=$1 key=$2 url=$3 notes=$4 version architecture length signature text
    version=$(dpkg-deb --field "$package" Version) || fail "$package is no Debian package"
    [[ $(dpkg-deb --field "$package" Package) == orvel-agent ]] || fail "$package is not the agent's package"
    [[ $version =~ ^[0-9A-Za-z.+~_-]+$ ]] || fail "a version like $version cannot be in a feed"
    architecture=$(dpkg-deb --field "$package" Architecture)
    length=$(stat --format=%s "$package")
    openssl pkeyutl -sign -inkey "$key" -rawin -in "$package" -out "$scratch/signature" 2>"$scratch/openssl" ||
        fail "$key is no private key to sign with"
    # Any other kind of key makes signatures of another length.
    [[ $(stat --format=%s "$scratch/signature") == 64 ]] || fail "$key is no Ed25519 key"
    signature=$(base64 --wrap=0 "$scratch/signature")

    printf '    <item>\n'
    printf '      <title>%s</title>\n' "$(xmlText "$version")"
    printf '      <pubDate>%s</pubDate>\n' "$(LC_ALL=C date --utc '+%a, %d %b %Y %H:%M:%S +0000')"
    printf '      <sparkle:version>%s</sparkle:version>\n' "$(xmlText "$version")"
    printf '      <sparkle:shortVersionString>%s</sparkle:shortVersionString>\n' "$(xmlText "${version%-*}")"
    if [[ -n $notes ]]; then
        text=$(<"$notes")
        printf '      <description>%s</description>\n' "$(xmlText "$text")"
    fi
    printf '      <enclosure url="%s" length="%s" type="application/vnd.debian.binary-package"' \
        "$(xmlText "$url")" "$length"
    printf ' sparkle:os="linux"'
    if [[ $architecture != all ]]; then printf ' orvel:architecture="%s"' "$(xmlText "$architecture")"; fi
    printf ' sparkle:edSignature="%s"/>\n' "$signature"
    printf '    </item>\n'
}

appcast() {
    local arguments=() notes='' feed='' item
    while (($#)); do
        case $1 in
            --notes | --into)
                if (($# < 2)); then
                    appcastUsage >&2
                    exit 2
                fi
                if [[ $1 == --notes ]]; then notes=$2; else feed=$2; fi
                shift 2
                ;;
            -h | --help)
                appcastUsage
                return
                ;;
            *)
                arguments+=("$1")
                shift
                ;;
        esac
    done
    if ((${#arguments[@]} != 3)); then
        appcastUsage >&2
        exit 2
    fi
    local package=${arguments[0]} key=${arguments[1]} url=${arguments[2]} file
    [[ $url == https://?* ]] || fail "packages are loaded over https only, not from $url"
    for file in "$package" "$key" ${notes:+"$notes"} ${feed:+"$feed"}; do
        [[ -r $file ]] || fail "there is no file $file"
    done
    command -v openssl >/dev/null || setUp package
    needScratch
    item=$(appcastItem "$package" "$key" "$url" "$notes") || exit 1

    if [[ -z $feed ]]; then
        cat <<'END'
<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle" xmlns:orvel="urn:orvel:appcast">
  <channel>
    <title>Orvel Agent</title>
END
        printf '%s\n  </channel>\n</rss>\n' "$item"
        return
    fi
    grep -q 'xmlns:orvel="urn:orvel:appcast"' "$feed" || fail "$feed is no feed of this program"
    # Before the first item, or into a channel that has none.
    ITEM=$item awk '
        !done && /^ *(<item>|<\/channel>)/ { print ENVIRON["ITEM"]; done = 1 }
        { print }
        END { exit !done }
    ' "$feed" >"$scratch/feed" || fail "$feed has no line to put an item before"
    # Whole or not at all: it may lie where a web server reads it.
    cp "$scratch/feed" "$feed.new"
    mv "$feed.new" "$feed"
}
