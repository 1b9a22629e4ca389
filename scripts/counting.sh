# shellcheck shell=bash
# Sourced by the check script: every check is announced, run and counted.

passed=0
failed=0
# What failed, a line each, told again at the end: thousands of lines lie between.
what_failed=

say() { printf '\n== %s\n' "$*"; }

count_pass() { passed=$((passed + 1)); }

count_fail() {
    failed=$((failed + 1))
    what_failed+="$*"$'\n'
    echo "FAILED: $*"
}

# run_check <name> <command>...
run_check() {
    local name=$1
    shift
    say "$name"
    rm -f build/why-failed
    if "$@"; then
        count_pass
    else
        count_fail "$name"
        # What the check itself says of it.
        if [[ -s build/why-failed ]]; then what_failed+=$(sed 's/^/    /' build/why-failed)$'\n'; fi
    fi
}

# build_and_test <preset> [<target>...]: builds everything, and the targets. The build is one check, every test another one.
# No build, no tests: old programs prove nothing.
build_and_test() {
    local preset=$1 failed_before=$failed
    run_check "build $preset" build "$preset" all "${@:2}"
    if ((failed > failed_before)); then return; fi
    say "tests $preset"
    rm -f "build/$preset/tests.xml"
    # More than there are cores: those that keep time with a device wait more than they compute.
    ctest --preset "$preset" -j5 --output-on-failure --output-junit tests.xml
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
    if ((failures > 0)); then what_failed+=$(failed_tests "$1" "$2")$'\n'; fi
    if ((skipped + disabled > 0)); then echo "$((skipped + disabled)) tests of $1 were skipped"; fi
}

# read_total <attribute> <report>
read_total() { sed -n "s/^[[:space:]]*$1=\"\([0-9]*\)\".*/\1/p" "$2" | head -n 1; }

# failed_tests <preset> <report>: each failed test with the first lines that tell why, and in which of a program's tests they
# stand where one entry is many. One that hung or crashed tells nothing but its time and where it was.
failed_tests() {
    awk -v preset="$1" -v most=8 '
        /<testcase / {
            telling = 0
            failing = / status="fail"/
            lines = 0
            name = ""
            seconds = $0; sub(/.* time="/, "", seconds); sub(/[."].*/, "", seconds)
            if (failing) { sub(/.*<testcase name="/, ""); sub(/".*/, ""); print preset ": " $0 ", " seconds " s" }
        }
        !failing { next }
        /^\[ RUN / { name = $NF; isNamed = 0 }
        /: Failure$|ERROR: |WARNING: ThreadSanitizer|runtime error: |SUMMARY: |terminate called|what\(\): / {
            telling = 1
            if (!isNamed && name != "" && lines < most) { print "    in " name }
            isNamed = 1
        }
        # A test of the page tells what was wrong behind its name.
        /^ *not ok [0-9]+ - / { telling = 1 }
        /^ *(---|duration_ms: .*|location: .*|failureType: .*)$/ { next }
        /\[  FAILED  \]|^ *(stack|code): / { telling = 0 }
        telling && lines < most { print "    " substr($0, 1, 200); ++lines }
        /<\/testcase>/ && lines == 0 && name != "" { print "    it ended in the middle of " name }
    ' "$2"
}
