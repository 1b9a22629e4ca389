#include "stage/import/musicxml/instruments.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "stage/import/musicxml/general_midi.h"
#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

/// Of a whole score.
constexpr std::size_t MaxInstruments = 4000;
constexpr int PercussionChannel = 9;

/// A number counted from 1 as one from 0; -1 where it is not from 1 to `most`.
int ReadCounted(const pugi::xml_node& node, std::int64_t most) {
    const std::int64_t number = ReadWhole(node.child_value()).value_or(0);
    return number >= 1 && number <= most ? static_cast<int>(number - 1) : -1;
}

/// Volume is a share of 100, pan an angle with -90 left, 90 right, and beyond behind the listener.
int ReadVolume(const pugi::xml_node& node) {
    const std::optional<double> volume = ReadDecimal(node.child_value());
    return volume ? static_cast<int>(std::lround(std::clamp(*volume, 0.0, 100.0) * 1.27)) : -1;
}

int ReadPan(const pugi::xml_node& node) {
    const std::optional<double> degrees = ReadDecimal(node.child_value());
    if (!degrees) return -1;
    return static_cast<int>(std::clamp(std::lround(64 + std::clamp(*degrees, -90.0, 90.0) * 64 / 90), 0L, 127L));
}

void GuessProgram(WrittenInstrument& instrument, const std::string& sound, const std::string& partName) {
    const std::array<std::string, 3> names{sound, instrument.name, partName};
    for (const std::string& name : names) {
        if (IsPercussionName(name)) {
            instrument.isPercussion = true;
            return;
        }
        const std::optional<int> program = &name == &names[0] ? FindSoundProgram(name) : FindProgram(name);
        if (program) {
            instrument.program = *program;
            return;
        }
    }
}

void ReadMidi(WrittenInstrument& instrument, int& unpitchedKey, const pugi::xml_node& midi) {
    instrument.channel = ReadCounted(midi.child("midi-channel"), 16);
    instrument.volume = ReadVolume(midi.child("volume"));
    instrument.pan = ReadPan(midi.child("pan"));
    unpitchedKey = ReadCounted(midi.child("midi-unpitched"), 128);
    instrument.isPercussion = instrument.channel == PercussionChannel || unpitchedKey >= 0;
}

}  // namespace

void ReadInstruments(Reading& reading, PartReading& part, WrittenPart& written, const pugi::xml_node& scorePart) {
    std::map<std::string, pugi::xml_node> midiById;
    for (const pugi::xml_node& midi : scorePart.children("midi-instrument"))
        if (midiById.size() < MaxInstruments) midiById.emplace(midi.attribute("id").value(), midi);
    const auto add = [&](const pugi::xml_node& node, const pugi::xml_node& midi) {
        if (++reading.instruments > MaxInstruments)
            reading.Fail(fmt::format("the score has more than {} instruments", MaxInstruments));
        WrittenInstrument& instrument = written.instruments.emplace_back();
        instrument.name = ReadLine(node.child("instrument-name"));
        if (instrument.name.empty()) instrument.name = written.name;
        ReadMidi(instrument, part.unpitchedKeys.emplace_back(-1), midi);
        const int program = ReadCounted(midi.child("midi-program"), 128);
        if (program >= 0)
            instrument.program = program;
        else if (!instrument.isPercussion)
            GuessProgram(instrument, ReadLine(node.child("instrument-sound")), written.name);
    };
    for (const pugi::xml_node& node : scorePart.children("score-instrument")) {
        const std::string id = node.attribute("id").value();
        part.instrumentsById.emplace(id, static_cast<std::uint16_t>(written.instruments.size()));
        const auto midi = midiById.find(id);
        add(node, midi == midiById.end() ? pugi::xml_node() : midi->second);
    }
    if (written.instruments.empty())
        add(pugi::xml_node(), midiById.empty() ? pugi::xml_node() : midiById.begin()->second);
}

}  // namespace stage::musicxml
