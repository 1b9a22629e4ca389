#include "tests/properties/random_show.h"

#include <algorithm>
#include <array>
#include <ostream>
#include <utility>

#include "tavo_core/event_codes.h"

namespace properties {
namespace {

constexpr std::array<unsigned int, 4> Resolutions{480, 96, 24, 7};
// Counted loops multiply their passes when they are nested: more of them would make a song that plays for years.
constexpr int MostCountedLoops = 6;

struct RawEdit {
    int kind = 0;
    int startHalfBeat = 0;
    int lengthHalfBeats = 0;
    int nudge = 0;
    int value = 0;
};

template <class T>
rc::Gen<T> Among(T from, T to) {
    return rc::gen::resize(rc::kNominalSize, rc::gen::inRange<T>(from, to));
}

rc::Gen<RawEdit> RandomEdit() {
    return rc::gen::build<RawEdit>(
        rc::gen::set(&RawEdit::kind, Among(0, 20)), rc::gen::set(&RawEdit::startHalfBeat, Among(0, 120)),
        rc::gen::set(&RawEdit::lengthHalfBeats, Among(-4, 24)), rc::gen::set(&RawEdit::nudge, Among(0, 40)),
        rc::gen::set(&RawEdit::value, Among(0, 60)));
}

unsigned char CodeOf(int kind) {
    constexpr std::array<unsigned char, 20> Codes{codes::Vamp,    codes::Vamp,    codes::Vamp,          codes::Vamp,
                                                  codes::Repeat,  codes::Repeat,  codes::Repeat,        codes::Cut,
                                                  codes::Cut,     codes::Cut,     codes::Cut,           codes::Fermata,
                                                  codes::Fermata, codes::Fermata, codes::Caesura,       codes::Caesura,
                                                  codes::Caesura, codes::Click,   codes::Transposition, codes::Marker};
    return Codes[static_cast<std::size_t>(kind)];
}

int ValueOf(unsigned char code, int raw) {
    switch (code) {
        case codes::Vamp:
            return raw % 2 == 0 ? 0 : 1 + raw / 2 % 3;
        case codes::Repeat:
            return 1 + raw % 3;
        case codes::Caesura:
            return raw % 8 == 7 ? static_cast<int>(CL::GetCaesuraIgnoredVersionTarget()) : 0;
        case codes::Click:
            return 1 + raw % 16;
        case codes::Transposition:
            return raw % 5 - 2;
        default:
            return 0;
    }
}

unsigned int TickAt(const SongSpec& song, int halfBeat, int nudge) {
    const auto beats = static_cast<unsigned int>(halfBeat);
    const unsigned int tick = beats * song.ticksPerQuarter / 2;
    if (nudge == 39 && tick > 0) return tick - 1;
    return nudge >= 37 ? tick + 1 : tick;
}

std::vector<EditSpec> Place(const SongSpec& song, const std::vector<RawEdit>& raw) {
    int countedLoops = 0;
    std::vector<EditSpec> edits;
    const int halfBeats = static_cast<int>(2 * song.endTick / song.ticksPerQuarter) + 2;
    for (const RawEdit& edit : raw) {
        EditSpec placed;
        placed.code = CodeOf(edit.kind);
        placed.value = ValueOf(placed.code, edit.value);
        if (codes::IsVampOrRepeat(placed.code) && placed.value > 1 && ++countedLoops > MostCountedLoops) continue;
        // Half of the edits begin on whole beats.
        const int start = edit.startHalfBeat % halfBeats / (1 + edit.nudge % 2) * (1 + edit.nudge % 2);
        placed.start = TickAt(song, start, edit.nudge);
        placed.end = TickAt(song, std::max(0, start + edit.lengthHalfBeats), 0);
        edits.push_back(placed);
    }
    return edits;
}

SongSpec MakeSong(int resolution, std::vector<int> beatsOfBars, int attacca, const std::vector<RawEdit>& first,
                  const std::vector<RawEdit>& second) {
    SongSpec song;
    song.ticksPerQuarter = Resolutions[static_cast<std::size_t>(resolution)];
    song.beatsOfBars = std::move(beatsOfBars);
    song.beatsOfBars.push_back(4);
    unsigned int beats = 0;
    for (const int count : song.beatsOfBars)
        beats += static_cast<unsigned int>(count);
    song.endTick = beats * song.ticksPerQuarter;
    if (attacca % 4 == 3) song.startTick = song.ticksPerQuarter;
    song.attacca = static_cast<unsigned char>(attacca % 3);
    song.versions[0] = Place(song, first);
    song.versions[1] = Place(song, second);
    return song;
}

rc::Gen<SongSpec> RandomSong() {
    const auto edits = rc::gen::resize(18, rc::gen::container<std::vector<RawEdit>>(RandomEdit()));
    return rc::gen::apply(&MakeSong, Among(0, 4),
                          rc::gen::resize(14, rc::gen::container<std::vector<int>>(Among(1, 6))), Among(0, 12), edits,
                          edits);
}

TL::Timeline BuildTimeline(const SongSpec& song) {
    TL::Timeline timeline(song.startTick, song.endTick);
    unsigned int tick = 0;
    int bar = 0;
    for (const int beats : song.beatsOfBars) {
        timeline.GetMeters().Append(TL::Meter(tick, static_cast<std::uint8_t>(beats), 4));
        ++bar;
        for (int beat = 1; beat <= beats; ++beat, tick += song.ticksPerQuarter) {
            timeline.GetBarsBeats().Append(TL::BarsBeats(tick, static_cast<unsigned int>(beat), std::to_string(bar)));
        }
        timeline.GetTempos().Append(TL::Tempo(tick, 400000U + 1000U * static_cast<unsigned int>(bar)));
    }
    timeline.GetKeys().Append(TL::Key(0, 0, false));
    return timeline;
}

void AddEdit(CL::SongLog& log, const EditSpec& edit) {
    switch (edit.code) {
        case codes::Vamp:
            log.GetVamps().Add(CL::Vamp(edit.start, edit.end, edit.value));
            break;
        case codes::Repeat:
            log.GetRepeats().Add(CL::Repeat(edit.start, edit.end, edit.value));
            break;
        case codes::Cut:
            log.GetCuts().Add(CL::Cut(edit.start, edit.end));
            break;
        case codes::Fermata:
            log.GetFermatas().Add(CL::Fermata(edit.start, edit.end));
            break;
        case codes::Caesura:
            log.GetCaesuras().Add(CL::Caesura(edit.start, "", static_cast<unsigned int>(edit.value)));
            break;
        case codes::Click:
            log.GetClicks().Add(CL::Click(edit.start, edit.end, edit.value));
            break;
        case codes::Transposition:
            log.GetTranspositions().Add(CL::Transposition(edit.start, edit.end, edit.value));
            break;
        default:
            log.GetMarkers().Add(CL::Marker(edit.start, "here"));
            break;
    }
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const EditSpec& edit) {
    return out << "\n    " << codes::EditName(edit.code) << " " << edit.start << ".." << edit.end << " value "
               << edit.value;
}

std::ostream& operator<<(std::ostream& out, const SongSpec& song) {
    out << "\n  song of " << song.ticksPerQuarter << " ticks a quarter, " << song.startTick << ".." << song.endTick
        << ", attacca " << int{song.attacca} << ", bars of";
    for (const int beats : song.beatsOfBars)
        out << " " << beats;
    for (const auto& version : song.versions) {
        out << "\n   version:";
        for (const EditSpec& edit : version)
            out << edit;
    }
    return out;
}

rc::Gen<ShowSpec> RandomShow() {
    return rc::gen::container<ShowSpec>(2, RandomSong());
}

std::string SongNumber(std::size_t index) {
    return std::to_string(index + 1);
}

tavo_midi::ShowData BuildShowData(const ShowSpec& show) {
    tavo_midi::ShowData data;
    for (std::size_t i = 0; i < show.size(); ++i) {
        data.AddSong(tavo_midi::SongData(SongNumber(i), BuildTimeline(show[i]),
                                         static_cast<std::uint16_t>(show[i].ticksPerQuarter)));
    }
    return data;
}

std::shared_ptr<CL::ChangeLog> BuildChangeLog(const ShowSpec& show, std::size_t version) {
    auto changeLog = std::make_shared<CL::ChangeLog>();
    for (std::size_t i = 0; i < show.size(); ++i) {
        CL::SongLog& log = changeLog->GetSongLogs()[SongNumber(i)];
        log.SetAttacca(show[i].attacca);
        for (const EditSpec& edit : show[i].versions[version])
            AddEdit(log, edit);
    }
    return changeLog;
}

}  // namespace properties
