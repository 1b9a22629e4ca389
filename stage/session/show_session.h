#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "player_core/interface.h"
#include "stage/control/command_desk.h"
#include "stage/engine/instrument_fonts.h"
#include "stage/engine/stage_player.h"
#include "stage/engine/synth.h"
#include "stage/session/stepped_feed.h"
#include "stage/session/time_code_follower.h"
#include "stage/session/unsaved_edits.h"
#include "stage/show/settings.h"
#include "stage/show/show_hold.h"
#include "tavo_core/editor.h"
#include "tavo_security/cipher_stream.h"

namespace stage {

/// A show that is open: the façade over the stage's player, with the desk that every press passes. It opens the change
/// log that the settings choose, keeps a journal of every edit beside it and notifies the player of each, so that a
/// show can be edited while it plays. It installs the process's display feed: one session at a time. MIDI time code
/// follows the player. Show control's and machine control's songs and times are obeyed; one that the show does not have
/// is refused by the desk. What plays is rendered by its owner, through GetStagePlayer().GetEngine(), on a thread that
/// ends before the session does: by a device's clock in a performance, by a stepped one in a render.
///
/// Edits, saving and opening belong to one thread, the host's; the rest as Interface says.
class ShowSession : public Interface, private CommandPerformer {
public:
    struct Options {
        std::uint32_t framesPerSecond = 48000;
        /// How far playback plans ahead.
        std::uint32_t advanceFrames = Engine::DefaultAdvanceFrames;
        /// Of the `.score` file.
        std::string scorePassphrase;
        /// In place of the one that the settings name, relative to the working directory; empty for that one.
        std::string soundFont;
        /// The display feed keeps itself going. Without it the owner renders by a clock of its own and makes the
        /// passes (GetSteppedFeed).
        bool hasRunningFeed = true;
        /// MIDI time code follows the player.
        bool sendsTimeCode = true;
        /// A song that is put in waits until its sounds are in memory: for sessions that nobody hears.
        bool waitsForSounds = false;
        enum class Editing {
            Refused,   ///< edits that a crash left are not looked for
            InMemory,  ///< edits are taken and forgotten with the session; nothing is saved
            Kept,      ///< edits are kept in a journal until they are saved
        };
        /// Nothing is written beside the show unless edits are kept.
        Editing editing = Editing::Kept;
        /// The bare name of the change log that opens, in place of the one that the settings choose; empty for that.
        std::string changeLog;
        /// The show is held while edits are kept. Without that, edits and saving are refused, and others may edit it.
        bool holdsShow = true;
        /// How long to wait for another program that holds the show, perhaps only to save an edit.
        std::chrono::milliseconds holdWait{1000};
    };

    /// Reads the show directory. Where edits are to be kept and cannot be, the show opens for playing all the same
    /// (GetEditingProblem). Throws NoShowData, NoChangeLog, and std::runtime_error with one sentence for what
    /// cannot be read.
    ShowSession(const std::string& showPath, const std::string& settingsPath, const Options& options);
    ShowSession(const std::string& showPath, const std::string& settingsPath)
        : ShowSession(showPath, settingsPath, Options()) {}
    ~ShowSession() override;

    // Interface.
    /// The deciphered score, from its beginning; valid until the next call. Throws std::runtime_error with one sentence
    /// where the show has none or the passphrase is another one.
    tavo_sec::CipherStream* GetScoreTar() override;
    [[nodiscard]] std::vector<tavo_audio::VolumeType> GetVolumeTypes() const override;
    Player* GetPlayer() override { return player_.get(); }

