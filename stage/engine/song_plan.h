#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "stage/engine/channel_state.h"
#include "stage/engine/click.h"
#include "stage/engine/held_ends.h"
#include "stage/engine/sound_player.h"
#include "tavo_core/change_log_events.h"
#include "tavo_core/song_log.h"
#include "tavo_midi/song_data.h"
#include "tavo_midi/tempo_map.h"

namespace stage {

/// Something other than notes that playback sets off when it reaches a tick.
struct Cue {
    std::uint32_t tick = 0;
    std::variant<CL::Sfx, CL::SfxAmbient, CL::Osc> edit;
    PlannedSound sound;  ///< of an effect or an ambience, where the show's sounds are played
};

/// The song's tempos as they are heard: the written ones with the production's tempo scales applied, to a microsecond a
/// quarter note.
[[nodiscard]] tavo_midi::TempoMap MakeHeardTempoMap(const tavo_midi::SongData& song, const CL::SongLog& songLog);

/// Everything that the engine needs to play one song with one state of its edits, laid out for playing. Constant after
/// construction. The song data must outlive it; the song log is copied from.
class SongPlan {
public:
    /// Sounds are found in `sounds`, before all others where the song is about to be played; null for none.
    SongPlan(const tavo_midi::SongData& song, const CL::SongLog& songLog, SoundLibrary* sounds = nullptr,
             bool isUrgent = true);

    [[nodiscard]] const tavo_midi::SongData& GetSong() const { return song_; }
    [[nodiscard]] std::uint32_t GetStartTick() const { return song_.GetTimeline().GetStartTickIndex(); }
    [[nodiscard]] std::uint32_t GetEndTick() const { return song_.GetTimeline().GetEndTickIndex(); }
    [[nodiscard]] const tavo_midi::TempoMap& GetTempoMap() const { return tempoMap_; }
    [[nodiscard]] const tavo_midi::TempoMap& GetHeardTempoMap() const { return heardTempoMap_; }
    [[nodiscard]] const ChannelHistory& GetChannelHistory() const { return history_; }
    /// The song's events as they are played: what belongs under a fermata ends at its end, which is where it is
    /// released. In ascending order of tick.
    [[nodiscard]] const std::vector<tavo_midi::MidiEvent>& GetEvents() const {
        return heldEnds_.empty() ? song_.GetEvents() : movedEvents_;
    }
    /// What of the song's events stands later in GetEvents.
    [[nodiscard]] const std::vector<HeldEnd>& GetHeldEnds() const { return heldEnds_; }
    /// In ascending order of tick.
    [[nodiscard]] const std::vector<Cue>& GetCues() const { return cues_; }
    /// Whether an effect or an ambience ends at this tick.
    [[nodiscard]] bool HasSoundEnd(std::uint32_t tick) const;
    /// The click's beat at exactly this tick, or null.
    [[nodiscard]] const ClickBeat* FindClickBeat(std::uint32_t tick) const;
    /// Index of the first event, or cue, at or after `tick`.
    [[nodiscard]] std::size_t FindEvent(std::uint32_t tick) const;
    [[nodiscard]] std::size_t FindCue(std::uint32_t tick) const;

    /// The ticks, ascending, where an advance must end: the beats, at which counts are shown, the cues, and the ends of
    /// sounds and of edits that change the tempo or the pitch.
    [[nodiscard]] const std::vector<std::uint32_t>& GetStops() const { return stops_; }
    /// The ticks, ascending, at which a press decides how playback goes on: where vamps, repeats and fermatas end, at
    /// caesuras, where cuts begin, and the song's end.
    [[nodiscard]] const std::vector<std::uint32_t>& GetSeams() const { return seams_; }

private:
    void CollectStops_(const CL::SongLog& songLog);
    void CollectCues_(const CL::SongLog& songLog);
    void FindSounds_(SoundLibrary& sounds, bool isUrgent);
    void CollectSeams_(const CL::SongLog& songLog);

    const tavo_midi::SongData& song_;
    const tavo_midi::TempoMap tempoMap_;
    const tavo_midi::TempoMap heardTempoMap_;
    const std::vector<HeldEnd> heldEnds_;
    const std::vector<tavo_midi::MidiEvent> movedEvents_;  // empty where nothing is held
    const ChannelHistory history_;
    std::vector<std::uint32_t> stops_;
    std::vector<std::uint32_t> seams_;
    std::vector<Cue> cues_;
    std::vector<std::uint32_t> soundEnds_;  // ascending
    const std::vector<ClickBeat> clickBeats_;
};

}  // namespace stage
