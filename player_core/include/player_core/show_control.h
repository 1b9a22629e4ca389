#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/lock.h"
#include "player_core/active_song_number.h"
#include "player_core/caesura_counter.h"
#include "player_core/flow_state.h"
#include "player_core/loop_event_list.h"
#include "player_core/paired_event_map.h"
#include "player_core/player_callbacks.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/how_to_play.h"
#include "tavo_midi/show_data.h"
#include "tavo_midi/time_code_converter.h"

/// What an advance search found. A plain value.
struct FindNextControlEventResult {
    bool loopStartsHere = false;  ///< loops were registered at the searched tick; tickIndex is that tick
    bool stopBeforeEnd = false;   ///< the advance must stop early, at tickIndex
    bool caesuraHere = false;     ///< playback has just reached a caesura at the searched tick; tickIndex says nothing
    bool cutHere = false;         ///< a cut begins at the searched tick; tickIndex is its end
    unsigned int tickIndex = 0;   ///< where the advance ends, or where it goes on

    /// Clears the flags and leaves tickIndex.
    void Reset() { loopStartsHere = stopBeforeEnd = caesuraHere = cutHere = false; }
};

/// Turns the edits of the current song into the flow of playback: where it stops early, jumps back, skips, holds and
/// pauses. The engine that plays asks it before every stretch and obeys; the operator's exit and seeks enter here too.
///
/// Positions are tick indices. All operations are thread-safe unless they say otherwise, may block on the seek lock,
/// the GUI mutex and the change log, and are not real-time safe: a device's callback must not call them. Display
/// statuses are posted, callbacks raised and the display's seek made with the seek lock released; a caller must
/// therefore not hold it when it calls an operation that posts.
///
/// Order of locks: seek serial lock, seek lock, GUI mutex, active song number, change log, future statuses.
///
/// The engine's part, at every arrival at a tick: SetTickIndex; ProcessLoopEventsAtCurrentTickIndex; if that jumped, go
/// on from GetTickIndex; FindNextControlEventOnAdvance to an end that is not beyond that of the first active loop; play
/// to the result. A result at or before the searched tick moves nothing: search again. Where a search registered loops
/// without saying so, the first active loop's end limits the result as well. A caesura whose countdown begins on its
/// own tick is met once more when playback goes on from its stop: it is not stopped at twice.
class ShowControl {
public:
    /// Keeps references to both; they outlive the object. No song is loaded.
    ShowControl(ActiveSongNumber& activeSongNumber, const tavo_midi::ShowData& showData);
    virtual ~ShowControl();
    ShowControl(const ShowControl&) = delete;
    ShowControl& operator=(const ShowControl&) = delete;

