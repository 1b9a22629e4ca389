#include "stage/import/musicxml/played_notes.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <map>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "stage/import/musicxml/instrument_channels.h"
#include "tavo_midi/playing_order.h"
#include "tavo_midi/show_file.h"

namespace stage::musicxml {

namespace {

using tavo_midi::MidiEvent;

/// A note-on and a note-off are eight bytes of a file at least.
constexpr std::size_t MostNotes = tavo_midi::MaxShowMemberBytes / 8;
/// A controller is four.
constexpr std::size_t MostPedalEvents = tavo_midi::MaxShowMemberBytes / 4;
/// Grace notes before the beat are thirty-seconds. Those on the beat take half of the note that they delay, of a dotted
/// one two thirds.
constexpr std::uint32_t GraceTicks = ScoreTicksPerQuarter / 8;
/// How early the note before a breath mark ends; of a short note it is a third.
constexpr std::uint32_t LiftTicks = ScoreTicksPerQuarter / 4;

enum Controller : std::uint8_t { Volume = 7, Pan = 10, Sustain = 64 };

/// A note as it sounds, ties joined.
struct Sound {
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
    MidiChannel channel;
    std::uint8_t key = 0;
    std::uint8_t velocity = 0;
    std::uint16_t part = 0;
};

/// Grace notes belong to the note of their part, voice and place in the bar.
using Place = std::tuple<std::uint16_t, std::uint16_t, Units>;

struct GraceGroup {
    /// Those that sound one after another, and how many of them have sounded.
    std::uint32_t count = 0;
    std::uint32_t played = 0;
    /// What the shortest of the notes that they belong to leaves them on the beat, in ticks; 0 without any.
    std::uint32_t room = 0;
    GraceKind kind = GraceKind::BeforeBeat;

    [[nodiscard]] std::uint32_t TicksOfEach(std::uint32_t beatTick) const {
        if (kind == GraceKind::OnBeat && room > 0) return room / count;
        return kind == GraceKind::OnBeat ? GraceTicks : std::min(GraceTicks, beatTick / count);
    }
};

/// Ranges of the notes that belong to each bar.
std::vector<std::size_t> FindFirstNotes(const WrittenScore& score) {
    std::vector<std::size_t> first(score.bars.size() + 1, score.notes.size());
    std::size_t note = 0;
    for (std::size_t bar = 0; bar < score.bars.size(); ++bar) {
        while (note < score.notes.size() && score.notes[note].bar < bar)
            ++note;
        first[bar] = note;
    }
    return first;
}

class Playing {
public:
    Playing(const WrittenScore& score, const PlayedOrder& order, const SongGrid& grid, bool liftsAtBreaths)
        : score_(score),
          order_(order),
          grid_(grid),
          liftsAtBreaths_(liftsAtBreaths),
          channels_(AssignChannels(score.parts)),
          firstNotes_(FindFirstNotes(score)) {}

    PlayedNotes Play() {
        RefuseTooMany();
        for (std::size_t i = 0; i < order_.bars.size(); ++i)
            PlayBar(i);
        EndStruckKeys();

        PlayedNotes played;
        played.notes = channels_.notes;
        played.eventsOfPart.resize(score_.parts.size());
        SetUpChannels(played);
        PressPedals(played);
        for (const Sound& sound : sounds_)
            AppendSound(sound, played.eventsOfPart[sound.part]);
        for (auto& events : played.eventsOfPart)
            events = tavo_midi::PutInPlayingOrder(std::move(events));
        return played;
    }

private:
    void RefuseTooMany() const {
        std::vector<std::size_t> ofBar(score_.bars.size(), 0);
        for (const WrittenNote& note : score_.notes)
            ++ofBar[note.bar];
        for (const WrittenPedal& pedal : score_.pedals)
            ++ofBar[pedal.bar];
        std::size_t count = 0;
        for (const PlayedBar& played : order_.bars)
            count += ofBar[played.bar];
        if (count > MostNotes)
            throw std::runtime_error(fmt::format(
                "the music has {} notes and pedals when its repeats are played, more than {}", count, MostNotes));
    }

    void PlayBar(std::size_t index) {
        const std::uint32_t bar = order_.bars[index].bar;
        const Units barStart = grid_.GetBarStart(index);
        std::map<Place, GraceGroup> graces = CollectGraces(bar, barStart);
        for (std::size_t i = firstNotes_[bar]; i < firstNotes_[bar + 1]; ++i) {
            const WrittenNote& note = score_.notes[i];
            const auto group = graces.empty() ? graces.end() : graces.find({note.part, note.voice, note.position});
            if (note.grace != GraceKind::None)
                PlayGrace(note, barStart, group->second);
            else
                PlayNote(note, barStart, group == graces.end() ? nullptr : &group->second);
        }
    }

