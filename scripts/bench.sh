# shellcheck shell=bash
# ./orvel bench: the small benchmarks, then the whole program on a moving screen. Only ratios taken in
# one run mean something: other programs share the machine, and not all machines are equal.

# bench [FILTER]: FILTER is a regular expression for the rows of the small benchmarks (whatever has no
# such rows is then left out), or `whole` for the whole program alone.
bench() {
    local filter=${1:-} program
    setUp
    build release
    if [[ $filter != whole ]]; then
        for program in "$root"/build/release/orvel-*-benchmark*; do
            [[ -f $program && -x $program ]] || continue
            if [[ -n $filter ]] && ! grep -q benchmark_filter <<<"$("$program" --help 2>&1)"; then continue; fi
            say "${program##*/}"
            "$program" ${filter:+--benchmark_filter="$filter"}
        done
    fi
    if [[ -z $filter || $filter == whole ]]; then
        # shellcheck source=Benchmarks/whole-process.sh
        source "$root/Benchmarks/whole-process.sh"
        measureWholeProgram
    fi
}
