#!/usr/bin/env bash
# What ./orvel promises before it builds anything.
set -uo pipefail

orvel=$(cd -P "$(dirname "$0")/../.." && pwd)/orvel
folder=$(mktemp -d)
trap 'rm -rf -- "$folder"' EXIT
cd "$folder" || exit 1
failures=0

# claim TEXT STATUS PATTERN COMMAND ...: the command ends so and prints a line like this.
claim() {
    local text=$1 want=$2 pattern=$3 output status=0
    shift 3
    output=$("$@" 2>&1 </dev/null) || status=$?
    if [[ $status == "$want" ]] && grep -q -e "$pattern" <<<"$output"; then
        printf 'ok      %s\n' "$text"
    else
        printf 'FAILED  %s: exit %s instead of %s, or no "%s" in:\n%s\n' "$text" "$status" "$want" "$pattern" "$output"
        ((failures += 1))
    fi
}

mkdir "a b"
ln -s "$orvel" "a b/link"

claim 'help says what there is' 0 '^  demo ' "$orvel" help
claim 'no command shows the help' 0 '^usage: ' "$orvel"
claim 'an unknown command is a usage error' 2 '^usage: ' "$orvel" dance
claim 'an unknown section is a usage error' 2 'no section "dance"' "$orvel" setup dance
claim 'a link in a folder with a space works' 0 '^usage: ' "a b/link" help
claim 'a preset that does not exist is refused' 2 'no preset "dance"' "$orvel" build dance

# The functions behind it, with package lists of our own.
# shellcheck disable=SC2034 # the functions read it
root=$folder
# shellcheck source=scripts/common.sh
source "${orvel%/*}/scripts/common.sh"
# shellcheck source=scripts/setup.sh
source "${orvel%/*}/scripts/setup.sh"
trap 'rm -rf -- "$folder"' EXIT
printf '%s\n' '# words' '# [build]' 'dpkg  # installed everywhere' '' '# [run]' 'no-such-package-here' >"$folder/packages.txt"
claim 'a section lists its packages without the comments' 0 '^dpkg$' listed build
claim 'what is not installed is missing' 0 '^no-such-package-here$' missing dpkg no-such-package-here
claim 'what is installed is not missing' 0 '^0$' eval 'missing dpkg "no-such-package-here|dpkg" | wc -l'
claim 'the first is missing where any one would do' 0 '^neither$' missing 'neither|nor'

exit $((failures > 0))
