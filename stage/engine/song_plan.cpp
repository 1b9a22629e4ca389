#include "stage/engine/song_plan.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "tavo_core/beat_ticks.h"
#include "tavo_midi/how_to_play.h"
#include "tavo_midi/user_controls.h"

namespace stage {

tavo_midi::TempoMap MakeHeardTempoMap(const tavo_midi::SongData& song, const CL::SongLog& songLog) {
    const tavo_midi::TempoMap written(song.GetTimeline().GetTempos(), song.GetTicksPerQuarter());
    if (songLog.GetTempoScales().empty()) return written;
    std::vector<std::uint32_t> ticks;
    for (const auto& segment : written.GetSegments())
        ticks.push_back(segment.tick);
    for (const CL::TempoScale& edit : songLog.GetTempoScales()) {
        ticks.push_back(edit.start());
        ticks.push_back(edit.end());
    }
    std::sort(ticks.begin(), ticks.end());
    ticks.erase(std::unique(ticks.begin(), ticks.end()), ticks.end());
    // The tracker knows which scale is in force where.
    UserControls unscaled;
    HowToPlay tracker(unscaled);
    tracker.SetData(songLog, song.GetTimeline(), song.GetTicksPerQuarter());
    TL::TimelineSequence<TL::Tempo> heard;
    for (const std::uint32_t tick : ticks) {
        tracker.Seek(tick);
        const double microseconds =
            written.GetSegments()[written.FindSegment(tick)].microsecondsPerQuarter / tracker.GetTempoScale();
        heard.Append({tick, static_cast<std::uint32_t>(std::lround(microseconds))});
    }
    return {heard, song.GetTicksPerQuarter()};
}

SongPlan::SongPlan(const tavo_midi::SongData& song, const CL::SongLog& songLog, SoundLibrary* sounds, bool isUrgent)
    : song_(song),
      tempoMap_(song.GetTimeline().GetTempos(), song.GetTicksPerQuarter()),
      heardTempoMap_(MakeHeardTempoMap(song, songLog)),
      heldEnds_(FindHeldEnds(song.GetEvents(), songLog.GetFermatas())),
      movedEvents_(heldEnds_.empty() ? std::vector<tavo_midi::MidiEvent>() : MoveHeldEnds(song.GetEvents(), heldEnds_)),
      history_(GetEvents()),
      clickBeats_(CollectClickBeats(song, songLog)) {
    CollectCues_(songLog);
    if (sounds != nullptr) FindSounds_(*sounds, isUrgent);
    CollectStops_(songLog);
    CollectSeams_(songLog);
}

void SongPlan::CollectStops_(const CL::SongLog& songLog) {
    const TL::Timeline& timeline = song_.GetTimeline();
    stops_ = CollectBeatTicks(timeline.GetBarsBeats(), songLog.GetClicks(), timeline.GetMeters(),
                              timeline.GetEndTickIndex(), song_.GetTicksPerQuarter());
    const auto addEnds = [this](const auto& edits) {
        for (const cmn::TavoEvent& edit : edits) {
            stops_.push_back(edit.start());
            stops_.push_back(edit.end());
        }
    };
    addEnds(songLog.GetTempoScales());
    addEnds(songLog.GetTranspositions());
    for (const Cue& cue : cues_)
        stops_.push_back(cue.tick);
    stops_.insert(stops_.end(), soundEnds_.begin(), soundEnds_.end());
    std::sort(stops_.begin(), stops_.end());
    stops_.erase(std::unique(stops_.begin(), stops_.end()), stops_.end());
}

void SongPlan::CollectSeams_(const CL::SongLog& songLog) {
    const auto addEnds = [this](const auto& edits) {
        for (const cmn::TavoEvent& edit : edits)
            seams_.push_back(edit.end());
    };
    addEnds(songLog.GetVamps());
    addEnds(songLog.GetRepeats());
    addEnds(songLog.GetFermatas());
    for (const CL::Caesura& caesura : songLog.GetCaesuras())
        seams_.push_back(caesura.start());
    for (const CL::Cut& cut : songLog.GetCuts())
        seams_.push_back(cut.start());
    seams_.push_back(GetEndTick());
    std::sort(seams_.begin(), seams_.end());
    seams_.erase(std::unique(seams_.begin(), seams_.end()), seams_.end());
}

void SongPlan::CollectCues_(const CL::SongLog& songLog) {
    std::vector<Cue> cues;
    const auto addAll = [&cues](const auto& edits) {
        for (const auto& edit : edits)
            cues.push_back({edit.abs_time(), edit, {}});
    };
    addAll(songLog.GetSfxs());
    addAll(songLog.GetSfxAmbients());
    addAll(songLog.GetOscs());
    // By tick, and at one tick in the order above.
    std::vector<std::size_t> order(cues.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&cues](std::size_t a, std::size_t b) {
        return cues[a].tick != cues[b].tick ? cues[a].tick < cues[b].tick : a < b;
    });
    cues_.reserve(cues.size());
    for (const std::size_t index : order)
        cues_.push_back(std::move(cues[index]));
}

// In the order in which they will be wanted.
void SongPlan::FindSounds_(SoundLibrary& sounds, bool isUrgent) {
    // Each urgent one goes before those that wait.
    for (std::size_t i = 0; i < cues_.size(); ++i) {
        Cue& cue = cues_[isUrgent ? cues_.size() - 1 - i : i];
        const auto find = [&](const CL::Sfx& edit, SoundUse use) {
            SoundPointer sound = sounds.Find(edit.sound(), use, isUrgent);
            const float gain = static_cast<float>(std::pow(10.0, edit.gain_db() / 20.0)) * sound->GetTrim();
            cue.sound = {std::move(sound), &song_, edit.start(), edit.end(), gain};
            if (!cue.sound.RingsOut()) soundEnds_.push_back(edit.end());
        };
        if (const auto* ambience = std::get_if<CL::SfxAmbient>(&cue.edit)) {
            find(*ambience, SoundUse::Round);
        } else if (const auto* effect = std::get_if<CL::Sfx>(&cue.edit)) {
            find(*effect, SoundUse::Once);
        }
    }
    std::sort(soundEnds_.begin(), soundEnds_.end());
}

bool SongPlan::HasSoundEnd(std::uint32_t tick) const {
    return std::binary_search(soundEnds_.begin(), soundEnds_.end(), tick);
}

std::size_t SongPlan::FindEvent(std::uint32_t tick) const {
    const auto& events = GetEvents();
    const auto found =
        std::lower_bound(events.begin(), events.end(), tick,
                         [](const tavo_midi::MidiEvent& event, std::uint32_t wanted) { return event.tick < wanted; });
    return static_cast<std::size_t>(found - events.begin());
}

const ClickBeat* SongPlan::FindClickBeat(std::uint32_t tick) const {
    const auto found = std::lower_bound(clickBeats_.begin(), clickBeats_.end(), tick,
                                        [](const ClickBeat& beat, std::uint32_t wanted) { return beat.tick < wanted; });
    return found != clickBeats_.end() && found->tick == tick ? &*found : nullptr;
}

std::size_t SongPlan::FindCue(std::uint32_t tick) const {
    const auto found = std::lower_bound(cues_.begin(), cues_.end(), tick,
                                        [](const Cue& cue, std::uint32_t wanted) { return cue.tick < wanted; });
    return static_cast<std::size_t>(found - cues_.begin());
}

}  // namespace stage