    [[nodiscard]] StagePlayer& GetStagePlayer() { return *player_; }
    [[nodiscard]] Synth& GetSynth() { return *synth_; }
    /// Every press goes through here, also those of the MIDI input, show control and machine control.
    [[nodiscard]] CommandDesk& GetDesk() { return desk_; }
    /// The MIDI input and its commands: what is delivered to it is treated as if it had come from a port.
    using Interface::GetMidiCommands;
    using Interface::GetMidiMessageDispatcher;
    using Interface::GetMidiTimeCodeController;
    /// While it is performed, what comes from the MIDI input, and what an edit changes for the player, is left with the
    /// desk for its RunPosted, which the rendering thread calls between two blocks: so everything takes effect at the
    /// beginning of a block, and an edit returns when it has. To be called while nobody edits.
    void SetPerformed(bool isPerformed) { isPerformed_ = isPerformed; }
    /// Tells MIDI time code when a frame is heard; an empty function: when it is rendered. While nobody renders.
    void SetMomentHeard(FindMomentHeard findMomentHeard) {
        if (timeCodeFollower_ != nullptr) timeCodeFollower_->SetMomentHeard(std::move(findMomentHeard));
    }
    /// What the verb "quit" does; nothing at first. Called on the thread that carries the command out.
    void SetQuitHandler(std::function<void()> handler) { quitHandler_ = std::move(handler); }
    /// The display feed of a session without a running one; std::logic_error for another.
    [[nodiscard]] SteppedFeed& GetSteppedFeed();
    [[nodiscard]] const Options& GetOptions() const { return options_; }
    [[nodiscard]] const Settings& GetSettings() const { return settings_; }
    /// What the instruments are played with.
    [[nodiscard]] const InstrumentFonts& GetInstrumentFonts() const { return instrumentFonts_; }
    [[nodiscard]] const GroupPlan& GetGroupPlan() const { return groupPlan_; }
    [[nodiscard]] MidiOut& GetMidiOut() { return *midiOut_; }
    [[nodiscard]] const tavo_midi::ShowData& GetShow() { return GetShowData(); }
    /// What is odd in the show data and the settings and was passed over, a sentence each.
    [[nodiscard]] std::vector<std::string> GetWarnings();

    /// Why edits are refused though they were to be kept: another program holds the show, the medium is read-only, the
    /// journal cannot be read or written. One sentence without a full stop; empty where nothing stands in the way.
    [[nodiscard]] const std::string& GetEditingProblem() const { return editingProblem_; }
    /// What sessions before left in the journals of other versions than the one that was opened, and what is to be done
    /// about it, a sentence without a full stop each. As it was at the opening.
    [[nodiscard]] const std::vector<std::string>& GetLeftEdits() const { return leftEdits_; }

    // Edits that a crash left in the journal of the log that was opened.

    /// What they were, a line each; empty where there are none or they have been dealt with.
    [[nodiscard]] const std::vector<std::string>& GetRecoveredEdits() const { return unsaved_.lines; }
    /// Makes them again, or forgets them. Edits are refused before one of the two. Where the show is not held they can
    /// only be made again, for this session; they stay in the journal.
    void RecoverEdits();
    void DiscardRecoveredEdits();

    // Editing, also while the song plays. What the editor refuses throws, one sentence; nothing is changed then. No
    // edit is made that the journal does not keep. Playback goes on through an edit; where it stands, it moves out of a
    // cut that is new.

    void AddEdit(const std::string& songNumber, const CL::AnyEdit& edit);
    void ChangeEdit(const std::string& songNumber, const CL::AnyEdit& from, const CL::AnyEdit& to);
    void RemoveEdits(const std::string& songNumber, const std::vector<CL::AnyEdit>& edits);
    void EditAttacca(const std::string& songNumber, unsigned char attacca);
    /// Makes a change as CL::WriteLogChange writes it, or as it stands in a take, or in the words of `stage edit`,
    /// which mean the song that is loaded where they name none: "add vamp 12 15".
    void EditAsText(const std::string& change);
    /// A line for each edit that it took back, or made again.
    std::vector<std::string> Undo();
    std::vector<std::string> Redo();
    /// Makes the edits those of a saved version, "2.1", as one step that can be undone.
    void RollBackTo(const std::string& version);

