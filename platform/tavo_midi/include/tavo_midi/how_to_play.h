#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "tavo_core/song_log.h"
#include "tavo_core/timeline.h"
#include "tavo_midi/user_controls.h"

namespace tavo_midi {

/// Tells, for a position in a song, what a musician must know to play there: bar and beat, meter, click, key and
/// transposition, tempo and its scale, marker, page. It copies the data that it is given and keeps a reference to the
/// user's controls only. Not thread-safe: whoever owns one guards it.
///
/// The Update queries answer true once per change: when the value at the position differs from the one that the same
/// query last answered true for. After new data every query answers true once.
class HowToPlay {
public:
    /// Thrown by GetNextMeasureTickIndex where no bar begins later.
    class SongEnd : public std::out_of_range {
    public:
        /// With its one sentence.
        SongEnd();
    };
    /// Thrown by GetPreviousMeasureTickIndex on the song's first bar line.
    class SongBegin : public std::out_of_range {
    public:
        /// With its one sentence.
        SongBegin();
    };

    /// `controls` must outlive the object.
    explicit HowToPlay(UserControls& controls);
    HowToPlay(const HowToPlay&) = delete;
    HowToPlay& operator=(const HowToPlay&) = delete;

    /// Moves the position to one that playback reported. Moving on by a little costs a few nanoseconds whatever the
    /// size of the song.
    virtual void Advance(unsigned int tickIndex);
    /// Back to tick 0, with every query to answer true once.
    virtual void Reset();
    /// Moves the position to any tick.
    virtual void Seek(unsigned int tickIndex);
    /// Takes copies of the song's data; the position becomes 0. `ticksPerQuarter` is the song's resolution, 1 to
    /// 32767; 0 is taken as 480.
    virtual void SetData(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int ticksPerQuarter);
    virtual ~HowToPlay();

    /// The beat that GetBarString shows.
    bool UpdateBar();
    /// Numerator or denominator: another click alone is not a change of it.
    bool UpdateMeter();
    /// The length of a click.
    bool UpdateClick();
    /// The user's and the edit's together, so a change of one that the other makes up for is none.
    bool UpdateTransposition();
    /// The written key: another transposition alone is not a change of it.
    bool UpdateKey();
    /// The user's times the edit's, compared exactly.
    bool UpdateTempoScale();
    /// The written tempo: another tempo scale alone is not a change of it.
    bool UpdateTempo();
    /// A marker is in force from its tick to the next one's.
    bool UpdateMarker();
    /// A page is in force from its tick to the next one's.
    bool UpdatePageNumber();
    /// True once after new data.
    bool GetSendMarkerAndSongTitle();
    /// False makes the next UpdateMarker report the marker in force even if it did before; true makes it report the
    /// next one only.
    void SetMarkerUpdated(bool updated);

    /// "12:3", bar label and beat as the performers count them, click edits applied; empty before the first beat.
    [[nodiscard]] std::string GetBarString() const;
    /// "6/8"; before the first meter that one, and "4/4" in a song without any.
    [[nodiscard]] std::string GetMeterString() const;
    /// The key that sounds: the written one with the transposition applied; empty in a song without keys.
    [[nodiscard]] std::string GetKeyString() const;
    /// Metronome clicks a minute that sound: the written tempo times the tempo scale.
    [[nodiscard]] std::string GetTempoString() const;
    /// "90%": the user's scale times the edit's.
    [[nodiscard]] std::string GetTempoScaleString() const;
    /// Text of the marker in force; empty before the first one.
    [[nodiscard]] std::string GetMarkerString() const;
    /// Of the data that was set last; empty before.
    [[nodiscard]] std::string GetSongTitle() const;
    /// Length of the click in force in thirty-second notes.
    [[nodiscard]] int GetNotated32PerClick() const;
    /// Semitones: the user's transposition plus the edit's.
    [[nodiscard]] int GetTranspositionValue() const;
    /// GetTempoDouble to the nearest whole number.
    [[nodiscard]] int GetTempoInteger() const;
    /// 0 before the first page.
    [[nodiscard]] int GetPageNumberValue() const;
    /// Metronome clicks a minute that sound.
    [[nodiscard]] double GetTempoDouble() const;
    /// Tick of the marker in force; before the first one the position.
    [[nodiscard]] unsigned int GetMarkerTickIndex() const;

    /// The controls that were given at construction.
    [[nodiscard]] UserControls& GetUserControls() const;
    /// The position.
    [[nodiscard]] unsigned int GetTickIndex() const;
    /// The factor on the written tempo at the position: the user's times the edit's, each within its playable range.
    [[nodiscard]] double GetTempoScale() const;
    /// The written tempo at the position.
    [[nodiscard]] unsigned int GetMicrosecondsPerQuarter() const;

    /// Clicks left to the song's end: those after the position and before the end tick, and the end itself; 0 at the
    /// end and after it.
    [[nodiscard]] int GetClicksToSongEnd() const;
    /// First tick of the first bar that begins after `tickIndex`; throws SongEnd.
    [[nodiscard]] unsigned int GetNextMeasureTickIndex(unsigned int tickIndex) const;
    /// First tick of the last bar that begins at or before `tickIndex`; exactly on the song's first bar line it throws
    /// SongBegin. A tick before that line, or 0xFFFFFFFF (one before tick 0), answers with the line itself: a step back
    /// from the first bar leads to its beginning.
    [[nodiscard]] unsigned int GetPreviousMeasureTickIndex(unsigned int tickIndex) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tavo_midi

using tavo_midi::HowToPlay;
