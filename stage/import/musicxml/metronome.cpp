#include "stage/import/musicxml/metronome.h"

#include <array>
#include <cmath>
#include <string>
#include <string_view>
#include <utility>

#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr auto NoteQuarters = std::to_array<std::pair<std::string_view, double>>({
    {"maxima", 32},
    {"long", 16},
    {"breve", 8},
    {"whole", 4},
    {"half", 2},
    {"quarter", 1},
    {"eighth", 0.5},
    {"16th", 0.25},
    {"32nd", 0.125},
    {"64th", 0.0625},
    {"128th", 0.03125},
    {"256th", 0.015625},
    {"512th", 0.0078125},
    {"1024th", 0.00390625},
});
constexpr int MaxDots = 10;

/// Beat units, as "quarter" and the dots after it; 0 where there is none at this place.
double ReadBeatUnit(pugi::xml_node& node) {
    if (std::string_view(node.name()) != "beat-unit") return 0;
    const std::string name = ReadLine(node);
    int dots = 0;
    node = node.next_sibling();
    for (; dots < MaxDots && std::string_view(node.name()) == "beat-unit-dot"; node = node.next_sibling())
        ++dots;
    // A beat of several notes tied together is not one note that is counted.
    return std::string_view(node.name()) == "beat-unit-tied" ? 0 : GetNoteQuarters(name, dots);
}

double ReadMetronomeNote(const pugi::xml_node& note) {
    int dots = 0;
    for (pugi::xml_node dot = note.child("metronome-dot"); dot && dots < MaxDots;
         dot = dot.next_sibling("metronome-dot"))
        ++dots;
    return GetNoteQuarters(ReadLine(note.child("metronome-type")), dots);
}

}  // namespace

double GetNoteQuarters(std::string_view name, int dots) {
    for (const auto& [known, quarters] : NoteQuarters)
        if (known == name) return quarters * (2 - std::pow(0.5, dots));
    return 0;
}

std::optional<double> ReadMetronome(const pugi::xml_node& metronome, double running) {
    double left = 0;
    double right = 0;
    if (pugi::xml_node node = metronome.child("beat-unit")) {
        left = ReadBeatUnit(node);
        if (const pugi::xml_node perMinute = metronome.child("per-minute")) {
            const std::optional<double> beats = FindNumber(ReadLine(perMinute));
            if (!beats || left <= 0) return std::nullopt;
            return *beats * left;
        }
        right = ReadBeatUnit(node);
    } else if (const pugi::xml_node first = metronome.child("metronome-note")) {
        const pugi::xml_node second = metronome.child("metronome-relation").next_sibling("metronome-note");
        // Several notes on one side describe a rhythm, such as swing, and no tempo.
        if (first.next_sibling("metronome-note") != second || second.next_sibling("metronome-note"))
            return std::nullopt;
        left = ReadMetronomeNote(first);
        right = ReadMetronomeNote(second);
    }
    if (left <= 0 || right <= 0) return std::nullopt;
    return running * right / left;
}

}  // namespace stage::musicxml