    /// Back to the beginning of the song: ResetControlVariables, a seek to the start, ResetGuiUpdate. The answer is the
    /// seek's.
    virtual bool FullReset();
    /// Whether the beat is conducted from outside; here never.
    virtual bool GetConductorMode();
    /// The end of the song that is loaded; 0 when none is.
    virtual unsigned int GetEndTickIndex();
    /// Its first tick; 0 when none is loaded.
    virtual unsigned int GetStartTickIndex();
    /// Loads the active song. An unknown one throws std::out_of_range; what was loaded before then stays.
    virtual void LoadSong();
    /// Rebuilds everything from the change log that is now active, for the song that is loaded. Throws std::logic_error
    /// when no song is loaded or no log is active, std::out_of_range when the log lacks the song; the old edits then
    /// stay.
    virtual void LoadNewChangeLog();
    /// The engine has stopped at the caesura: playback now stands after it. Seeks; the caller does not hold the seek
    /// lock.
    virtual void OnCaesuraStop();
    /// Puts the display where flow control is.
    virtual void ResetGuiUpdate();
    /// Moves the playhead to `tickIndex`, or to the song's start if that is later, and registers what covers it. True
    /// when the place lies in a cut: then the playhead has not moved, and the callback `internal_cut` was raised with
    /// the cut's end. The caller does not hold the seek lock.
    virtual bool Seek(unsigned int tickIndex);
    /// Does nothing here: without a volume there is no fade.
    virtual void CancelFade();
    /// Forgets loops, caesuras, holds and jumps, and goes to the song's start without a seek.
    virtual void ResetControlVariables();
    /// The count that the front caesura shows at the playhead; -1 for none.
    virtual int GetCaesuraCountdown();
    /// The tracker of the engine's position. Guarded by the seek lock.
    virtual HowToPlay& GetHowToPlay() = 0;
    /// Tick of the front caesura; 0xFFFFFFFF for none.
    virtual unsigned int GetFirstCaesuraStackTickIndex();

protected:
    /// Rebuilds the structures of the song that is loaded and hands the song to the display feed, to GetHowToPlay and
    /// to the time-code converter.
    virtual void FinishLoadingSongLog_();

public:
    /// Where a caesura or a fermata's end stands in the engine's clock; here where it is written.
    virtual unsigned int GetCaesuraTickIndexAlignedWithClock(unsigned int tickIndex);

protected:
    /// Takes both from the song that is being loaded. The caller holds the seek lock.
    virtual void LoadStartAndEndTickIndices();
    /// Moves the playhead and marks a jump. The caller holds the seek lock, which `lock` stands for.
    virtual void SetJump(unsigned int tickIndex, const kit::LockInterface& lock, bool forVampRepeatOrCut);

public:
    /// Fills the search result for the advance [fromTick, toTick): registers the loops that begin at `fromTick`,
    /// notices a cut or a caesura there, and says how far the advance may go. Posts the statuses of what comes next.
    void FindNextControlEventOnAdvance(unsigned int fromTick, unsigned int toTick);
    /// Decides, at the end of the first active loop, whether it jumps back, ends or is left.
    void ProcessLoopEventsAtCurrentTickIndex();
    /// Sets the vamp lamp and posts the status of what comes next.
    void CheckForRemainingVampRepeatOrFermata();
    /// The operator's exit. It consumes one thing: a holding fermata, else a caesura that stands before the end of the
    /// vamp, else the vamp.
    void FlowControlExit();

    /// Playback stands at a caesura whose stop has not been performed.
    [[nodiscard]] bool HasPendingCaesura();
    /// Whether the song has a caesura at exactly this tick, met or not.
    [[nodiscard]] bool HasCaesuraAtTickIndex(unsigned int tickIndex);
    /// Forgets the caesuras on the way; a seek's display of one stays if it belongs to `tickIndex`.
    void ResetCaesuraState(unsigned int tickIndex);

    /// Writes the song's attacca byte into the active change log. An unknown song throws std::out_of_range.
    void SetAttaccaState(const std::string& songNumber, unsigned char attacca);
    /// What the active change log says; an unknown song throws std::out_of_range. Neither takes the seek lock.
    [[nodiscard]] bool SongIsAttacca(const std::string& songNumber);
    /// False for a song that is passed over in the show's order (attacca byte 2); else as SongIsAttacca.
    [[nodiscard]] bool SongIsNotSkip(const std::string& songNumber);

    /// To the marker before, or at, the position that the display shows; to the one before that shortly after one.
    /// These two seek; the caller does not hold the seek lock. Like the four queries below they also throw what the
    /// active change log throws for an unknown song.
    void SeekLeft();
    /// To the next marker; without one nothing happens.
    void SeekRight();
    /// Where SeekLeft would go.
    [[nodiscard]] unsigned int GetSeekLeft();
    /// Throws tavo_ext::NoNextMarker when there is none.
    [[nodiscard]] unsigned int GetSeekRight();
    /// Throws HowToPlay::SongBegin on the song's first bar line.
    [[nodiscard]] unsigned int GetPreviousMeasureTickIndex();
    /// Throws HowToPlay::SongEnd in the song's last bar.
    [[nodiscard]] unsigned int GetNextMeasureTickIndex();

