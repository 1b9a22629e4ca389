#!/usr/bin/env bash
# packaging_check.sh STAGE PACKAGING: what is installed beside the program is as desktop, systemd and man want it, and the manual
# has all that the help has. Each kind of file is first tried with a planted mistake. What a tool that is missing would look
# at is passed over.
set -euo pipefail
stage=$1
packaging=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# expect <clean|found> <what> <command>...: a check that prints nothing has found nothing.
expect() {
    local expected=$1 what=$2 found status=0
    shift 2
    found=$("$@" 2>&1) || status=$?
    if [[ $expected == clean && ( $status != 0 || -n $found ) ]]; then fail "$what: $found"; fi
    if [[ $expected == found && $status == 0 && -z $found ]]; then fail "$what was not noticed"; fi
}
has() { command -v "$1" >/dev/null || { echo "passed over: there is no $1"; return 1; }; }

"$stage" manual --write "$work/man1"
list_options() {
    "$stage" "$@" --help | grep -oE '^  (-[a-zA-Z], )?--[a-z-]+' | grep -oE -- '--[a-z-]+' || true
}
commands=$("$stage" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
for command in $commands; do
    page=$work/man1/stage-$command.1
    if [[ ! -s $page ]]; then fail "stage $command has no manual page"; continue; fi
    for option in $(list_options "$command"); do
        grep -qF -- "${option//-/\\-}" "$page" || fail "the page of stage $command does not have $option"
    done
done
if (($(wc -w <<<"$commands") < 15)); then fail "the help lists only these commands: $commands"; fi
grep -qF 'stage edit SHOW add vamp \-\-song N' "$work/man1/stage-edit.1" || fail "commands below a command are missing"

if has man && has groff; then
    read_page() { LC_ALL=C.UTF-8 MANWIDTH=100 man --warnings -l "$1" 2>"$work/said" >/dev/null && cat "$work/said"; }
    for page in "$work"/man1/*.1; do expect clean "${page##*/}" read_page "$page"; done
    { cat "$work/man1/stage.1"; echo '.QX planted'; } >"$work/planted.1"
    expect found "an unknown macro" read_page "$work/planted.1"
fi

if has desktop-file-validate; then
    expect clean "tavo-stage.desktop" desktop-file-validate "$packaging/tavo-stage.desktop"
    grep -v '^Type=' "$packaging/tavo-stage.desktop" >"$work/planted.desktop"
    expect found "a desktop entry without a type" desktop-file-validate "$work/planted.desktop"
fi

if has systemd-analyze; then
    for name in unit planted; do
        mkdir "$work/$name"
        sed "s|^ExecStart=stage|ExecStart=$stage|" "$packaging/tavo-stage@.service" >"$work/$name/tavo-stage@.service"
    done
    sed -i 's/^TimeoutStopSec=.*/TimeoutStopSec=soon/' "$work/planted/tavo-stage@.service"
    expect clean "tavo-stage@.service" systemd-analyze verify --man=no "$work/unit/tavo-stage@tmp-show.service"
    expect found "a unit with a mistake" systemd-analyze verify --man=no "$work/planted/tavo-stage@tmp-show.service"
fi

python3 -c 'import sys, xml.dom.minidom
for path in sys.argv[1:]: xml.dom.minidom.parse(path)' "$packaging"/*.svg "$packaging"/*.xml || fail "an XML file cannot be read"
grep -vE '^(#|$)' "$packaging/tavo-stage.conf" | grep -vqE '^@audio - (rtprio [0-9]+|memlock unlimited)$' && fail "limits that pam_limits does not know"

((failures == 0)) && echo "what is packed is in order"
