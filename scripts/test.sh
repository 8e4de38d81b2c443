# shellcheck shell=bash
# ./orvel test and ./orvel fuzz.

# What is worth a second build with the thread sanitizer: whatever uses more than one thread.
threadedSuites=(orvel-base-tests orvel-core-tests orvel-agent-tests orvel-phone-tests
    orvel-process-tests orvel-desktop-tests orvel-input-tests orvel-linux-update-tests
    orvel-sound-tests orvel-qt-queue-tests orvel-relay-tests orvel-relay-server-tests)

fuzzSeconds=5   # for each fuzz target in ./orvel test
suiteSeconds=600 # no test program takes nearly as long
slots=2

passed=0
failed=0
skipped=0
failures=()
unsteady=()
declare -A running=() # pid -> kind, name, begin
declare -A again=()   # suite that failed beside others -> how many of its cases

testAll() {
    local began=$SECONDS
    setUp
    setUpClients
    needScratch
    mkdir -p "$scratch/logs" "$scratch/home"
    # Some tests act as another user for a while, who has to reach their files.
    chmod 711 "$scratch"
    mkdir -m 1777 "$scratch/tmp"
    # A test sees no desktop and no home but the ones that it makes.
    local name
    for name in DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS DBUS_SYSTEM_BUS_ADDRESS \
        XDG_CONFIG_HOME XDG_DATA_HOME XDG_STATE_HOME XDG_CACHE_HOME XDG_RUNTIME_DIR PULSE_SERVER; do
        unset "$name"
    done
    export UBSAN_OPTIONS=print_stacktrace=1
    export TSAN_OPTIONS="suppressions='$root/Tests/tsan.supp'"

    if (($#)); then
        local filter=$1
        shift
        if [[ web == *"$filter"* ]]; then runWebTests; fi
        if [[ packaging == *"$filter"* ]]; then
            build release orvel-agent orvel-phone orvel-relay orvel-manual-pages
            runPackagingTests release
        fi
        if [[ $filter != web && $filter != packaging ]]; then
            build dev
            runSuites dev "*$filter*" "$@"
        fi
        ((${#running[@]})) || fail "no test program of build/dev is called *$filter*-tests"
    else
        runChecks
        buildAll
        testMacos
        runPackagingTests release
        runWebTests
        runSuites dev '*'
        for name in "${threadedSuites[@]}"; do runSuites tsan "${name%-tests}"; done
        runFuzzers "$fuzzSeconds"
    fi
    while ((${#running[@]})); do reap; done
    if ((${#again[@]})); then repeatAlone; fi

    say "took $(((SECONDS - began) / 60)) min $(((SECONDS - began) % 60)) s"
    if ((${#unsteady[@]})); then say "failed beside others, passed alone: ${unsteady[*]}"; fi
    if ((${#failures[@]})); then say "failed: ${failures[*]}"; fi
    if ((skipped)); then say "skipped: $skipped"; fi
    printf '%d passed, %d failed\n' "$passed" "$failed"
    exit $((failed > 0))
}

# The scripts, the format of the source, and ./orvel itself.
runChecks() {
    cd "$root"
    local sources
    mapfile -t sources < <(git ls-files -- '*.h' '*.cpp' '*.mm' 2>/dev/null ||
        find OrvelKit OrvelAgent Phone Tests Benchmarks Fuzz \( -name '*.h' -o -name '*.cpp' -o -name '*.mm' \))
    launch check shellcheck 120 shellcheck -x -a orvel .ci/run Tests/*/*.sh Packaging/macos/*.sh \
        Packaging/linux/completions/bash/*
    launch check clang-format 300 clang-format --dry-run -Werror "${sources[@]}"
    launch check entry 120 Tests/Entry/EntryTest.sh
    while ((${#running[@]})); do reap; done
}

# Real servers on a busy machine can be late for any bound. What failed is run once more with nothing
# beside it, and told apart: a case that then passes is named as unsteady, not as failed.
repeatAlone() {
    local name failedCases otherFailures logs=$scratch/logs
    slots=1
    for name in "${!again[@]}"; do
        failedCases=$(jq -r '[.testsuites[] | .name as $suite | .testsuite[] | select(has("failures")) |
            "\($suite).\(.name)"] | join(":")' "$(logOf "$name").json" 2>/dev/null) || failedCases=
        if [[ -z $failedCases ]]; then
            failures+=("$name")
            continue
        fi
        mkdir -p "$logs/first"
        mv "$(logOf "$name").log" "$(logOf "$name").json" "$logs/first/"
        failed=$((failed - again[$name])) otherFailures=$failed
        again[$name]=
        launch suite "$name" "$suiteSeconds" "$root/build/$name" --gtest_filter="$failedCases" \
            --gtest_output="json:$(logOf "$name").json"
        while ((${#running[@]})); do reap; done
        if ((failed == otherFailures)); then
            report unsteady "$name" "passed when alone: $failedCases"
            unsteady+=("$failedCases")
        fi
    done
}

# A build that fails counts as one failure; what the others made is still tested.
buildAll() {
    local preset targets ninjaOptions=(-k 0)
    for preset in release dev tsan clang fuzz; do
        targets=()
        if [[ $preset == tsan ]]; then targets=("${threadedSuites[@]}"); fi
        local began=$SECONDS
        if build "$preset" "${targets[@]}"; then
            report ok "build/$preset" "$((SECONDS - began)) s"
            ((passed += 1))
        else
            report FAILED "build/$preset" "$((SECONDS - began)) s"
            ((failed += 1))
            failures+=("build/$preset")
        fi
    done
}

# runSuites PRESET PATTERN [ARGUMENT ...]: the test programs build/PRESET/PATTERN-tests.
runSuites() {
    local preset=$1 pattern=$2 program
    shift 2
    # shellcheck disable=SC2231 # the pattern is one
    for program in "$root/build/$preset"/$pattern-tests; do
        [[ -x $program ]] || continue
        local name=$preset/${program##*/}
        launch suite "$name" "$suiteSeconds" "$program" --gtest_output="json:$(logOf "$name").json" "$@"
    done
}

# The phone in a browser: its modules in node, the page in Chromium.
runWebTests() {
    if [[ ! -d $root/Phone/web/node_modules || ! -d $root/Tests/Web/node_modules ]]; then
        say "the packages of the phone in a browser are missing: its tests are skipped"
        ((skipped += 1))
        return
    fi
    launch node web "$suiteSeconds" node --test --test-reporter=tap "$root"/Tests/Web/*.test.mjs
}

# runPackagingTests PRESET: what people get to see of the programs in build/PRESET.
runPackagingTests() {
    launch check documented 300 "$root/Tests/Packaging/DocumentedTest.sh" "$root/build/$1"
    launch check mac-bundle 120 "$root/Tests/Packaging/MacBundleTest.py"
    launch check packages 1200 "$root/Tests/Packaging/PackagesTest.sh" "$root/build/$1"
}

fuzzers() {
    local program
    for program in "$root"/build/fuzz/fuzz-*; do
        if [[ -f $program && -x $program ]]; then printf '%s\n' "${program##*/}"; fi
    done
}

# fuzzCommand NAME SECONDS: sets $command. What is found goes to build/fuzz/found, new inputs beside it.
fuzzCommand() {
    local seeds=$root/Fuzz/corpus/${1#fuzz-} found=$root/build/fuzz/found/$1
    mkdir -p "$found/inputs"
    command=("$root/build/fuzz/$1" -max_total_time="$2" -timeout=10 -rss_limit_mb=2048
        -print_final_stats=1 -artifact_prefix="$found/" "$found/inputs")
    if [[ -d $seeds ]]; then command+=("$seeds"); fi
}

runFuzzers() {
    local name command
    for name in $(fuzzers); do
        fuzzCommand "$name" "$1"
        launch check "$name" $(($1 + 60)) "${command[@]}"
    done
}

fuzz() {
    local wanted=${1:-} seconds=${2:-} name command
    setUp
    build fuzz
    mapfile -t names < <(fuzzers | grep -F -e "${wanted#fuzz-}")
    ((${#names[@]})) || fail "there is no fuzz target called $wanted; there are: $(fuzzers | tr '\n' ' ')"
    while :; do
        for name in "${names[@]}"; do
            say "$name"
            # Without a limit several targets take turns.
            fuzzCommand "$name" "${seconds:-$((${#names[@]} > 1 ? 60 : 0))}"
            "${command[@]}" || fail "$name found something: see build/fuzz/found/$name"
        done
        [[ -z $seconds ]] || break
    done
}

logOf() { printf '%s/logs/%s' "$scratch" "${1//\//-}"; }

report() { printf '%-7s %-34s %s\n' "$1" "$2" "$3"; }

# launch suite|node|check NAME SECONDS COMMAND ...: runs it when a slot is free. A suite and node's tests
# count their test cases, a check counts as one.
launch() {
    local kind=$1 name=$2 limit=$3
    shift 3
    while ((${#running[@]} >= slots)); do reap; done
    # The inner shell turns a death by a signal into an exit status, else this one would tell of it.
    # shellcheck disable=SC2016
    HOME=$scratch/home TMPDIR=$scratch/tmp timeout --kill-after=10 "$limit" bash -c '"$@"; exit $?' sh "$@" \
        </dev/null >"$(logOf "$name").log" 2>&1 &
    adopt "$!"
    running[$!]="$kind $name $SECONDS"
}

anyGone() {
    for gone in "${!running[@]}"; do
        if isGone "$gone"; then return; fi
    done
    return 1
}

# Waits for one of the running programs and counts what it did.
reap() {
    local gone pid status=0 kind name began
    waitUntil $((suiteSeconds + 60)) anyGone || fail "a test program could not be ended: ${running[*]}"
    pid=$gone
    wait "$pid" || status=$?
    read -r kind name began <<<"${running[$pid]}"
    unset "running[$pid]"
    forget "$pid"
    local log good=0 bad=0 left=0 trouble=
    log=$(logOf "$name")
    if [[ $kind == suite ]]; then
        countCases "$log"
    elif [[ $kind == node ]]; then
        countNodeTests "$log"
    elif ((status == 0)); then
        good=1
    fi
    if ((status == 124 || status == 137)); then trouble="took too long"; fi
    # A crash, a leak found at the end, no test at all: a failure beside the counted ones.
    if ((status > 1 || (bad == 0 && (status != 0 || good + left == 0)))); then
        ((bad += 1))
        : "${trouble:=exit status $status}"
    fi
    ((passed += good, failed += bad, skipped += left)) || true
    local what="$((SECONDS - began)) s"
    if [[ $kind != check ]]; then what="$good passed, $bad failed, $what"; fi
    if ((bad == 0)); then
        report ok "$name" "$what"
        return
    fi
    report FAILED "$name" "$what${trouble:+, $trouble}"
    if [[ $kind == suite && -z $trouble && -z ${again[$name]+once} ]]; then
        again[$name]=$bad
    else
        failures+=("$name")
    fi
    failedPart "$log.log" | tail -n 200 | sed 's/^/    /'
}

# Sets good, bad and left (skipped) from GoogleTest's report; from its log when it never came to write one.
countCases() {
    if [[ -s $1.json ]]; then
        read -r good bad left < <(jq -r '[.testsuites[].testsuite[]] |
            [(map(select(.result == "COMPLETED" and (has("failures") | not))) | length),
             (map(select(has("failures"))) | length),
             (map(select(.result == "SKIPPED")) | length)] | @tsv' "$1.json")
    else
        good=$(grep -c '^\[       OK \]' "$1.log") || true
        bad=$(grep -c '^\[  FAILED  \] .* ms)$' "$1.log") || true
    fi
}

# The same from the last lines of node's own report (TAP).
countNodeTests() {
    read -r good bad left < <(awk '
        $1 == "#" && NF == 3 { count[$2] = $3 }
        END { print count["pass"] + 0, count["fail"] + count["cancelled"], count["skipped"] + count["todo"] }
    ' "$1.log")
}

# The output of the test cases that failed or were under way at the end; all of it when it is of another kind.
failedPart() {
    awk '
        /^\[ RUN      \]/ { cases = 1; part = "" }
        { part = part $0 "\n" }
        /^\[       OK \]/ || /^\[  SKIPPED \]/ { part = "" }
        /^\[  FAILED  \]/ { printf "%s", part; part = "" }
        END { printf "%s", part }
    ' "$1"
}
