#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "player_core/player.h"
#include "stage/engine/engine.h"
#include "stage/engine/output_groups.h"
#include "stage/engine/song_plan_keeper.h"
#include "stage/engine/stage_show_control.h"
#include "stage/engine/synth.h"

namespace stage {

/// The player of the stage: the transport of player_core over an Engine. Whoever owns it renders through GetEngine() on
/// one thread; the operations here are thread-safe, wait for each other and not for what is being rendered. A display
/// feed must be installed while it is used, and a change log that holds every song of the show must be active.
///
/// Stop goes back to the song's beginning, Pause stays. Pause(true) cuts off what sounds, Pause(false) lets it fade
/// away. Nobody conducts: ConductBeat and SetConductorMode do nothing.
class StagePlayer : public Player, private EngineHost, private EngineSubscriber {
public:
    struct Sounds {
        /// Outlives the player; null plays no effects and ambiences.
        SoundLibrary* library = nullptr;
        /// A song that is put in waits for its sounds, for a caller with time of its own. Otherwise what is not ready
        /// begins late.
        bool isWaitedFor = false;
    };

    /// `showData` and `synth` outlive the object. No song is loaded.
    StagePlayer(const std::string& showDirectory, const tavo_midi::ShowData& showData, Synth& synth,
                std::uint32_t framesPerSecond, std::uint32_t advanceFrames = Engine::DefaultAdvanceFrames,
                Sounds sounds = {nullptr, false});
    ~StagePlayer() override;

    [[nodiscard]] Engine& GetEngine() { return engine_; }
    [[nodiscard]] StageShowControl& GetStageShowControl() { return showControl_; }

    /// The output groups, which the synthesizer was made for; `plan` outlives the object. Before anything is rendered.
    void SetGroups(const GroupPlan& plan);
    /// Null before SetGroups.
    [[nodiscard]] OutputGroups* GetGroups() { return groups_.get(); }

    /// What follows the song that is in may have changed: its plan is looked after, on another thread.
    void PrepareNextSong();
    /// The song is about to be loaded: what takes long about it is done here and now. Throws as LoadSong does.
    void PrepareSong(const std::string& songNumber) { plans_.Prepare(songNumber); }
    /// Waits until what follows is prepared. For tests.
    void WaitForPreparation() { plans_.Wait(); }
    /// What is wrong with the sounds of the song that is in, a sentence without a full stop each, once for each time
    /// that the song was put in or edited; those that are still being read come later. Any thread; waits for nobody
    /// long.
    [[nodiscard]] std::vector<std::string> TakeSoundProblems();
    /// How often an attacca had to make its plan while it was played over.
    [[nodiscard]] unsigned int GetLatePlanCount() const { return latePlans_; }

    /// The playhead for the display feed: where playback is, or where it will be once it has followed a seek. False
    /// before a song is loaded.
    bool ReportPosition(unsigned int* tickIndex);
    /// What ReportPosition answers instead once a song is loaded: the position that is heard, where a device plays
    /// later what is rendered now. Any thread; when it returns, the function before is not called any more. Called on
    /// the feed's threads under a lock of its own, so it does not wait for anybody; an empty one takes it away.
    void SetHeardPosition(std::function<unsigned int()> heardPosition);

    // Player.
    double GetElapsedTime() override;
    ShowControl& GetShowControl() override { return showControl_; }
    bool IsOutputRunning() override;
    bool StopIfPlaying() override;
    /// Throws std::out_of_range for a number that the show data or the change log does not have; nothing changes then.
    void LoadSong(const std::string& songNumber) override;
    bool NextSong() override;
    void Pause(bool flag) override;
    /// While beats are counted in it begins at once.
    void FlowControlExit() override;
    /// Ends at silence and calls `onDone` on the rendering thread; at once where nothing plays. A seconds value that is
    /// not positive is 0.
    void Fade(std::function<void()> onDone, float seconds) override;
    /// At the show's first song it goes to that song's beginning.
    void PrevSong() override;
    using Player::GetVolume;
    using Player::SetVolume;
    /// 0 to 1; what lies outside becomes the nearest end. False for an unknown type or what is not a number.
    bool SetVolume(double volume, tavo_audio::VolumeType type) override;
    double GetVolume(tavo_audio::VolumeType type) override;
    void Seek(unsigned int tickIndex) override;
    void SetAttaccaState(const std::string& songNumber, unsigned char attacca) override;
    void SeekLeft() override;
    void SeekRight() override;
    void PrepareForExit() override;
    [[nodiscard]] bool IsPreparedForExit() const { return isPreparedForExit_; }
    void Shutdown() override;
    void HaltOutput() override;
    void Stop() override;
    void ConductBeat() override {}
    void SetConductorMode(bool) override {}
    void CancelFade() override;
    void JumpToInternalCut(unsigned int tickIndex) override;
    void OnNewChangeLog() override;
    void Play() override;

protected:
    void ResetPlayerNoFillBuffers() override;

private:
    // EngineHost.
    bool TakeCaesuraCancellation() override;
    bool TryToStopAtCaesura() override;
    bool TryToFollowOn() override;
    // EngineSubscriber.
    void OnEngineEvent(const EngineEvent& event) override;

    void PutIn_(const std::string& songNumber, std::shared_ptr<const SongPlan> plan);
    /// The song after the one that is in; nothing where that is the last.
    [[nodiscard]] std::optional<std::string> FindNextSong_();
    void LookAfterSounds_(const std::shared_ptr<const SongPlan>& plan);
    [[nodiscard]] bool FollowAttacca_();
    void StandStill_();
    /// Has `onDone` called when the fade with the number that it returns has arrived; none before it is.
    std::uint32_t ExpectFade_(std::function<void()> onDone);

    static constexpr std::size_t VolumeTypeCount = 5;

    // Constant after construction.
    const tavo_midi::ShowData& showData_;
    const std::uint32_t framesPerSecond_;
    const Sounds sounds_;
    std::mutex soundMutex_;  // held for some assignments only
    // Guarded by soundMutex_.
    std::shared_ptr<const SongPlan> soundPlan_;  // whose sounds are to be reported
    std::vector<bool> areReported_;              // by cue
    std::mutex heardMutex_;
    std::function<unsigned int()> heardPosition_;  // guarded by heardMutex_
    // One operation at a time. The rendering thread never waits for it: where it is taken, the engine asks again later.
    // It comes before the engine's lock and all locks of player_core. Recursive, for a song that begins in a cut calls
    // whoever moves the playhead out of it.
    std::recursive_mutex operation_;
    // Synchronise themselves.
    StageShowControl showControl_;
    std::array<std::atomic<double>, VolumeTypeCount> volumes_;
    std::atomic<bool> hasSong_{false};
    std::atomic<bool> isPreparedForExit_{false};
    std::atomic<unsigned int> latePlans_{0};
    Engine engine_;
    std::unique_ptr<OutputGroups> groups_;
    std::mutex fadeMutex_;  // held for some assignments only
    // Guarded by fadeMutex_.
    std::function<void()> onFadeDone_;
    std::uint32_t fade_ = 0;
    // Synchronises itself; last, as its thread asks the engine.
    SongPlanKeeper plans_;
};

}  // namespace stage
