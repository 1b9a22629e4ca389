#include "stage/import/musicxml/note_style.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <tuple>

#include "stage/import/musicxml/dynamics.h"
#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr std::uint8_t PlainPercent = 95;
constexpr std::uint8_t LegatoPercent = 100;
constexpr std::uint8_t PortatoPercent = 75;
constexpr std::uint8_t StaccatoPercent = 50;
constexpr std::uint8_t StaccatissimoPercent = 25;
constexpr int Accent = 15;
constexpr int StrongAccent = 25;
constexpr int Stress = 8;
constexpr int MaxSlurNumber = 100;

void ReadArticulations(NoteStyle& style, const pugi::xml_node& articulations) {
    for (const pugi::xml_node& sign : articulations.children()) {
        const std::string_view name = sign.name();
        if (name == "staccato") style.isStaccato = true;
        if (name == "staccatissimo") style.isStaccatissimo = true;
        if (name == "spiccato") style.isSpiccato = true;
        if (name == "tenuto") style.isTenuto = true;
        if (name == "detached-legato") style.isStaccato = style.isTenuto = true;
        if (name == "accent") style.accent = std::max(style.accent, Accent);
        if (name == "strong-accent") style.accent = std::max(style.accent, StrongAccent);
        if (name == "stress") style.accent = std::max(style.accent, Stress);
        if (name == "unstress" && style.accent == 0) style.accent = -Stress;
        if (name == "breath-mark") style.hasBreath = true;
        if (name == "caesura") style.hasCaesura = true;
    }
}

/// A slur may end in a voice that the file writes before the one in which it begins.
void ReadSlur(PartReading& part, const OpenSlur& place, const pugi::xml_node& slur) {
    const std::string_view type = slur.attribute("type").value();
    const int number = static_cast<int>(
        std::clamp<std::int64_t>(ReadWhole(slur.attribute("number").value()).value_or(1), 1, MaxSlurNumber));
    if (type == "start") {
        const auto stop = part.slurStopsAhead.find(number);
        const bool hasEnded = stop != part.slurStopsAhead.end() &&
                              std::tie(stop->second.bar, stop->second.position) > std::tie(place.bar, place.position);
        if (stop != part.slurStopsAhead.end()) part.slurStopsAhead.erase(stop);
        if (!hasEnded) part.slurs[number] = place;
    } else if (type == "stop" && part.slurs.erase(number) == 0) {
        part.slurStopsAhead[number] = place;
    }
}

}  // namespace

std::uint8_t NoteStyle::GetSoundingPercent() const {
    // What is held is not let go early, whatever the dots say.
    if (hasFermata) return isTenuto || isSlurred ? LegatoPercent : PlainPercent;
    if (isStaccatissimo) return StaccatissimoPercent;
    if (isStaccato || isSpiccato) return isTenuto || isSlurred ? PortatoPercent : StaccatoPercent;
    return isTenuto || isSlurred ? LegatoPercent : PlainPercent;
}

NoteStyle ReadStyle(Reading& reading, PartReading& part, std::uint32_t bar, Units position,
                    const pugi::xml_node& note) {
    NoteStyle style;
    const OpenSlur place{note.child("voice").child_value(), bar, position};
    const auto readNotations = [&](const pugi::xml_node& member) {
        for (const pugi::xml_node& notations : member.children("notations"))
            for (const pugi::xml_node& sign : notations.children()) {
                const std::string_view name = sign.name();
                if (name == "articulations") ReadArticulations(style, sign);
                if (name == "fermata") style.hasFermata = true;
                if (name == "slur") ReadSlur(part, place, sign);
                if (name == "dynamics") AddDynamics(reading, part, bar, position, sign, std::nullopt);
            }
    };
    readNotations(note);
    for (pugi::xml_node member = note.next_sibling("note"); member.child("chord"); member = member.next_sibling("note"))
        readNotations(member);
    style.isSlurred = std::any_of(part.slurs.begin(), part.slurs.end(),
                                  [&](const auto& slur) { return slur.second.voice == place.voice; });
    return style;
}

}  // namespace stage::musicxml
