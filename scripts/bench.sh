# shellcheck shell=bash
# ./orvel bench: the small benchmarks, then whole programs: the agent beside ffmpeg on a moving screen, a
# download beside scp, a session from the phone's end, one with a browser. Only ratios taken in one run mean
# something: other programs share the machine, and not all machines are equal.

# What is measured on whole programs, by name.
wholeSubjects=(whole files input beside rest windows web)

# bench [FILTER]: FILTER is one of wholeSubjects, for that alone, or a regular expression for the rows of
# the small benchmarks; whatever has no such rows is then left out.
bench() {
    local filter=${1:-} program
    # In memory: a disk is nothing that we want to measure.
    if [[ -z $scratch && -w /dev/shm ]]; then scratch=$(mktemp -d /dev/shm/orvel.XXXXXX); fi
    setUp
    if [[ " ${wholeSubjects[*]} " == *" ${filter:-none} "* ]]; then
        build release orvel-agent orvel-phone orvel-relay orvel-moving-screen orvel-session-probe orvel-click-probe
    else
        build release
        for program in "$root"/build/release/orvel-*-benchmark*; do
            [[ -f $program && -x $program ]] || continue
            if [[ -n $filter ]] && ! grep -q benchmark_filter <<<"$("$program" --help 2>&1)"; then continue; fi
            say "${program##*/}"
            "$program" ${filter:+--benchmark_filter="$filter"}
        done
        [[ -z $filter ]] || return 0
    fi
    local subject
    # shellcheck source=Benchmarks/whole-process.sh
    source "$root/Benchmarks/whole-process.sh"
    # shellcheck source=Benchmarks/file-download.sh
    source "$root/Benchmarks/file-download.sh"
    # shellcheck source=Benchmarks/session.sh
    source "$root/Benchmarks/session.sh"
    # shellcheck source=Benchmarks/windows.sh
    source "$root/Benchmarks/windows.sh"
    startBenchSession
    for subject in "${wholeSubjects[@]}"; do
        if [[ -n $filter && $filter != "$subject" ]]; then continue; fi
        case $subject in
            whole) measureWholeProgram ;;
            files) measureDownloads ;;
            input) measureInput ;;
            beside) measureBesideDownload ;;
            rest) measureRest ;;
            windows) measureWindows ;;
            web) measureWebSessions ;;
        esac
    done
    printf '\n'
}

# A desktop of our own with an agent and a phone that is paired with it. Sets benchPhone, the phone's options.
startBenchSession() {
    startDisplay
    startAgent --no-advertise --bind 127.0.0.1
    benchPhone=(--host 127.0.0.1 --port "$agentPort" --json)
    pairPhone "${benchPhone[@]}"
}
