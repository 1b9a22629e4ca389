#pragma once

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kit/numeric_string_compare.h"
#include "tavo_audio/volume_type.h"
#include "tavo_core/sequence.h"
#include "tavo_core/tavo_event.h"
#include "tavo_core/tavo_version.h"
#include "tavo_core/timeline.h"
#include "tavo_midi/midi_commands.h"
#include "tavo_midi/midi_message_dispatcher.h"
#include "tavo_midi/midi_time_code_controller.h"
#include "tavo_midi/show_data.h"

class Player;

namespace CL {
class Editor;
}
namespace tavo_sec {
class CipherStream;
}

/// Base of the façade's own errors.
class InterfaceError : public std::runtime_error {
public:
    /// `message` becomes what(), word for word.
    explicit InterfaceError(const std::string& message) : std::runtime_error(message) {}
};

/// The show directory holds no `.showdata` file.
class NoShowData : public InterfaceError {
public:
    /// As its base.
    using InterfaceError::InterfaceError;
};

/// The show directory holds no `.logdata` file.
class NoChangeLog : public InterfaceError {
public:
    /// As its base.
    using InterfaceError::InterfaceError;
};

/// A text that names no bar. For a host's own operations: the façade answers false instead (SeekToBar).
class NoBarStr : public InterfaceError {
public:
    /// As its base.
    using InterfaceError::InterfaceError;
};

/// The façade of one show: a host derives from it, supplies the player, and calls Initialize at the end of its own
/// constructor. Queries of the show data or the editor need that. It owns the show data, the editor and the MIDI
/// objects; the change log is the process-wide active one. Positions are tick indices.
///
/// Transport, state and MIDI operations may be called on the host's thread and on the MIDI thread alike; they take the
/// locks of what they call and none of their own, so none of them is for an audio callback. A display feed must be
/// installed. Files, versions and timeline operations are for the host's thread.
class Interface {
public:
    /// Names the calling thread "Parent", sets the process's directories and the thread exception log, makes the newest
    /// `.logdata` of the show directory the active change log and registers the MIDI command callbacks. `flag` is kept
    /// for the derived class. Throws NoShowData, NoChangeLog, and what reading the directory and the log throws.
    Interface(const std::string& showDirectory, const std::string& settingsDirectory, bool flag)
        : Interface(showDirectory, settingsDirectory, flag, "") {}
    /// The same with another `.logdata` than the newest; `changeLogName` is a bare file name, empty for the newest. One
    /// that the directory does not have throws NoChangeLog.
    Interface(const std::string& showDirectory, const std::string& settingsDirectory, bool flag,
              const std::string& changeLogName);
    /// Removes the MIDI command callbacks first.
    virtual ~Interface();
    Interface(const Interface&) = delete;
    Interface& operator=(const Interface&) = delete;

    // The virtual operations; their order is part of the interface.

    /// The score, not owned by the caller. Here it throws kit::NotImplementedError.
    virtual tavo_sec::CipherStream* GetScoreTar();
    /// The master volume; true when it was taken over.
    virtual bool SetVolume(double volume);
    /// A factor on the amplitude, 1 is full; true when it was taken over. What the player does with a value outside 0
    /// to 1 is its own.
    virtual bool SetVolume(double volume, tavo_audio::VolumeType type);
    /// The master volume.
    virtual double GetVolume();
    /// A factor on the amplitude; 1 for a type that the player has no volume of.
    virtual double GetVolume(tavo_audio::VolumeType type);
    /// The volumes that the host offers.
    virtual std::vector<tavo_audio::VolumeType> GetVolumeTypes() const = 0;
    /// Names of the MIDI commands by number.
    virtual std::map<unsigned char, std::string> GetCommandNames();
    /// Connects the MIDI input with this index. Above 255 throws std::out_of_range; a negative one connects the input
    /// whose index is its low byte.
    virtual void SetMidiSource(int index);

protected:
    /// Whether a MIDI input is connected and its commands include conducted beats.
    virtual bool GetHasConductBeat();
    /// Puts a new editor of the active change log in place of the old one. Holds no change-log guard.
    virtual void LoadChangeLogEditor();
    /// Reads the show data anew. An editor that is there refers to the old one: load it anew next.
    virtual void LoadShowData();

public:
    /// The player that the derived class owns; asked afresh for every operation.
    virtual Player* GetPlayer() = 0;

    // Transport.

