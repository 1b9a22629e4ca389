#include "stage/engine/stage_player.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "kit/words.h"
#include "player_core/gui_update.h"
#include "player_core/tavo_ext.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/bar_positions.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/gui_dispatcher.h"

namespace stage {

namespace {

constexpr double FadeInSeconds = 0.02;

}  // namespace

StagePlayer::StagePlayer(const std::string& showDirectory, const tavo_midi::ShowData& showData, Synth& synth,
                         std::uint32_t framesPerSecond, std::uint32_t advanceFrames, Sounds sounds)
    : Player(showDirectory),
      showData_(showData),
      framesPerSecond_(framesPerSecond),
      sounds_(sounds),
      showControl_(GetActiveSongNumberRef(), showData, GetUserControls()),
      engine_(showControl_, synth, *this, GetUserControls(), framesPerSecond, advanceFrames),
      plans_(showData, sounds.library, [this] { return engine_.TakeOldPlans(); }) {
    engine_.Subscribe(*this);
    for (std::atomic<double>& volume : volumes_)
        volume = 1.0;
}

StagePlayer::~StagePlayer() {
    // Before the members go: a callback may still be on its way.
    notify::callbackDispatcher.RemoveCallbacksForTarget(static_cast<Player*>(this));
}

bool StagePlayer::ReportPosition(unsigned int* tickIndex) {
    if (!hasSong_) return false;
    {
        const std::lock_guard lock(heardMutex_);
        if (heardPosition_) {
            *tickIndex = heardPosition_();
            return true;
        }
    }
    *tickIndex = showControl_.GetWaitingJump().value_or(engine_.GetPosition());
    return true;
}

void StagePlayer::SetHeardPosition(std::function<unsigned int()> heardPosition) {
    const std::lock_guard lock(heardMutex_);
    heardPosition_ = std::move(heardPosition);
}

double StagePlayer::GetElapsedTime() {
    return static_cast<double>(engine_.GetPlayedFrames()) / framesPerSecond_;
}

bool StagePlayer::IsOutputRunning() {
    return engine_.IsRolling();
}

// Songs.

void StagePlayer::PutIn_(const std::string& songNumber, std::shared_ptr<const SongPlan> plan) {
    SetActiveSongNumber(songNumber);
    showControl_.LoadSong();
    LookAfterSounds_(plan);
    engine_.SetSong(std::move(plan));
    hasSong_ = true;
    ResetPlayerNoFillBuffers();
    PrepareNextSong();
}

// Before the song sounds.
void StagePlayer::LookAfterSounds_(const std::shared_ptr<const SongPlan>& plan) {
    if (sounds_.library == nullptr) return;
    if (sounds_.isWaitedFor)
        for (const Cue& cue : plan->GetCues())
            if (cue.sound.sound != nullptr) sounds_.library->Wait(*cue.sound.sound);
    const std::lock_guard lock(soundMutex_);
    soundPlan_ = plan;
    areReported_.assign(plan->GetCues().size(), false);
}

std::vector<std::string> StagePlayer::TakeSoundProblems() {
    std::vector<std::string> problems;
    const std::lock_guard lock(soundMutex_);
    if (soundPlan_ == nullptr) return problems;
    const tavo_midi::SongData& song = soundPlan_->GetSong();
    const auto add = [&](const Cue& cue, const std::string& problem) {
        problems.push_back(fmt::format("song {}: the sound {} at {} {}", song.GetSongNumber(),
                                       kit::Quote(cue.sound.sound->GetName()),
                                       TL::BarPositions(song.GetTimeline()).DescribeTick(cue.tick), problem));
    };
    for (std::size_t i = 0; i < areReported_.size(); ++i) {
        const Cue& cue = soundPlan_->GetCues()[i];
        const Sound* const sound = cue.sound.sound.get();
        if (sound == nullptr) continue;
        if (sound->TakeLate()) add(cue, "was reached before it was in memory and begins late");
        if (areReported_[i] || !sound->IsRead()) continue;
        areReported_[i] = true;
        if (!sound->GetProblem().empty()) add(cue, sound->GetProblem());
    }
    return problems;
}

void StagePlayer::PrepareNextSong() {
    if (hasSong_) plans_.PrepareNeighbours(GetActiveSongNumberRef().Get());
}

void StagePlayer::SetAttaccaState(const std::string& songNumber, unsigned char attacca) {
    Player::SetAttaccaState(songNumber, attacca);
    PrepareNextSong();
}

void StagePlayer::LoadSong(const std::string& songNumber) {
    std::shared_ptr<const SongPlan> plan = plans_.TakeIfReady(songNumber);
    if (plan == nullptr) plan = plans_.Make(songNumber);
    const std::lock_guard lock(operation_);
    if (StopIfPlaying()) {
        GetGuiUpdate().Pause();
        notify::guiDispatcher.SendPlaybackStopped();
    }
    PutIn_(songNumber, std::move(plan));
}

std::optional<std::string> StagePlayer::FindNextSong_() {
    try {
        const std::string current = GetActiveSongNumberRef().Get();
        const ActiveChangeLogShared changeLog;
        return tavo_ext::get_song_after(*changeLog, current);
    } catch (const tavo_ext::EndOfShow&) {
        return std::nullopt;
    }
}

bool StagePlayer::NextSong() {
    const std::optional<std::string> next = FindNextSong_();
    if (!next) return true;
    LoadSong(*next);
    return false;
}

void StagePlayer::PrevSong() {
    std::string previous = GetActiveSongNumberRef().Get();
    try {
        const ActiveChangeLogShared changeLog;
        previous = tavo_ext::get_song_before(*changeLog, previous);
    } catch (const tavo_ext::StartOfShow&) {
        // The first song is its own predecessor.
    }
    LoadSong(previous);
}

// Transport.

void StagePlayer::Play() {
    const std::lock_guard lock(operation_);
    if (engine_.IsRolling() || !hasSong_) return;
    // Going on from a caesura uses up what may have cancelled it.
    ResetForRecoveryAdvance();
    ExpectFade_(nullptr);
    engine_.MoveFade(1.0F, 0.0, 0);
    SetPlayerState(PlayerState::Playing);
    engine_.Start();
    notify::guiDispatcher.SendPlaybackStarted();
    GetGuiUpdate().Unpause();
}

// Ends playback without a word to the display; the caller knows what to report. A fade stays where it is, so that what
// rings out after it does so at its level.
void StagePlayer::StandStill_() {
    engine_.Stop();
    ExpectFade_(nullptr);
}

void StagePlayer::Pause(bool flag) {
    const std::lock_guard lock(operation_);
    if (!engine_.IsRolling() && !engine_.IsCountingIn()) return;
    StandStill_();
    engine_.PauseSounds();
    if (flag) engine_.Silence();
    SetPlayerState(PlayerState::Paused);
    notify::guiDispatcher.SendPlaybackStopped();
}

void StagePlayer::FlowControlExit() {
    engine_.IsCountingIn() ? Play() : Player::FlowControlExit();
}

bool StagePlayer::StopIfPlaying() {
    const std::lock_guard lock(operation_);
    const bool wasPlaying = engine_.IsRolling() || engine_.IsCountingIn();
    StandStill_();
    if (wasPlaying) engine_.EndSounds();
    SetPlayerState(PlayerState::Stopped);
    return wasPlaying;
}

void StagePlayer::Stop() {
    const std::lock_guard lock(operation_);
    StopIfPlaying();
    engine_.EndSounds();
    if (hasSong_) ResetPlayerNoFillBuffers();
}

void StagePlayer::HaltOutput() {
    const std::lock_guard lock(operation_);
    StopIfPlaying();
    engine_.Silence();
}

void StagePlayer::PrepareForExit() {
    isPreparedForExit_ = true;
    HaltOutput();
}

void StagePlayer::Shutdown() {
    HaltOutput();
}

void StagePlayer::Seek(unsigned int tickIndex) {
    showControl_.Seek(tickIndex);
}

void StagePlayer::SeekLeft() {
    showControl_.SeekLeft();
}

void StagePlayer::SeekRight() {
    showControl_.SeekRight();
}

void StagePlayer::JumpToInternalCut(unsigned int tickIndex) {
    // A cut may end in another one: the seek then calls back to here, and the outermost call goes on with that end.
    thread_local std::optional<unsigned int>* outermost = nullptr;
    if (outermost != nullptr) {
        *outermost = tickIndex;
        return;
    }
    struct Outermost {
        explicit Outermost(std::optional<unsigned int>& target) { outermost = &target; }
        ~Outermost() { outermost = nullptr; }
    };
    std::optional<unsigned int> target = tickIndex;
    const Outermost scope(target);
    while (target)
        showControl_.Seek(*std::exchange(target, std::nullopt));
}

void StagePlayer::OnNewChangeLog() {
    if (!hasSong_) return;
    std::shared_ptr<const SongPlan> plan = plans_.Make(GetActiveSongNumberRef().Get());
    LookAfterSounds_(plan);
    engine_.ReplacePlan(std::move(plan));
    PrepareNextSong();
}

void StagePlayer::ResetPlayerNoFillBuffers() {
    if (TakeNewChangeLogLoaded()) OnNewChangeLog();
    Player::ResetPlayerNoFillBuffers();
}

// What the engine asks and reports.

bool StagePlayer::TakeCaesuraCancellation() {
    const bool isCanceled = GetUserCanceledCaesura() || GetFermataCanceledCaesura();
    if (!isCanceled) return false;
    ResetForRecoveryAdvance();
    showControl_.ClearFermataCanceledCaesura();
    return true;
}

bool StagePlayer::TryToStopAtCaesura() {
    const std::unique_lock lock(operation_, std::try_to_lock);
    if (!lock) return false;
    // Whoever held the lock before may have moved playback on.
    if (!engine_.StopAtCaesura()) return true;
    SetPlayerState(PlayerState::Paused);
    GUINotifyCaesura();
    showControl_.OnCaesuraStop();
    GetGuiUpdate().Pause();
    notify::guiDispatcher.SendPlaybackStopped();
    return true;
}

bool StagePlayer::TryToFollowOn() {
    {
        const std::unique_lock lock(operation_, std::try_to_lock);
        if (!lock) return false;
        if (!engine_.IsAtSongEnd() || FollowAttacca_()) return true;
        StandStill_();
        SetPlayerState(PlayerState::Stopped);
    }
    // Whoever hears of it may load a song, on this or another thread.
    notify::callbackDispatcher.Notify(notify::names::stopped_at_end_of_song, nullptr);
    return true;
}

bool StagePlayer::FollowAttacca_() {
    if (!CurrentSongIsAttacca()) return false;
    // Nothing follows the last song, however it is marked.
    const std::optional<std::string> next = FindNextSong_();
    if (!next) return false;
    std::shared_ptr<const SongPlan> plan = plans_.TakeIfReady(*next);
    if (plan == nullptr) {
        ++latePlans_;
        plan = plans_.Make(*next);
    }
    PutIn_(*next, std::move(plan));
    return true;
}

// Volume.

bool StagePlayer::SetVolume(double volume, tavo_audio::VolumeType type) {
    const auto index = static_cast<std::size_t>(type);
    if (index >= VolumeTypeCount || !std::isfinite(volume)) return false;
    volume = std::clamp(volume, 0.0, 1.0);
    volumes_[index] = volume;
    if (type == tavo_audio::Synth) engine_.SetSynthVolume(static_cast<float>(volume));
    if (type == tavo_audio::Click) engine_.SetClickVolume(static_cast<float>(volume));
    if (type == tavo_audio::Effects) engine_.SetEffectsVolume(static_cast<float>(volume));
    if (type == tavo_audio::Ambience) engine_.SetAmbienceVolume(static_cast<float>(volume));
    if (type == tavo_audio::Master) engine_.SetMasterVolume(static_cast<float>(volume));
    return true;
}

double StagePlayer::GetVolume(tavo_audio::VolumeType type) {
    const auto index = static_cast<std::size_t>(type);
    return index < VolumeTypeCount ? volumes_[index].load() : 1.0;
}

void StagePlayer::SetGroups(const GroupPlan& plan) {
    engine_.SetGroups(plan);
    groups_ = std::make_unique<OutputGroups>(
        plan, [this](std::size_t strip, float level) { engine_.SetGroupLevel(strip, level); });
}

std::uint32_t StagePlayer::ExpectFade_(std::function<void()> onDone) {
    const std::lock_guard lock(fadeMutex_);
    onFadeDone_ = std::move(onDone);
    // 0 means a fade that nobody waits for.
    fade_ = std::max(fade_ + 1, std::uint32_t{1});
    return fade_;
}

void StagePlayer::Fade(std::function<void()> onDone, float seconds) {
    {
        const std::lock_guard lock(operation_);
        if (engine_.IsRolling()) {
            const std::uint32_t fade = ExpectFade_(std::move(onDone));
            SetPlayerState(PlayerState::Faded);
            engine_.MoveFade(0.0F, seconds > 0.0F ? static_cast<double>(seconds) : 0.0, fade);
            return;
        }
    }
    if (onDone) onDone();
}

void StagePlayer::CancelFade() {
    const std::lock_guard lock(operation_);
    ExpectFade_(nullptr);
    engine_.MoveFade(1.0F, FadeInSeconds, 0);
    if (GetPlayerState() == PlayerState::Faded) SetPlayerState(PlayerState::Playing);
}

void StagePlayer::OnEngineEvent(const EngineEvent& event) {
    if (event.kind != EngineEvent::Kind::FadeDone) return;
    std::function<void()> onDone;
    {
        const std::lock_guard lock(fadeMutex_);
        if (event.fade == fade_) onDone = std::exchange(onFadeDone_, nullptr);
    }
    if (onDone) onDone();
}

}  // namespace stage
