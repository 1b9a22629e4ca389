// Any bytes as a MusicXML score: what is read keeps the promises of the model and becomes a song, as played and as
// written, or there is one sentence. Behind a first byte 'M' each byte chooses an element of a measure, and the next
// one the number in it.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>

#include "kit/utf8.h"
#include "stage/import/musicxml/score_file.h"
#include "stage/import/musicxml/score_song.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"

namespace {

using namespace stage::musicxml;

void Require(bool holds) {
    if (!holds) std::abort();
}

/// '#' stands for a number. All but the last two stand inside a measure.
constexpr auto Pieces = std::to_array<std::string_view>({
    "<attributes><divisions>#</divisions></attributes>",
    "<attributes><time><beats>#</beats><beat-type>8</beat-type></time></attributes>",
    "<attributes><time><beats>3+#</beats><beat-type>4</beat-type><beats>2</beats><beat-type>#</beat-type></time></"
    "attributes>",
    "<attributes><time><senza-misura/></time></attributes>",
    "<attributes><key><fifths>#</fifths><mode>minor</mode></key></attributes>",
    "<attributes><transpose><diatonic>#</diatonic><chromatic>#</chromatic></transpose></attributes>",
    "<attributes><transpose "
    "number=\"2\"><chromatic>#</chromatic><octave-change>#</octave-change></transpose></attributes>",
    "<note><pitch><step>C</step><octave>4</octave></pitch><duration>#</duration><voice>#</voice></note>",
    "<note><pitch><step>A</step><alter>#</alter><octave>5</octave></pitch><duration>4</duration><staff>2</staff></"
    "note>",
    "<note><chord/><pitch><step>E</step><octave>#</octave></pitch><duration>2</duration></note>",
    "<note><grace slash=\"yes\"/><pitch><step>G</step><octave>4</octave></pitch></note>",
    "<note><rest measure=\"yes\"/><duration>#</duration></note>",
    "<note><cue/><pitch><step>C</step><octave>4</octave></pitch><duration>#</duration></note>",
    "<note dynamics=\"#\"><unpitched/><duration>4</duration><instrument id=\"I2\"/></note>",
    "<note><pitch><step>D</step><octave>4</octave></pitch><duration>#</duration><type>quarter</type><dot/></note>",
    "<note><pitch><step>D</step><octave>4</octave></pitch><duration>4</duration><tie type=\"start\"/><notations><slur "
    "type=\"start\" number=\"#\"/><fermata/><articulations><accent/><breath-mark/></articulations></notations></note>",
    "<note><pitch><step>D</step><octave>4</octave></pitch><duration>4</duration><notations><slur type=\"stop\" "
    "number=\"#\"/><dynamics><sfz/></dynamics></notations></note>",
    "<backup><duration>#</duration></backup>",
    "<forward><duration>#</duration></forward>",
    "<direction><direction-type><words>Vamp #</words></direction-type><offset>#</offset></direction>",
    "<direction><direction-type><words>D.C. al Fine</words></direction-type></direction>",
    "<direction><direction-type><words>To Coda #</words></direction-type></direction>",
    "<direction><direction-type><metronome><beat-unit>quarter</beat-unit><per-minute>#</per-minute></metronome>"
    "</direction-type></direction>",
    "<direction><direction-type><metronome><beat-unit>quarter</beat-unit><beat-unit>half</beat-unit><beat-unit-dot/>"
    "</metronome></direction-type></direction>",
    "<direction><direction-type><dynamics><p/></dynamics></direction-type><offset>#</offset></direction>",
    "<direction><direction-type><dynamics><fp/></dynamics></direction-type><sound dynamics=\"#\"/></direction>",
    "<direction><direction-type><wedge type=\"crescendo\" number=\"#\"/></direction-type></direction>",
    "<direction><direction-type><wedge type=\"diminuendo\"/></direction-type><offset>#</offset></direction>",
    "<direction><direction-type><wedge type=\"stop\" number=\"#\"/></direction-type></direction>",
    "<direction><direction-type><wedge type=\"stop\"/></direction-type><offset>#</offset></direction>",
    "<direction><direction-type><pedal type=\"change\"/></direction-type><offset>#</offset></direction>",
    "<sound tempo=\"#\" time-only=\"#\"/>",
    "<sound dacapo=\"yes\" segno=\"#\" tocoda=\"#\" fine=\"yes\"/>",
    "<barline location=\"left\"><repeat direction=\"forward\"/><ending number=\"#\" type=\"start\"/></barline>",
    "<barline location=\"right\"><ending number=\"1-#\" type=\"stop\"/><repeat direction=\"backward\" "
    "times=\"#\"/></barline>",
    "<barline location=\"left\"><repeat direction=\"backward\"/><ending type=\"stop\"/></barline>",
    "<barline><fermata/><coda/></barline>",
    "<print new-page=\"yes\" page-number=\"#\"/>",
    "</measure><measure number=\"#\">",
    "</measure></part><part id=\"P#\"><measure number=\"1\">",
});

std::string WriteScore(std::string_view choices) {
    std::string text =
        "<score-partwise><part-list><score-part id=\"P1\"><score-instrument id=\"I1\"/><score-instrument id=\"I2\"/>"
        "</score-part></part-list><part id=\"P1\"><measure "
        "number=\"1\"><attributes><divisions>4</divisions></attributes>";
    for (std::size_t at = 0; at < choices.size(); ++at) {
        for (const char character : Pieces[static_cast<std::uint8_t>(choices[at]) % Pieces.size()]) {
            if (character != '#')
                text += character;
            else
                text +=
                    std::to_string(++at < choices.size() ? static_cast<int>(static_cast<signed char>(choices[at])) : 4);
        }
    }
    return text + "</measure></part></score-partwise>";
}

void CheckMark(const WrittenMark& mark, const WrittenBar& bar) {
    Require(mark.position >= 0 && mark.position <= bar.length && mark.length >= 0);
    Require(kit::IsUtf8(mark.text) && std::is_sorted(mark.passes.begin(), mark.passes.end()));
    Require((mark.value > 0) == (mark.kind == MarkKind::Tempo));
}

void CheckBar(const WrittenBar& bar) {
    Require(bar.length > 0 && kit::IsUtf8(bar.label) && kit::IsUtf8(bar.pageNumber));
    if (bar.meter) {
        const int type = bar.meter->beatType;
        Require(type >= 1 && type <= 64 && (type & (type - 1)) == 0);
        Require(std::all_of(bar.meter->groups.begin(), bar.meter->groups.end(), [](int group) { return group > 0; }));
    }
    if (bar.key) Require(bar.key->fifths >= -7 && bar.key->fifths <= 7);
    Require(bar.repeatTimes >= 1);
    for (const auto& ending : {bar.endingStart, bar.endingStop})
        if (ending) Require(std::is_sorted(ending->numbers.begin(), ending->numbers.end()));
    Require(std::is_sorted(bar.marks.begin(), bar.marks.end(), [](const WrittenMark& left, const WrittenMark& right) {
        return left.position < right.position;
    }));
    for (const WrittenMark& mark : bar.marks)
        CheckMark(mark, bar);
}

void CheckPart(const WrittenPart& part) {
    Require(!part.instruments.empty() && kit::IsUtf8(part.id) && kit::IsUtf8(part.name));
    for (const WrittenInstrument& instrument : part.instruments) {
        Require(instrument.program >= 0 && instrument.program <= 127 && instrument.channel >= -1 &&
                instrument.channel <= 15);
        Require(instrument.volume >= -1 && instrument.volume <= 127 && instrument.pan >= -1 && instrument.pan <= 127);
    }
}

template <typename Placed>
bool Precedes(const Placed& left, const Placed& right) {
    return std::tie(left.bar, left.part, left.position) < std::tie(right.bar, right.part, right.position);
}

void CheckNotes(const WrittenScore& score) {
    Require(std::is_sorted(score.notes.begin(), score.notes.end(), Precedes<WrittenNote>));
    for (const WrittenNote& note : score.notes) {
        Require(note.bar < score.bars.size() && note.part < score.parts.size());
        Require(note.instrument < score.parts[note.part].instruments.size());
        Require(note.key <= 127 && note.velocity >= 1 && note.velocity <= 127);
        Require(note.soundingPercent >= 1 && note.soundingPercent <= 100 && note.position >= 0);
        Require((note.grace == GraceKind::None) == (note.length > 0));
    }
    Require(std::is_sorted(score.pedals.begin(), score.pedals.end(), Precedes<WrittenPedal>));
    for (const WrittenPedal& pedal : score.pedals)
        Require(pedal.bar < score.bars.size() && pedal.part < score.parts.size() && pedal.position >= 0 &&
                pedal.position <= score.bars[pedal.bar].length);
}

void RequireOneLine(std::string_view sentence) {
    Require(!sentence.empty() && sentence.find('\n') == std::string_view::npos);
}

/// What an import makes of the score.
void CheckSong(const WrittenScore& score, BarOrder barOrder) {
    try {
        stage::ImportedSong song = MakeScoreSong(score, barOrder);
        for (const std::string& note : song.notes)
            RequireOneLine(note);
        song.packed.options.number = "1";
        const tavo_midi::SongData built =
            tavo_midi::BuildSong(tavo_midi::ReadSmf(song.packed.smf, "fuzz.mid"), song.packed.options, "fuzz.mid");
        Require(!built.GetTimeline().GetMeters().empty() && !built.GetTimeline().GetTempos().empty());
    } catch (const std::runtime_error& error) {
        RequireOneLine(error.what());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    try {
        const WrittenScore score =
            bytes.starts_with('M') ? ReadScore(WriteScore(bytes.substr(1)), "fuzz.xml") : ReadScore(bytes, "fuzz.mxl");
        Require(score.unitsPerQuarter >= 1 && score.unitsPerQuarter <= 1'000'000'000);
        Require(!score.parts.empty() && !score.bars.empty() && kit::IsUtf8(score.title));
        for (const WrittenPart& part : score.parts)
            CheckPart(part);
        for (const WrittenBar& bar : score.bars)
            CheckBar(bar);
        CheckNotes(score);
        for (const std::string& warning : score.warnings)
            RequireOneLine(warning);
        CheckSong(score, BarOrder::AsPlayed);
        CheckSong(score, BarOrder::AsWritten);
    } catch (const std::runtime_error& error) {
        RequireOneLine(error.what());
    }
    return 0;
}