    /// Each goes to the player's operation of its name, and throws what that throws, unless it says more. It waits for
    /// the player's and flow control's locks, not for sound.
    void Play();
    /// While a caesura stands pending and the player is not faded, cancels the caesura instead. `flag` goes to the
    /// player; the display pauses whatever it says.
    void Pause(bool flag);
    /// The player's UserRequestedStop: the display is notified and pauses.
    void Stop();
    /// Leaves a vamp, fermata or caesura and plays on, and the display goes on.
    void Continue();
    /// The same without the display.
    void FlowControlExit();
    /// Whether playing or not.
    void Seek(unsigned int tickIndex);
    /// To the previous marker.
    void SeekLeft();
    /// To the next marker.
    void SeekRight();
    /// To the first bar line after the playhead that the display shows; in the song's last bar nothing happens.
    void SeekToNextMeasure();
    /// To the bar line at or before that playhead, less than 960 ticks after it to the one before; exactly on the
    /// song's first bar line nothing happens.
    void SeekToPreviousMeasure();
    /// In show order. What comes of it after the last song, or before the first, is the player's.
    void NextSong();
    /// The same backwards.
    void PrevSong();
    /// Stops if playing; playback is not started again.
    void LoadSong(std::string songNumber);
    /// The same and seeks; plays on if playback ran before, faded or not.
    void LoadSongAtTime(std::string songNumber, unsigned int tickIndex);
    /// `onDone` is called at silence, on a thread of the player's.
    void Fade(std::function<void()> onDone, float seconds);
    /// Back to full level, and a faded player counts as playing again. Does nothing where no fade goes on, or in a
    /// player without fades.
    void CancelFade();
    /// A factor on every tempo, 0.5 to 2; what lies outside becomes the nearest end (UserControls).
    void SetTempoScale(double scale);
    /// Semitones, -24 to 24; what lies outside becomes the nearest end (UserControls).
    void SetTransposition(int semitones);
    /// After a cut [start, end) was added.
    void MovePlayheadOutOfCut(unsigned int start, unsigned int end);
    /// Notifies the player that another change log is active. It stops and stays where it was, or after a cut that now
    /// covers that place.
    void LoadNewChangeLog();
    /// Sends the whole display on the calling thread, and wakes the display feed.
    void UpdateOnce();

    /// 0 normal, 1 attacca, 2 skip. An unknown song throws what the change log throws.
    [[nodiscard]] unsigned char GetAttacca(std::string songNumber);
    /// Goes into the journal of edits, if one is kept; one that cannot be written throws, once the state is set.
    void SetAttacca(std::string songNumber, unsigned char attacca);

    // State.

    /// The PlayerState's numeric value.
    [[nodiscard]] unsigned char GetState();
    /// PlayerState::Stopped only: a paused player, at a caesura too, is not stopped.
    [[nodiscard]] bool GetIsStopped();
    /// Playing only: a faded player does not count here.
    [[nodiscard]] bool GetIsPlaying();
    /// Paused by the operator or at a caesura.
    [[nodiscard]] bool GetIsPaused();
    /// Playing at a level that a fade has lowered or is lowering.
    [[nodiscard]] bool GetIsFaded();
    /// The same as GetIsStopped.
    [[nodiscard]] bool IsStopped();
    /// A copy; empty before a song is loaded.
    [[nodiscard]] std::string GetCurrentSongNumber();
    /// Seconds.
    [[nodiscard]] double GetElapsedTime();
    /// The playhead as the display shows it.
    [[nodiscard]] unsigned int GetTickIndex();

    // MIDI commands.

    // Each goes to midi_commands::MidiCommands or to the dispatcher, and throws what that throws.

    /// MidiCommands::LearnMidiCommandNoAssign: the next allowed message is kept for `command` and gives nothing until
    /// SetMidiCommand assigns it. An unknown command throws std::out_of_range.
    void LearnMidiCommand(unsigned char command);
    /// Whether the next allowed message is learned for `command`; false for an unknown one.
    [[nodiscard]] bool IsMidiCommandLearning(unsigned char command);
    /// By the command's number: what is assigned, and over it what was learned but not assigned.
    [[nodiscard]] std::map<unsigned char, midi_commands::LearnedCommand> GetLearnedCommands();
    /// Assigns a message of these bytes (MidiCommands::SetMidiCommand); writes the settings file before it returns.
    void SetMidiCommand(unsigned char command, unsigned char status, unsigned char data1, unsigned char data2);
    /// Forgets what was learned or assigned; writes the settings file before it returns, if it held any of that.
    void UnsetMidiCommand(unsigned char command);
    /// The MIDI status bytes that a command may use, ascending.
    [[nodiscard]] std::vector<int> GetAllowedCommandStatuses();
    /// Whether an input is connected that is there. Waits for no port.
    [[nodiscard]] bool HasMidiSource();
    /// Its index in GetMidiSources; 0 as well while none is connected. This and the two lists look at the ports, which
    /// may block for some seconds.
    [[nodiscard]] unsigned char GetConnectedSourceIndex();
    /// The first 256; this program's own ports are left out.
    [[nodiscard]] std::vector<MidiEndPoint> GetMidiSources();
    /// The outputs, likewise.
    [[nodiscard]] std::vector<MidiEndPoint> GetMidiDestinations();

