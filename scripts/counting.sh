# shellcheck shell=bash
# Sourced by the check script: every check is announced, run and counted.

passed=0
failed=0

say() { printf '\n== %s\n' "$*"; }

count_pass() { passed=$((passed + 1)); }

count_fail() {
    failed=$((failed + 1))
    echo "FAILED: $*"
}

# run_check <name> <command>...
run_check() {
    local name=$1
    shift
    say "$name"
    if "$@"; then count_pass; else count_fail "$name"; fi
}

# build_and_test <preset> [<target>...]: builds everything, and the targets. The build is one check, every test another one.
# No build, no tests: old programs prove nothing.
build_and_test() {
    local preset=$1 failed_before=$failed
    run_check "build $preset" build "$preset" all "${@:2}"
    if ((failed > failed_before)); then return; fi
    say "tests $preset"
    rm -f "build/$preset/tests.xml"
    ctest --preset "$preset" -j3 --output-on-failure --output-junit tests.xml
    count_tests "$preset" "build/$preset/tests.xml"
}

build() {
    local log=build/configure-$1.log
    if ! cmake --preset "$1" >"$log" 2>&1; then
        cat "$log"
        return 1
    fi
    cmake --build --preset "$1" -j2 --target "${@:2}"
}

# count_tests <preset> <report>: adds the totals of ctest's report. Skipped tests count as neither.
count_tests() {
    if [[ ! -s $2 ]]; then
        count_fail "the tests of $1 did not run"
        return
    fi
    local total failures skipped disabled
    total=$(read_total tests "$2")
    failures=$(read_total failures "$2")
    skipped=$(read_total skipped "$2")
    disabled=$(read_total disabled "$2")
    if ((total == 0)); then count_fail "$1 has no tests"; fi
    passed=$((passed + total - failures - skipped - disabled))
    failed=$((failed + failures))
    if ((skipped + disabled > 0)); then echo "$((skipped + disabled)) tests of $1 were skipped"; fi
}

# read_total <attribute> <report>
read_total() { sed -n "s/^[[:space:]]*$1=\"\([0-9]*\)\".*/\1/p" "$2" | head -n 1; }