    /// All that decides what flow control answers next, for the song that is loaded: an equal one put back into another
    /// object over the same song and edits makes it answer as this one does. Waits for a seek that is under way. Throws
    /// std::logic_error when no song is loaded.
    [[nodiscard]] FlowState Snapshot();
    /// Puts flow control, the operator's tempo scale and transposition and the display feed where `state` was taken,
    /// and posts the vamp lamp and the status that the display showed then. The song must be loaded, with every edit
    /// that the state is in; otherwise, and for values that no flow control can have, it throws std::invalid_argument
    /// in one sentence and changes nothing. Throws std::logic_error when no song is loaded. An engine that plays is not
    /// moved: its owner puts it at the state's tick.
    void Restore(const FlowState& state);

    /// Guards flow control. Recursive.
    [[nodiscard]] std::recursive_mutex& GetSeekLock() { return seekMutex_; }
    /// The playhead of flow control; after a jump the place where the engine is to go on.
    [[nodiscard]] unsigned int GetTickIndex();
    /// The engine sets it at every arrival; that alone decides nothing and posts nothing.
    void SetTickIndex(unsigned int tickIndex);
    /// Where the last seek was sent, also into a cut, at the song's start at the earliest; 0 after
    /// ResetControlVariables.
    [[nodiscard]] unsigned int GetLastSeekTickIndex();
    /// The song was attacca when it was loaded, or has been made so since.
    [[nodiscard]] bool GetAttacca();
    /// A fermata holds.
    [[nodiscard]] bool GetFermata();
    /// The release of a fermata has dropped a pending caesura since this was last cleared.
    [[nodiscard]] bool GetFermataCanceledCaesura();
    /// For the engine, once it has passed over the caesura or followed a jump.
    void ClearFermataCanceledCaesura();
    /// A jump was made since this was last cleared: the engine clears it when it follows.
    [[nodiscard]] bool GetJump();
    /// Whoever follows the jump reads GetTickIndex and clears the mark in one turn of the seek lock.
    void ClearJump();
    /// The last jump was made for a loop, and not by a seek.
    [[nodiscard]] bool GetJumpForVampRepeatOrCut();
    // Read without the lock: the engine asks between blocks and a value one jump old is as good as the new one.

    /// The playhead before the last jump; 0 after ResetControlVariables. Takes no lock, like the next two.
    [[nodiscard]] unsigned int GetPreJumpTickIndex() const { return preJumpTickIndex_; }
    /// Where the last jump went; 0 after ResetControlVariables.
    [[nodiscard]] unsigned int GetLastJumpTargetTickIndex() const { return lastJumpTargetTickIndex_; }
    /// The caesura that playback reached last; 0 after ResetControlVariables.
    [[nodiscard]] unsigned int GetCaesuraTickIndex() const { return caesuraTickIndex_; }

    /// Replaces the callback without a lock: only while nothing plays.
    void SetOscCallback(std::shared_ptr<tavo::PlayerOscCallback> callback);

protected:
    /// A repeat has been played as often as it says. Posts; the caller does not hold the seek lock.
    void DoRepeatOff();
    /// No fermata holds any more; playback stays where it is. Posts; the caller does not hold the seek lock.
    void DoExpireFermata();
    /// Moves the playhead forward without marking a jump. The caller holds the seek lock.
    void DoSkipAhead(unsigned int tickIndex);
    /// Whether a cut begins exactly at `tickIndex`; then `*cutEnd` is its end.
    bool HasCutAtTickIndex(unsigned int tickIndex, unsigned int* cutEnd);
    /// Registers every loop and caesura that covers `tickIndex`. (true, the cut's end) when a cut covers it, at once;
    /// otherwise (false, 0). With `skipCaesura` a caesura at the tick itself is left alone. Costs a logarithmic search
    /// for each covering event. The caller holds the seek lock.
    std::pair<bool, unsigned int> FindNextControlEventOnSeek(unsigned int tickIndex, bool skipCaesura);
    /// Moves the playhead out of any cut at `tickIndex` and goes on there; returns where that is. Posts; the caller
    /// does not hold the seek lock.
    unsigned int RecoverySeek(unsigned int tickIndex);