    // MIDI time code.

    // Each goes to MidiTimeCodeController's operation of its name, blocks as that does, and throws what that throws.
    // What changes a setting writes its file before it returns.

    /// From now on, and in later runs, time code is sent wherever its output is there.
    void ActivateMidiTimeCode();
    /// Sends the place where time code was, if it ran, and closes the output.
    void CancelMidiTimeCode();
    /// Whether it was activated; its output need not be chosen or there.
    [[nodiscard]] bool GetMidiTimeCodeIsActive();
    /// FrameRate's numeric value, 0 to 3.
    [[nodiscard]] unsigned char GetFrameRate();
    /// FrameRate's numeric value; above 3 throws std::out_of_range.
    void SetFrameRate(unsigned char frameRate);
    /// One of GetFrameRateStrings.
    [[nodiscard]] std::string GetFrameRateAsString();
    /// One of GetFrameRateStrings; any other text throws std::out_of_range.
    void SetFrameRateFromString(const std::string& text);
    /// "24", "25", "29.97 drop", "30": in the order of the numeric values.
    [[nodiscard]] std::vector<std::string> GetFrameRateStrings();
    /// Index in GetMidiDestinations; 0 as well while no output is chosen or the chosen one is not there.
    [[nodiscard]] unsigned int GetMidiTimeCodeOutputPortIndex();
    /// Whether an output is chosen that is there.
    [[nodiscard]] bool GetHasMidiTimeCodeOutputPortIndex();
    /// An index that GetMidiDestinations does not have throws std::out_of_range.
    void SetMidiTimeCodeOutputPortIndex(unsigned int index);

    // The end.

    /// Before the host exits without destroying its objects: asks all threads to finish, waits for none, and blocks
    /// for 100 ms. No display handler is called any more.
    void PrepareForExit();
    /// Before the host destroys its objects: ends the threads of the display feed, the player and the MIDI objects, and
    /// the MIDI commands. Display handlers go on.
    void Shutdown();

    // The show's files.

    /// Not owned by the caller; another one after LoadChangeLogEditor, null before Initialize.
    [[nodiscard]] CL::Editor* GetChangeLogEditor() { return changeLogEditor_.get(); }
    /// The process's: that of the façade which was constructed last.
    [[nodiscard]] std::string GetShowDirectory();
    /// A bare file name, in the show directory.
    [[nodiscard]] std::string GetShowDataFilename() { return showDataFileName_; }
    /// A bare file name, in the show directory; empty for a show without a score.
    [[nodiscard]] std::string GetScoreFilename() { return scoreFileName_; }
    /// Full path of the change log that was opened or saved last.
    [[nodiscard]] std::string GetChangelogFilename();
    /// Full path; it lies in the show directory, not in the settings directory, and need not be there.
    [[nodiscard]] std::string GetSettingsFilename();

    // Change logs and their versions.

    /// Saves as the next minor version, or as version 0 of the next major one; returns its text. Blocks for the disk
    /// with the change log locked. Throws what CL::ChangeLog::Save throws; the version then stays raised.
    std::string SaveChangelog(bool newMajor);
    /// The same under the next major number; the minor one is kept.
    std::string SaveChangelogCopy();
    /// Halts the output and makes another saved change log of the show directory the active one; `name` is a bare file
    /// name. The host calls LoadNewChangeLog next. Throws what reading the log throws.
    void SetChangelogFilename(std::string name);
    /// "1.3": the version of the active change log, as it will be or was saved.
    [[nodiscard]] std::string GetLogVersion();
    /// Saves nothing. A text that is not a version throws std::invalid_argument with a sentence and changes nothing.
    void SetLogVersion(std::string text);
    /// Bare file names of all versions, by version text.
    [[nodiscard]] std::map<std::string, std::string, kit::NumericStringCompare> GetLogMap();
    /// Two lines for every tempo edit outside the playable range; empty if there is none.
    [[nodiscard]] std::string GetTempoScaleWarnings();
    /// One line for every click edit that had to be changed; empty if there is none.
    [[nodiscard]] std::string GetModifiedClickEditLog();
    /// How many edits whose end lay before their start the last load repaired, by exchanging the two.
    [[nodiscard]] unsigned int GetInvertedLoopEventCount() { return invertedLoopEventCount_; }
    /// A line for each that any load of this object repaired; empty if there was none.
    [[nodiscard]] std::string GetInvertedLoopEventDescription() { return invertedLoopEventDescription_; }