    [[nodiscard]] std::map<Place, GraceGroup> CollectGraces(std::uint32_t bar, Units barStart) const {
        std::map<Place, GraceGroup> graces;
        for (std::size_t i = firstNotes_[bar]; i < firstNotes_[bar + 1]; ++i) {
            const WrittenNote& note = score_.notes[i];
            if (note.grace == GraceKind::None) continue;
            GraceGroup& group = graces[{note.part, note.voice, note.position}];
            if (group.count == 0 || !note.joinsGrace) ++group.count;
            group.kind = note.grace;
        }
        if (graces.empty()) return graces;
        for (std::size_t i = firstNotes_[bar]; i < firstNotes_[bar + 1]; ++i) {
            const WrittenNote& note = score_.notes[i];
            const auto group = graces.find({note.part, note.voice, note.position});
            if (note.grace != GraceKind::None || group == graces.end()) continue;
            const Units begin = barStart + note.position;
            const std::uint32_t ticks = grid_.ToTick(begin + note.length) - grid_.ToTick(begin);
            const std::uint32_t room = IsDotted(note.length) ? ticks * 2 / 3 : ticks / 2;
            std::uint32_t& least = group->second.room;
            least = least == 0 ? room : std::min(least, room);
        }
        return graces;
    }

    [[nodiscard]] bool IsDotted(Units length) const {
        const Units whole = 4 * score_.unitsPerQuarter;
        if (length <= 0 || length > 64 * whole || length * 128 % whole != 0) return false;
        const auto parts = static_cast<std::uint64_t>(length * 128 / whole);
        return parts >> std::countr_zero(parts) == 3;
    }

    void PlayGrace(const WrittenNote& note, Units barStart, GraceGroup& group) {
        const std::uint32_t beat = grid_.ToTick(barStart + note.position);
        const std::uint32_t ticks = group.TicksOfEach(beat);
        const std::uint32_t first = group.kind == GraceKind::BeforeBeat ? beat - group.count * ticks : beat;
        if (group.played == 0 || !note.joinsGrace) ++group.played;
        const std::uint32_t begin = first + (group.played - 1) * ticks;
        AppendSoundOf(note, begin, begin + ticks);
    }

    void PlayNote(const WrittenNote& note, Units barStart, const GraceGroup* graces) {
        const Units length = std::min(note.length, grid_.GetBarStart(order_.bars.size()));
        const Units begin = barStart + note.position;
        const Units end = begin + length;
        const std::uint32_t endTick = FindEndTick(note, begin, length);
        if (note.tieStop && ContinueTie(note, begin, end, endTick)) return;
        std::uint32_t beginTick = grid_.ToTick(begin);
        if (graces != nullptr && graces->kind == GraceKind::OnBeat)
            beginTick += graces->count * graces->TicksOfEach(beginTick);
        AppendSoundOf(note, beginTick, endTick);
        if (note.tieStart) ties_[{note.part, note.key, end}] = sounds_.size() - 1;
    }

    /// Where the note stops sounding; one that is tied to the next lasts up to it.
    [[nodiscard]] std::uint32_t FindEndTick(const WrittenNote& note, Units begin, Units length) const {
        const std::uint32_t end = grid_.ToTick(begin + length);
        if (note.tieStart) return end;
        const std::uint32_t soundingEnd = grid_.ToTick(begin + length * note.soundingPercent / 100);
        if (!note.hasBreath || !liftsAtBreaths_) return soundingEnd;
        return std::min(soundingEnd, end - std::min(LiftTicks, (end - grid_.ToTick(begin)) / 3));
    }

    bool ContinueTie(const WrittenNote& note, Units begin, Units end, std::uint32_t endTick) {
        const auto tie = ties_.find({note.part, note.key, begin});
        if (tie == ties_.end()) return false;
        const std::size_t index = tie->second;
        ties_.erase(tie);
        sounds_[index].end = std::max(sounds_[index].end, endTick);
        if (note.tieStart) ties_[{note.part, note.key, end}] = index;
        return true;
    }

    void AppendSoundOf(const WrittenNote& note, std::uint32_t begin, std::uint32_t end) {
        const auto& channels = channels_.ofPart[note.part];
        const MidiChannel channel = channels[std::min<std::size_t>(note.instrument, channels.size() - 1)];
        sounds_.push_back({begin, std::max(end, begin + 1), channel, note.key, note.velocity, note.part});
    }

    /// On one channel a key sounds once at a time.
    void EndStruckKeys() {
        const auto keyOf = [](const Sound& sound) { return std::tuple(sound.channel, sound.key); };
        std::stable_sort(sounds_.begin(), sounds_.end(), [&](const Sound& a, const Sound& b) {
            return std::pair(keyOf(a), a.begin) < std::pair(keyOf(b), b.begin);
        });
        std::size_t kept = 0;
        for (std::size_t i = 0; i < sounds_.size(); ++i) {
            Sound sound = sounds_[i];
            if (sound.begin >= grid_.GetEndTick()) continue;
            sound.end = std::min(sound.end, grid_.GetEndTick());
            Sound* before = kept > 0 ? &sounds_[kept - 1] : nullptr;
            if (before != nullptr && keyOf(*before) == keyOf(sound) && before->end > sound.begin) {
                sound.end = std::max(sound.end, before->end);
                if (before->begin == sound.begin) {
                    before->end = sound.end;
                    before->velocity = std::max(before->velocity, sound.velocity);
                    continue;
                }
                before->end = sound.begin;
            }
            sounds_[kept++] = sound;
        }
        sounds_.resize(kept);
    }

