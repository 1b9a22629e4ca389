#include "stage/import/musicxml/note_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string_view>

#include "stage/import/musicxml/bar_marks.h"
#include "stage/import/musicxml/divisions.h"
#include "stage/import/musicxml/dynamics.h"
#include "stage/import/musicxml/general_midi.h"
#include "stage/import/musicxml/local_meters.h"
#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr int MaxKey = 127;
/// The snare drum, for a drum that neither the file nor its name reveals.
constexpr int UnknownDrumKey = 38;
constexpr std::int64_t MaxVoice = 65535;

GraceKind ReadGrace(const pugi::xml_node& grace) {
    if (!grace) return GraceKind::None;
    if (grace.attribute("steal-time-following")) return GraceKind::OnBeat;
    const bool isBefore =
        IsYes(grace.attribute("slash")) || grace.attribute("steal-time-previous") || grace.attribute("make-time");
    return isBefore ? GraceKind::BeforeBeat : GraceKind::OnBeat;
}

/// Semitones above C; -1 for no step.
int GetStepSemitones(std::string_view step) {
    constexpr std::string_view Steps = "C D EF G A B";
    const std::size_t at = step.size() == 1 && step != " " ? Steps.find(step) : std::string_view::npos;
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

}  // namespace

Units NoteReader::Read(Units cursor, const pugi::xml_node& node) {
    const bool isGrace = static_cast<bool>(node.child("grace"));
    Units length = isGrace ? 0 : ReadDuration(reading_, part_, node);
    if (const auto fit = part_.fittedBars.find(bar_.index); fit != part_.fittedBars.end())
        length = FitLength(reading_, fit->second, length, node);
    bool isChord = static_cast<bool>(node.child("chord"));
    if (isChord && !hasChord_) {
        reading_.Warn("a chord has no first note");
        isChord = false;
    }
    if (!isChord) {
        onset_ = cursor;
        length_ = length;
        hasChord_ = true;
        style_ = ReadStyle(reading_, part_, bar_.index, onset_, node);
        ReadStyleMarks(node);
    }
    const Units next = isChord || isGrace ? cursor : cursor + length;
    if (IsSilent(node)) return next;
    if (length == 0 && !isGrace) {
        reading_.Warn("a note without length is left out");
        return next;
    }
    const std::uint16_t instrument = FindInstrument(node);
    DraftNote draft;
    draft.note.bar = bar_.index;
    draft.note.part = part_.index;
    draft.note.instrument = instrument;
    draft.note.position = onset_;
    draft.note.length = length;
    draft.note.key = static_cast<std::uint8_t>(ReadKey(node, instrument));
    draft.note.soundingPercent = style_.GetSoundingPercent();
    const std::int64_t voice = ReadWhole(node.child("voice").child_value()).value_or(1);
    draft.note.voice = static_cast<std::uint16_t>(std::clamp<std::int64_t>(voice, 0, MaxVoice));
    draft.note.grace = ReadGrace(node.child("grace"));
    draft.note.joinsGrace = isGrace && isChord;
    // After a fermata the breath is taken when it is released.
    draft.note.hasBreath = style_.hasBreath && !style_.hasFermata;
    ReadTies(draft.note, node);
    draft.loudness.accent = static_cast<std::int8_t>(style_.accent);
    draft.loudness.velocity = static_cast<std::uint8_t>(ReadVelocity(node.attribute("dynamics")).value_or(0));
    bar_.notes.push_back(draft);
    return next;
}

void NoteReader::ReadStyleMarks(const pugi::xml_node& node) {
    // What a cue repeats from another part stands there.
    if (node.child("cue")) return;
    const auto add = [&](MarkKind kind, Units position, Units length) {
        AddMark(reading_, bar_, DraftMark{{kind, position, length, 0, {}, {}, {}}, 0, 0, false});
    };
    if (style_.hasFermata) add(MarkKind::Fermata, onset_, length_);
    if (style_.hasBreath) add(MarkKind::Breath, onset_ + length_, 0);
    if (style_.hasCaesura) add(MarkKind::Caesura, onset_ + length_, 0);
}