    /// Cues that the last edit brought in and nobody will notice: their sound is not there, or the settings do not have
    /// their OSC target. One sentence without a full stop each. For the thread that edits.
    [[nodiscard]] const std::vector<std::string>& GetCueProblems() const { return cueProblems_; }

    // Versions.

    /// Saves as the next version that no log and no journal has, makes it the one that opens, and returns it; the
    /// journal begins anew.
    std::string Save(bool newMajor);
    /// The same under the next major number; the minor one is kept.
    std::string SaveCopy();
    /// Opens another saved version. Edits of this one that were not saved stay in its journal and are offered when it
    /// is opened again. Throws where it cannot be read, and goes on with this one.
    void UseVersion(const std::string& version);

private:
    /// The show as it was found before its log is read.
    struct Found {
        std::unique_ptr<ShowHold> hold;
        std::string editingProblem;
        bool isHeldElsewhere = false;
        Settings settings;
    };
    [[nodiscard]] static Found Find_(const std::string& showPath, const Options& options);
    ShowSession(const std::string& showPath, const std::string& settingsPath, const Options& options, Found found);

    // Interface.
    void LoadChangeLogEditor() override;

    // CommandPerformer.
    Interface& GetFacade() override { return *this; }
    const tavo_midi::ShowData& GetMusic() override { return GetShowData(); }
    CommandPlace GetPlace() override;
    void Panic() override;
    void LocateTimeCode(std::chrono::nanoseconds time) override;
    void ConductBeat(std::chrono::nanoseconds moment) override;
    void Restore(const std::string& state) override;
    void SetCountIn(unsigned int beats) override { player_->GetEngine().SetCountIn(beats); }
    void Edit(const std::string& change) override { EditAsText(change); }
    void UndoEdit() override { Undo(); }
    void RedoEdit() override { Redo(); }
    void SaveEdits() override { Save(false); }
    void Quit() override;
    OutputGroups* GetGroups() override { return player_->GetGroups(); }

    void ListenToMidiCommands_();
    [[nodiscard]] bool PostMidiCommand_(Command command, const std::string& callbackName, bool isTheFacades);
    [[nodiscard]] bool IsEditable_() const { return options_.editing != Options::Editing::Refused; }

    void OpenJournal_();
    /// Throws where edits cannot be kept.
    void KeepJournal_();
    void RequireJournal_();
    void RequireHold_();
    /// Makes the edit and notifies the player of what it changed.
    template <class MakeEdit>
    void EditAndTell_(MakeEdit&& edit, bool needsJournal = true);
    void TellPlayer_(const CL::LogChange& change);
    void TellPlayerBetweenBlocks_(const CL::LogChange& change);
    std::string SaveAs_(const cmn::TAVOVersion& version);
    [[nodiscard]] cmn::TAVOVersion GetVersion_();

    // Constant after construction.
    const Options options_;
    const Settings settings_;
    GroupPlan groupPlan_;
    InstrumentFonts instrumentFonts_;
    SteppedFeed* steppedFeed_ = nullptr;  // owned by the process's holder
    // Synchronises itself.
    CommandDesk desk_;
    // Used by the host's thread.
    std::unique_ptr<Synth> synth_;
    std::unique_ptr<SoundLibrary> sounds_;
    std::unique_ptr<TimeCodeFollower> timeCodeFollower_;
    std::unique_ptr<MidiOut> midiOut_;
    std::unique_ptr<StagePlayer> player_;
    std::unique_ptr<tavo_sec::CipherStream> score_;
    std::unique_ptr<ShowHold> hold_;  // null where edits are not kept, or cannot be
    UnsavedEdits unsaved_;
    std::string editingProblem_;
    std::vector<std::string> leftEdits_;
    std::vector<std::string> cueProblems_;
    bool isHeldElsewhere_ = false;
    bool isJournalKept_ = false;
    std::function<void()> quitHandler_;
    std::atomic<bool> isPerformed_{false};
    // Used by the thread that carries out what was posted.
    std::chrono::nanoseconds refusedMessage_{-1};  // arrival of the message whose song was refused
};

}  // namespace stage