    /// The same as Snapshot and waits for no seek. The caller holds the seek lock.
    [[nodiscard]] FlowState CopyState_();
    /// After a reload: puts back what `state`, taken before it, was in and the new log still has. Loops keep their pass
    /// and take the log's limit, caesuras take the log's countdown, attacca is the log's; a fermata goes on holding
    /// even where the log has lost it. What is new and covers the playhead is registered. Display and operator's
    /// controls stay as they are. The caller has held the seek lock since before the reload.
    void KeepWhatFits_(FlowState state);

    /// After a stop whose seek led out of the caesura into a cut: playback does not stand at the caesura any more.
    /// Those on the way stay.
    void LeaveCaesura_();

    /// The sound effects from the first in [from, to] to the song's last. Writes a trace to standard output. The
    /// pointers are good until the song is loaded again.
    std::vector<const CL::Sfx*> GetSfxInTickRange_(long long from, long long to);
    /// The same for ambient sounds, without the trace.
    std::vector<const CL::SfxAmbient*> GetAmbientSfxInTickRange_(long long from, long long to);

    // For concrete flow controls, which hold the seek lock while they use what these return.

    /// What the last advance search found; seeks and resets leave it.
    [[nodiscard]] const FindNextControlEventResult& GetResult_() const { return result_; }
    /// The loops that playback is inside of. Who changes them posts the status (CheckForRemainingVampRepeatOrFermata).
    [[nodiscard]] LoopEventList& GetLoopEvents_() { return loopEvents_; }
    /// Copies of the song's OSC messages in order of tick; made anew by every load.
    [[nodiscard]] const std::vector<CL::Osc>& GetOscEvents_() const { return oscEvents_; }
    /// Null until SetOscCallback gives one. Changes only while nothing plays, so this one needs no lock.
    [[nodiscard]] const std::shared_ptr<tavo::PlayerOscCallback>& GetOscCallback_() const { return oscCallback_; }
    /// The song that is loaded, the show data's own; null when none is.
    [[nodiscard]] const tavo_midi::SongData* GetSongData_() const { return songData_; }
    /// Ticks and seconds of the song that is loaded, at its written tempos.
    [[nodiscard]] TimeCodeConverter& GetTimeCodeConverter_() { return timeCodeConverter_; }

private:
    using SeekLock = kit::UniqueLock<std::recursive_mutex>;

    // show_control_advance.cpp
    void DoFindNextControlEventOnAdvance_(unsigned int fromTick, unsigned int toTick);
    bool CollectCutOrCaesuras_(unsigned int tickIndex, const std::vector<const cmn::TavoEvent*>& events,
                               const SeekLock& lock);
    bool RegisterLoopsAt_(unsigned int tickIndex, const std::vector<const cmn::TavoEvent*>& events);
    void LimitAdvance_(unsigned int toTick, std::optional<unsigned int> nextKey);
    bool AdvanceToCaesura(unsigned int toTick, long long limit);
    bool DetectCaesuraAtTickIndex_(unsigned int tickIndex);
    bool InsertLoopEvent_(const cmn::TavoEvent& event, unsigned int tickIndex);
    void PushCaesuraIfNew_(const CountdownCaesura& caesura);
    bool IsSpent_(const cmn::TavoEvent& event);
    bool ProcessFirstLoopEvent_();
    void JumpBack_(LoopEvent& loop, const SeekLock& lock);
    void ExpireOutOfRangeCaesuras(unsigned int tickIndex);
    unsigned int FindFirstNonCut_(unsigned int tickIndex);

    // show_control_status.cpp
    void DoFlowControlExit_();
    std::optional<unsigned int> DecideFlowControlExit_();
    void FinishFlowControlExit_(std::optional<unsigned int> seekTarget);
    void PostVampLamp_(bool isOn);
    bool SendCounts();
    bool SendCaesuraCount();
    void SetCaesuraPost_(bool post);