    static void AppendController(std::vector<MidiEvent>& events, std::uint32_t tick, MidiChannel channel,
                                 Controller controller, int value) {
        events.push_back({tick, static_cast<std::uint8_t>(0xB0 | channel.channel), controller,
                          static_cast<std::uint8_t>(value), channel.port});
    }

    void SetUpChannels(PlayedNotes& played) const {
        for (std::size_t part = 0; part < score_.parts.size(); ++part) {
            const auto& instruments = score_.parts[part].instruments;
            std::vector<MidiEvent>& events = played.eventsOfPart[part];
            for (std::size_t i = 0; i < instruments.size(); ++i) {
                const MidiChannel channel = channels_.ofPart[part][i];
                const bool isSetUp = i > 0 && instruments[i].isPercussion && instruments[i - 1].isPercussion;
                if (isSetUp) continue;
                events.push_back({0, static_cast<std::uint8_t>(0xC0 | channel.channel),
                                  static_cast<std::uint8_t>(instruments[i].program & 0x7F), 0, channel.port});
                if (instruments[i].volume >= 0) AppendController(events, 0, channel, Volume, instruments[i].volume);
                if (instruments[i].pan >= 0) AppendController(events, 0, channel, Pan, instruments[i].pan);
            }
        }
    }

    void PressPedals(PlayedNotes& played) {
        std::vector<std::vector<WrittenPedal>> pedalsOf(score_.parts.size());
        for (const WrittenPedal& pedal : score_.pedals)
            pedalsOf[pedal.part].push_back(pedal);
        for (std::size_t part = 0; part < pedalsOf.size(); ++part)
            if (!pedalsOf[part].empty()) PressPedal(part, pedalsOf[part], played.eventsOfPart[part]);
    }

    void PressPedal(std::size_t part, const std::vector<WrittenPedal>& pedals, std::vector<MidiEvent>& events) {
        bool isDown = false;
        const auto press = [&](std::uint32_t tick, bool down) {
            if (down == isDown) return;
            isDown = down;
            pedalEvents_ += channels_.ofPart[part].size();
            if (pedalEvents_ > MostPedalEvents)
                throw std::runtime_error(
                    fmt::format("the pedals of all instruments need more than {} MIDI events", MostPedalEvents));
            for (const MidiChannel& channel : channels_.ofPart[part])
                AppendController(events, tick, channel, Sustain, down ? 127 : 0);
        };
        for (std::size_t i = 0; i < order_.bars.size(); ++i) {
            const std::uint32_t bar = order_.bars[i].bar;
            auto pedal = std::lower_bound(pedals.begin(), pedals.end(), bar,
                                          [](const WrittenPedal& p, std::uint32_t wanted) { return p.bar < wanted; });
            // After a jump the pedal is as it is written there.
            press(grid_.GetBarTick(i), pedal != pedals.begin() && std::prev(pedal)->isDown);
            for (; pedal != pedals.end() && pedal->bar == bar; ++pedal) {
                const std::uint32_t tick = grid_.ToTick(grid_.GetBarStart(i) + pedal->position);
                // Lifted and pressed again at one place: the new chord is what it holds.
                if (isDown && pedal->isDown) press(tick, false);
                press(tick, pedal->isDown);
            }
        }
        press(grid_.GetEndTick(), false);
    }

    static void AppendSound(const Sound& sound, std::vector<MidiEvent>& events) {
        const auto status = [&sound](int kind) { return static_cast<std::uint8_t>(kind << 4 | sound.channel.channel); };
        events.push_back({sound.begin, status(9), sound.key, sound.velocity, sound.channel.port});
        events.push_back({sound.end, status(8), sound.key, 64, sound.channel.port});
    }

    const WrittenScore& score_;
    const PlayedOrder& order_;
    const SongGrid& grid_;
    const bool liftsAtBreaths_;
    const InstrumentChannels channels_;
    const std::vector<std::size_t> firstNotes_;  // by bar, and the number of notes
    std::vector<Sound> sounds_;
    std::size_t pedalEvents_ = 0;
    /// Part, key and end of a note that is tied to another: its index in sounds_.
    std::map<std::tuple<std::uint16_t, std::uint8_t, Units>, std::size_t> ties_;
};

}  // namespace

PlayedNotes PlayNotes(const WrittenScore& score, const PlayedOrder& order, const SongGrid& grid, bool liftsAtBreaths) {
    return Playing(score, order, grid, liftsAtBreaths).Play();
}

}  // namespace stage::musicxml