    // The timeline as the performers hear it. An unknown song throws what the show data throws.

    /// The beats, with the clicks of the song's Click edits in place of the written ones.
    [[nodiscard]] TL::TimelineSequence<TL::BarsBeats> GetBarsBeats(std::string song);
    /// The same, or the written beats where `applyClicks` is false.
    [[nodiscard]] TL::TimelineSequence<TL::BarsBeats> GetBarsBeats(std::string song, bool applyClicks);
    /// Length of the click in force, in thirty-second notes, in the current song.
    [[nodiscard]] int GetClickValueAt(unsigned int tick);
    /// The lengths, in thirty-second notes and ascending, that divide the bar at `tick` of the current song evenly. The
    /// second argument is ignored.
    [[nodiscard]] std::vector<int> GetClickValues(unsigned int tick, unsigned int ignored);
    /// Label of the bar at `tick` of the current song, without a beat; beyond either end that of the last or first bar.
    [[nodiscard]] std::string GetBarString(unsigned int tick);
    /// To the first bar of the current song with that label; false, and nothing happens, if `bar` names no bar.
    bool SeekToBar(std::string bar);
    /// Song and tick of a score page; an unknown page throws std::out_of_range "invalid map<K, T> key".
    [[nodiscard]] std::pair<std::string, unsigned int> LookupPage(unsigned int page);
    /// Ticks from the song's start to its end.
    [[nodiscard]] unsigned int GetSongLength(std::string song);
    /// Tick of its first bar, a pick-up included: the earliest place that a seek goes to. Not always 0.
    [[nodiscard]] unsigned int GetSongStartTickIndex(std::string song);
    /// The current song's markers, valid until the active change log is next changed.
    [[nodiscard]] std::vector<cmn::TavoEvent*> GetMarkers();
    /// The current song's timeline with at most the first and the last tempo of each bar, and none in the final bar.
    /// Title, start and end are not in it.
    [[nodiscard]] TL::Timeline GetTimeline();
    /// Copies of the current song's edits, markers not among them, by tick and then by kind.
    [[nodiscard]] std::vector<std::unique_ptr<cmn::TavoEvent>> GetChangeLogPanelEvents();

protected:
    /// Loads what depends on the show data: show data, repairs, editor, page numbers. Called once the object is whole.
    void Initialize();
    /// Adds the pages of the show data to those that LookupPage knows.
    void LoadPageNumbers();
    /// The production's choice of caesuras, as CL::SetCaesuraVersionTarget takes it.
    void SetVersionTarget(long target);
    /// Only once LoadShowData has been called; good until it is called again.
    [[nodiscard]] tavo_midi::ShowData& GetShowData() { return *showData_; }
    /// The input that commands come from; synchronises itself.
    [[nodiscard]] MidiMessageDispatcher& GetMidiMessageDispatcher() { return midiMessageDispatcher_; }
    /// For a filter of commands. One that uses a derived object is to be taken away by its destructor.
    [[nodiscard]] midi_commands::MidiCommands& GetMidiCommands() { return midiCommands_; }
    /// For the player, which drives it; synchronises itself.
    [[nodiscard]] MidiTimeCodeController& GetMidiTimeCodeController() { return midiTimeCodeController_; }
    /// The constructor's third argument.
    [[nodiscard]] bool GetFlag() const { return flag_; }

private:
    void ScanShowDirectory_(const std::string& showDirectory);
    void ChooseChangeLog_(const std::string& name);
    void RegisterMidiCommands_();
    /// Raises the version, saves under it and returns its text.
    std::string SaveAs_(void (*raise)(cmn::TAVOVersion& version));

    // Constant after construction.
    const bool flag_;
    // Used by the host's thread only, unless said otherwise.
    std::string changeLogFileName_;
    std::map<cmn::TAVOVersion, std::string> logFilesByVersion_;
    std::unique_ptr<tavo_midi::ShowData> showData_;
    std::string showDataFileName_;
    // Refers to the show data and is destroyed before it.
    std::unique_ptr<CL::Editor> changeLogEditor_;
    std::string scoreFileName_;
    std::map<unsigned int, std::pair<std::string, unsigned int>> pageNumbers_;
    // Synchronise themselves.
    MidiMessageDispatcher midiMessageDispatcher_;
    midi_commands::MidiCommands midiCommands_;
    MidiTimeCodeController midiTimeCodeController_;

    unsigned int invertedLoopEventCount_ = 0;
    std::string invertedLoopEventDescription_;
};
