#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tavo_midi/frame_rate.h"
#include "tavo_midi/midi_ports.h"
#include "tavo_midi/time_code.h"

namespace tavo_midi {

/// MIDI time code output (MIDI 1.0, quarter frames and full frames) and its settings, kept in a JSON file. Nothing is
/// sent unless it is active and has an output that is there. Thread-safe; setters write the file before they return
/// and throw std::runtime_error with a sentence where that fails, the change then holds for this run.
///
/// The player drives it: SetSong when a song is loaded, Locate when the playhead is put somewhere, Start and Stop when
/// it begins and ceases to move, Jump when playback goes on elsewhere without a stop. Positions are times in the song,
/// at the speed of the wall clock. Calls may come ahead of the moment they are for, in order; each takes back what was
/// called for before it and lies later. None of them waits for a device, but all may allocate: not for an audio
/// callback.
class MidiTimeCodeController {
public:
    /// What time code does where the music jumps back or ahead.
    enum class JumpRule {
        Locate,  ///< jumps with it: a full frame, then quarter frames from there
        RunOn,   ///< runs on without a break until the next Locate or SetSong
    };

    /// A missing file means the defaults; a bad one is reported in one sentence of std::runtime_error. The output that
    /// the file names is taken up, now or when it comes.
    explicit MidiTimeCodeController(const std::string& settingsPath);
    /// Shutdown().
    ~MidiTimeCodeController();
    MidiTimeCodeController(const MidiTimeCodeController&) = delete;
    MidiTimeCodeController& operator=(const MidiTimeCodeController&) = delete;

    /// A sentence for each key of the file, as it was read, that is not known and was ignored.
    [[nodiscard]] std::vector<std::string> GetSettingsWarnings() const;

    /// Opens the chosen output, now or when it comes; where the music moves, time code goes on from there. May block
    /// for some seconds where the MIDI system does not answer.
    void ActivateMidiTimeCode();
    /// Closes the output, which has had a full frame of the place where time code was if it ran. Blocks as Activate
    /// does.
    void CancelMidiTimeCode();
    /// Whether it was activated, in this run or an earlier one; false where there is no file. Looks at no port.
    [[nodiscard]] bool GetIsActive() const;
    /// 30 where the file says nothing.
    [[nodiscard]] FrameRate GetFrameRate() const;
    /// Song offsets that are not addresses of the new rate become the nearest one in the same second. A value that is
    /// not a frame rate throws std::out_of_range with a sentence.
    void SetFrameRate(FrameRate frameRate);
    /// Index of the output; 0 while none is chosen or it is not there. This and the next two look at the ports, which
    /// may block for some seconds.
    [[nodiscard]] unsigned int GetOutputPortIndex() const;
    /// Whether an output is chosen that is there.
    [[nodiscard]] bool GetHasOutputPortIndex() const;
    /// Chooses the output by index and keeps its name. Throws std::out_of_range with a sentence if there is none.
    void SetOutputPortIndex(unsigned int index);
    /// Name of the chosen output, there or not; empty while none is chosen.
    [[nodiscard]] std::string GetOutputPortName() const;
    /// Chooses the output that has or will have this name; an empty one chooses none. Blocks as Activate does.
    void SetOutputPortName(const std::string& name);

    /// JumpRule::Locate where the file says nothing.
    [[nodiscard]] JumpRule GetJumpRule() const;
    /// Holds from the next Jump on.
    void SetJumpRule(JumpRule rule);
    /// Whether each song begins at the hour of its number, song 25 at 01:00:00:00.
    [[nodiscard]] bool GetHoursAreSongNumbers() const;
    /// Sends the song's new place at once.
    void SetHoursAreSongNumbers(bool hoursAreSongNumbers);
    /// Where the song begins, from 00:00:00:00 or from its hour; nothing is 00:00:00:00.
    [[nodiscard]] std::optional<TimeCode> GetSongOffset(const std::string& songNumber) const;
    /// Throws std::out_of_range with a sentence for what is not an address of the frame rate; otherwise sends the
    /// song's new place at once.
    void SetSongOffset(const std::string& songNumber, std::optional<TimeCode> offset);

    /// Time code at the song's beginning, from 00:00:00:00: its hour and its offset.
    [[nodiscard]] std::chrono::nanoseconds GetSongStart(const std::string& songNumber) const;

    /// Sends nothing by itself: the next call does, at the song's own place.
    void SetSong(const std::string& songNumber);
    /// A full frame of the position; quarter frames follow from there if they did before. `when` is now if left out,
    /// here and below. Ends what JumpRule::RunOn has shifted.
    void Locate(std::chrono::nanoseconds position, TimeCodeMoment when = {});
    /// A full frame of the position, and quarter frames from there.
    void Start(std::chrono::nanoseconds position, TimeCodeMoment when = {});
    /// A full frame of the position, and no quarter frames any more.
    void Stop(std::chrono::nanoseconds position, TimeCodeMoment when = {});
    /// What the jump rule says. `from` is where the music left, `to` where it goes on.
    void Jump(std::chrono::nanoseconds from, std::chrono::nanoseconds to, TimeCodeMoment when = {});

    /// Has time code stop with a full frame if it runs, and returns at once; nothing else is sent any more.
    void PrepareForExit();
    /// PrepareForExit, then ends the sending thread, for which it waits, and closes the output.
    void Shutdown();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tavo_midi

using tavo_midi::MidiTimeCodeController;