    // show_control_seek.cpp
    void StandAtOrLeaveCaesura_(unsigned int tickIndex);
    template <class FindMarker>
    unsigned int FindMarkerFromPosition_(FindMarker&& find);

    // show_control_state.cpp
    void CopyCaesuras_(FlowState& state) const;
    void RequireFits_(const FlowState& state) const;
    void DropWhatIsGone_(FlowState& state) const;
    void PutBack_(const FlowState& state);
    void PutBackCaesuras_(const FlowState& state);
    void PostLampAndStatus_(const FlowState& state);
    [[nodiscard]] const cmn::TavoEvent* FindEdit_(unsigned char type, unsigned int start, unsigned int end) const;
    [[nodiscard]] std::vector<const cmn::TavoEvent*> FindSpent_(const std::vector<FlowState::Spent>& spent) const;

    // show_control_load.cpp
    void SetDataOnGuiAndHowToPlay_(const std::string& songNumber, const CL::SongLog& songLog);
    void BuildPairedEventMap_(const CL::SongLog& songLog);
    void BuildSfxEventStructures_(const CL::SongLog& songLog);
    void BuildAmbientEventStructures_(const CL::SongLog& songLog);
    void BuildOscEventStructures_(const CL::SongLog& songLog);

    // Constant after construction; the objects behind the references synchronise themselves or never change.
    ActiveSongNumber& activeSongNumber_;
    const tavo_midi::ShowData& showData_;

    std::recursive_mutex seekMutex_;
    std::recursive_mutex seekSerialMutex_;  // held for the whole of a seek, so that seeks never interleave

    // Guarded by seekMutex_.
    unsigned int tickIndex_ = 0;
    LoopEventList loopEvents_;
    CaesuraCounter caesuraCounter_;
    PairedEventMap pairedEventMap_;  // points into songLogOwner_'s log and into caesuraCounter_
    std::deque<CountdownCaesura> caesuraStack_;
    bool atCaesura_ = false;
    bool caesuraPost_ = false;
    bool caesuraDisplayPending_ = false;
    unsigned int caesuraDisplayTickIndex_ = 0;
    bool attacca_ = false;
    bool fermata_ = false;
    std::shared_ptr<const CL::Fermata> fermataEvent_;  // keeps the log alive that it is in
    bool fermataCanceledCaesura_ = false;
    bool jump_ = false;
    bool jumpForVampRepeatOrCut_ = false;
    unsigned int lastSeekTickIndex_ = 0;
    FindNextControlEventResult result_;
    // Edits without length that had their one turn since the operator's last seek, a reset or a reload.
    std::vector<const cmn::TavoEvent*> spentEvents_;
    bool seekIsOwn_ = false;  // the next seek is made by flow control itself
    // The end of a cut that such a seek was sent to: whoever moves the playhead there goes on with that seek.
    std::optional<unsigned int> ownCutEnd_;
    bool vampLampIsOn_ = false;     // as the display was last sent
    std::uint64_t buildCount_ = 0;  // tells that the structures were rebuilt while the lock was released
    std::shared_ptr<const CL::ChangeLog> songLogOwner_;
    const tavo_midi::SongData* songData_ = nullptr;
    unsigned int startTickIndex_ = 0;
    unsigned int endTickIndex_ = 0;
    std::vector<const CL::Sfx*> sfxEvents_;
    std::vector<const CL::SfxAmbient*> ambientSfxEvents_;
    std::vector<CL::Osc> oscEvents_;
    TimeCodeConverter timeCodeConverter_;

    // Written under seekMutex_, read without it.
    std::atomic<unsigned int> caesuraTickIndex_{0};
    std::atomic<unsigned int> preJumpTickIndex_{0};
    std::atomic<unsigned int> lastJumpTargetTickIndex_{0};

    std::shared_ptr<tavo::PlayerOscCallback> oscCallback_;  // set while nothing plays
};
