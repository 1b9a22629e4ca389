#!/usr/bin/env bash
# layer_check_test.sh: the layer check accepts a clean tree and finds each kind of planted include, naming its place.
set -euo pipefail
check=$(cd "$(dirname "$0")" && pwd)/layer_check.sh
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failures=0

# plant <file> <include line>
plant() {
    mkdir -p "$tree/$(dirname "$1")"
    printf '#pragma once\n%s\n' "$2" >"$tree/$1"
}

expect_clean() {
    if ! "$check" "$tree"; then
        echo "FAILED: $1"
        failures=$((failures + 1))
    fi
}

# expect_found <file> <include line>: planted, found at its line, taken away again.
expect_found() {
    plant "$1" "$2"
    local found status=0
    found=$("$check" "$tree") || status=$?
    if ((status == 0)) || [[ $found != "$1:2: "* ]]; then
        echo "FAILED: $2 in $1 was not found, but: $found"
        failures=$((failures + 1))
    fi
    rm "$tree/$1"
}

expect_clean "empty tree"
plant platform/kit/include/kit/a.h '#include <sys/stat.h>'
plant platform/tavo_core/include/tavo_core/a.h '#include "kit/a.h"'
plant platform/tavo_midi/src/a.cpp '#include "tavo_core/a.h"'
plant platform/tavo_midi_io/src/a.cpp '#include "tavo_midi/a.h"'
plant platform/tavo_midi_io/src/b.cpp '#include <jack/jack.h>'
plant player_core/include/player_core/a.h '#include <tavo_midi/a.h>'
plant player_core/Sources/a.cpp '#include "player_core/a.h"'
plant stage/cli/a.cpp '#include "player_core/a.h"'
plant stage/cli/b.cpp '#include "tavo_midi_io/a.h"'
plant stage/engine/a.cpp '#include "stage/engine/a.h"'
plant platform/kit/src/c.cpp '#include <zip.h>'
plant stage/engine/b.cpp '#include <fmt/format.h>'
plant stage/engine/c.cpp '#include "stage/show/a.h"'
plant stage/cli/c.cpp '#include "stage/offline/a.h"'
plant tavo_c/src/a.cpp '#include "stage/offline/a.h"'
plant tavo_c/include/tavo/a.h '#include "tavo/b.h"'
expect_clean "clean tree"

expect_found platform/kit/src/b.cpp '#include "tavo_core/a.h"'
expect_found platform/kit/src/b.cpp '  #  include  <player_core/a.h>'
expect_found platform/kit/include/kit/b.h '#include <fmt/format.h>'
expect_found platform/kit/src/b.cpp '#include <fmt/format.h>'
expect_found platform/kit/include/kit/b.h '#include <zip.h>'
expect_found platform/kit/include/kit/b.h '#include <nlohmann/json.hpp>'
expect_found platform/tavo_core/src/b.cpp '#include "tavo_midi/a.h"'
expect_found platform/tavo_midi/include/tavo_midi/b.h '#include "tavo_audio/a.h" // sideways'
expect_found platform/tavo_midi/src/b.cpp '#include "tavo_midi_io/a.h"'
expect_found platform/tavo_midi/src/b.cpp '#include <jack/midiport.h>'
expect_found platform/tavo_midi/src/b.cpp '#include <rtmidi/RtMidi.h>'
expect_found platform/tavo_midi_io/src/c.cpp '#include "player_core/a.h"'
expect_found platform/tavo_midi_io/src/c.cpp '#include "tavo_audio/a.h"'
expect_found platform/tavo_audio/include/tavo_audio/b.h '#include "player_core/a.h"'
expect_found platform/tavo_security/src/b.cpp '#include "stage/cli/a.h"'
expect_found player_core/Sources/b.cpp '#include "tavo_midi_io/a.h"'
expect_found player_core/Sources/b.cpp '#include "stage/engine/a.h"'
expect_found player_core/include/player_core/b.h '#include <nlohmann/json.hpp>'
expect_found player_core/Sources/b.cpp '#include "../../stage/engine/a.h"'
expect_found stage/cli/d.cpp '#include "platform/kit/src/private.h"'
expect_found stage/cli/d.cpp '#include "player_core/Sources/private.h"'
expect_found stage/show/b.h '#include "stage/engine/a.h"'
expect_found stage/engine/b.h '#include "stage/session/a.h"'
expect_found stage/control/b.h '#include "stage/session/a.h"'
expect_found stage/import/musicxml/b.h '#include "stage/session/a.h"'
expect_found stage/offline/b.h '#include "stage/cli/a.h"'
expect_found tavo_c/src/b.cpp '#include "stage/live/a.h"'
expect_found tavo_c/src/b.cpp '#include "tavo_midi_io/a.h"'
expect_found tavo_c/src/b.cpp '#include <jack/jack.h>'
expect_found tavo_c/include/tavo/b.h '#include "kit/a.h"'
expect_found stage/cli/e.cpp '#include "tavo/tavo.h"'
expect_clean "clean tree at the end"

# A folder without a rule is named.
plant stage/somewhere/a.h '#include <vector>'
if found=$("$check" "$tree") || [[ $found != *stage/somewhere/*"has no rule"* ]]; then
    echo "FAILED: stage/somewhere, which no rule knows, was not found, but: $found"
    failures=$((failures + 1))
fi

((failures == 0))