bool NoteReader::IsSilent(const pugi::xml_node& node) {
    if (node.child("rest") || node.child("cue")) return true;
    if (std::string_view(node.child("notehead").child_value()) != "slash") return false;
    reading_.WarnOnce(part_, "slashes stand for what the player chooses and stay silent");
    return true;
}

int NoteReader::ReadKey(const pugi::xml_node& node, std::uint16_t instrument) {
    const std::int64_t staff = ReadWhole(node.child("staff").child_value()).value_or(1);
    if (const pugi::xml_node pitch = node.child("pitch"))
        return ReadPitch(pitch, static_cast<int>(std::clamp<std::int64_t>(staff, 1, 1000)));
    if (node.child("unpitched")) return ReadUnpitched(instrument);
    reading_.Fail("a note has neither pitch nor rest");
}

int NoteReader::ReadPitch(const pugi::xml_node& pitch, int staff) {
    const std::string step = ReadLine(pitch.child("step"));
    const int semitones = GetStepSemitones(step);
    const std::optional<std::int64_t> octave = ReadWhole(pitch.child("octave").child_value());
    const pugi::xml_node alterNode = pitch.child("alter");
    const std::optional<double> alter = alterNode ? ReadDecimal(alterNode.child_value()) : 0;
    if (semitones < 0 || !octave || !alter || *octave < -1 || *octave > 10 || std::abs(*alter) > 12)
        reading_.Fail(fmt::format("the pitch {} {} {} cannot be read", step, ReadLine(alterNode),
                                  ReadLine(pitch.child("octave"))));
    const long rounded = std::lround(*alter);
    if (static_cast<double>(rounded) != *alter) reading_.WarnOnce(part_, "quarter tones are rounded to semitones");
    const auto ofStaff = part_.staffTranspositions.find(staff);
    const Transposition& transposition =
        ofStaff == part_.staffTranspositions.end() ? part_.transposition : ofStaff->second;
    const int key =
        static_cast<int>(*octave + 1) * 12 + semitones + static_cast<int>(rounded) + transposition.semitones;
    if (key < 0 || key > MaxKey)
        reading_.Fail(fmt::format("the pitch {}{} sounds as MIDI key {}, beyond 0 to {}", step, *octave, key, MaxKey));
    return key;
}

int NoteReader::ReadUnpitched(std::uint16_t instrument) {
    WrittenInstrument& written = reading_.score.parts[part_.index].instruments[instrument];
    written.isPercussion = true;
    int& key = part_.unpitchedKeys[instrument];
    if (key >= 0) return key;
    std::optional<int> named = FindDrumKey(written.name);
    if (!named) named = FindDrumKey(reading_.score.parts[part_.index].name);
    if (!named) reading_.WarnOnce(part_, "the score does not say which drum is meant; the snare drum is taken");
    key = named.value_or(UnknownDrumKey);
    return key;
}

std::uint16_t NoteReader::FindInstrument(const pugi::xml_node& node) {
    const pugi::xml_node instrument = node.child("instrument");
    if (!instrument) return 0;
    const auto found = part_.instrumentsById.find(instrument.attribute("id").value());
    if (found != part_.instrumentsById.end()) return found->second;
    reading_.WarnOnce(part_, "a note names an instrument that the part does not have");
    return 0;
}

void NoteReader::ReadTies(WrittenNote& note, const pugi::xml_node& node) const {
    const auto read = [&](const pugi::xml_node& tie) {
        const std::string_view type = tie.attribute("type").value();
        if (type == "start" || type == "continue") note.tieStart = true;
        if (type == "stop" || type == "continue") note.tieStop = true;
    };
    for (const pugi::xml_node& tie : node.children("tie"))
        read(tie);
    if (node.child("tie")) return;
    for (const pugi::xml_node& notations : node.children("notations"))
        for (const pugi::xml_node& tied : notations.children("tied"))
            read(tied);
}

}  // namespace stage::musicxml
