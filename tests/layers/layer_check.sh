#!/usr/bin/env bash
# layer_check.sh <source tree>: fails if an include runs upward or sideways, also between the parts of stage, reaches into the
# private folder of a library, or brings a third party's header into a library that may use only the standard one, or the header
# of a device's system into one that is for programs without devices.
set -euo pipefail
cd "$1"

layers='kit|tavo_core|tavo_midi|tavo_midi_io|tavo_audio|tavo_security|player_core|stage|tavo'
third_party='fmt/|nlohmann/|utf8\.h|utf8proc|zip\.h|CLI/|fluidsynth|sndfile|mpg123|samplerate|stk/|boost/|pugixml|sodium|lo/|jack/|rtmidi|rtaudio'
devices='jack/|rtmidi|rtaudio|alsa/'
violations=0
known_folders=()

# list_includes <folder>: "place TAB target" for every include.
list_includes() {
    grep -rnE --include='*.h' --include='*.cpp' '^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"]' "$1" |
        sed -E 's/^([^:]+:[0-9]+):[^<"]*[<"]([^>"]*)[>"].*$/\1\t\2/'
}

report() {
    echo "$1: \"$2\" $3"
    violations=$((violations + 1))
}

# check_folder <folder> <layers it may include> [std-only|devices [<third parties that its private folder may include>]]
check_folder() {
    local folder=$1 allowed=$2 third=${3:-} in_sources=${4:-} place target top reason
    known_folders+=("$folder")
    [[ -d $folder ]] || return 0
    while IFS=$'\t' read -r place target; do
        top=${target%%/*}
        reason=
        if [[ $target == *..* ]]; then
            reason="goes through a parent folder"
        elif [[ $top == platform || $target == player_core/Sources/* ]]; then
            reason="reaches into a private folder"
        elif [[ $target == */* && $top =~ ^($layers)$ && ! $top =~ ^($allowed)$ ]]; then
            reason="does not lie below"
        elif [[ $third == std-only && $target =~ ^($third_party) ]] &&
            ! [[ -n $in_sources && $place == "$folder"/src/* && $target =~ ^($in_sources)$ ]]; then
            reason="is a third party's"
        elif [[ $third != devices && $target =~ ^($devices) ]]; then
            reason="is a device system's"
        fi
        if [[ -n $reason ]]; then report "$place" "$target" "$reason"; fi
    done < <(list_includes "$folder")
}

# check_part <part of stage> <other parts of stage that it may include>
check_part() {
    known_folders+=("stage/$1")
    check_parts_in "stage/$1" "$1|$2"
}

# check_parts_in <folder> <parts of stage that it may include>
check_parts_in() {
    local folder=$1 allowed=$2 place target part
    [[ -d $folder ]] || return 0
    while IFS=$'\t' read -r place target; do
        [[ $target == stage/*/* ]] || continue
        part=${target#stage/}
        part=${part%%/*}
        if [[ ! $part =~ ^($allowed)$ ]]; then report "$place" "$target" "does not lie below"; fi
    done < <(list_includes "$folder")
}

# A folder that no rule knows could include anything.
check_all_known() {
    local folder
    for folder in platform/*/ stage/*/; do
        [[ -d $folder ]] || continue
        if [[ ! " ${known_folders[*]} " == *" ${folder%/} "* ]]; then report "$folder" "$folder" "has no rule here"; fi
    done
}

# Characters and ZIP archives are read by libraries; whoever uses kit does not see them.
check_folder platform/kit 'kit' std-only 'utf8\.h|utf8proc\.h|zip\.h|nlohmann/json\.hpp'
check_folder platform/tavo_core 'kit|tavo_core'
check_folder platform/tavo_midi 'kit|tavo_core|tavo_midi'
check_folder platform/tavo_midi_io 'kit|tavo_core|tavo_midi|tavo_midi_io' devices
check_folder platform/tavo_audio 'kit|tavo_core|tavo_audio'
check_folder platform/tavo_security 'kit|tavo_core|tavo_security'
check_folder player_core 'kit|tavo_core|tavo_midi|tavo_audio|tavo_security|player_core' std-only
check_folder stage 'kit|tavo_core|tavo_midi|tavo_midi_io|tavo_audio|tavo_security|player_core|stage' devices
check_part show ''
check_part sounds ''
check_part engine 'show|sounds'
check_part control 'show|sounds|engine'
check_part words 'show'
check_part session 'show|sounds|engine|control|words'
check_part import 'show'
check_part pages 'show'
check_part picture 'show'
check_part offline 'show|sounds|engine|control|words|session'
check_part live 'show|sounds|engine|control|words|session|offline'
check_part web 'show|sounds|engine|control|words|session|import|pages|picture|offline|live'
check_part osc 'show|sounds|engine|control|words|session|offline|live'
check_part cli 'show|sounds|engine|control|words|session|import|pages|picture|offline|live|osc|web'
# The C library is for programs with devices of their own; its header is for C.
check_folder tavo_c 'kit|tavo_core|tavo_midi|tavo_audio|tavo_security|player_core|stage|tavo'
check_parts_in tavo_c 'show|sounds|engine|control|words|session|offline'
check_folder tavo_c/include 'tavo' std-only
check_all_known

((violations == 0))
