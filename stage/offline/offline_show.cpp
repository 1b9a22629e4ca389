// Playing without a stage: the clock, the display feed's passes and the end.

#include "stage/offline/offline_show.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "kit/numeric_string_compare.h"
#include "tavo_core/callback_dispatcher.h"

namespace stage {

namespace {

constexpr std::uint32_t LongestPieceFrames = 4096;
// Nobody presses anything between two moments that are known beforehand, so there is no need to plan for less.
constexpr std::uint32_t AdvanceFrames = 512;
constexpr double PauseBetweenSongsSeconds = 1.0;
constexpr double LongestTailSeconds = 2.0;
constexpr double LongestReverbSeconds = 30.0;
constexpr float TailSilence = 3e-5F;  // -90 dB

float FindPeak(const float* samples, std::size_t count) {
    // Side by side, so that the comparisons do not wait for each other.
    float peaks[4] = {};
    for (std::size_t i = 0; i + 4 <= count; i += 4)
        for (std::size_t lane = 0; lane < 4; ++lane)
            peaks[lane] = std::max(peaks[lane], std::fabs(samples[i + lane]));
    for (std::size_t i = count - count % 4; i < count; ++i)
        peaks[0] = std::max(peaks[0], std::fabs(samples[i]));
    return std::max({peaks[0], peaks[1], peaks[2], peaks[3]});
}

}  // namespace

ShowSession::Options MakeOfflineSessionOptions(std::uint32_t framesPerSecond) {
    ShowSession::Options options;
    options.framesPerSecond = framesPerSecond;
    options.advanceFrames = AdvanceFrames;
    options.hasRunningFeed = false;
    options.sendsTimeCode = false;
    options.waitsForSounds = true;
    options.editing = ShowSession::Options::Editing::Refused;
    return options;
}

ShowSession::Options MakeTakeSessionOptions(const TakeSettings& take) {
    ShowSession::Options options = MakeOfflineSessionOptions(take.framesPerSecond);
    options.advanceFrames = take.advanceFrames;
    options.editing = ShowSession::Options::Editing::InMemory;
    options.changeLog = take.changeLog;
    return options;
}

OfflineShow::OfflineShow(ShowSession& session, OfflineOptions options, SoundSink soundSink, Trace::Sink traceSink)
    : session_(session),
      showData_(session.GetShow()),
      options_(std::move(options)),
      mixesClick_(options_.mixesClick || session.GetSettings().clickInMain),
      soundSink_(std::move(soundSink)),
      player_(session.GetStagePlayer()),
      engine_(player_.GetEngine()),
      flow_(player_.GetStageShowControl()),
      feed_(session.GetSteppedFeed()),
      framesPerSecond_(session.GetOptions().framesPerSecond),
      passFrames_(std::int64_t{feed_.GetInterval()} * framesPerSecond_ / 1000),
      left_(LongestPieceFrames),
      right_(LongestPieceFrames),
      clickLeft_(HearsClick_() || options_.groupSink ? LongestPieceFrames : 0),
      clickRight_(clickLeft_.size()),
      ownOutputs_(2 * CountOwnOutputs_() * LongestPieceFrames),
      limiter_(framesPerSecond_) {
    engine_.SetClickEverywhere(options_.clicksEverywhere);
    engine_.SetClickInMain(mixesClick_);
    if (traceSink) trace_ = std::make_unique<Trace>(std::move(traceSink), options_.tracesBeats);
    // After the player, which is notified first and puts in the next song.
    notify::callbackDispatcher.AddCallback(this, notify::names::stopped_at_end_of_song, [this](void*) { EndSong_(); });
    session_.SetQuitHandler([this] { Quit_(); });
    engine_.Subscribe(*this);
}

OfflineShow::~OfflineShow() {
    notify::callbackDispatcher.RemoveCallbacksForTarget(this);
    session_.SetQuitHandler({});
    engine_.Unsubscribe(*this);
    player_.HaltOutput();
    engine_.FinishRendering();
}

OfflineResult OfflineShow::Run() {
    // The session may have been played before.
    const std::int64_t beginFrame = engine_.GetFrame();
    lastPressFrame_ = beginFrame;
    if (!options_.take) {
        Press_(Verb::Load, {options_.firstSong});
        BeginSong_();
        if (options_.fromTick) Press_(Verb::Seek, {*options_.fromTick});
        KeepDisplayCurrent_();
        Press_(Verb::Play);
    } else {
        // What the take begins with.
        PlayOn_();
    }
    while (!IsFinished_()) {
        RenderUntil_(NextMoment_());
        PlayOn_();
    }
    NoteSoundProblems_();
    RenderTail_();
    if (trace_) trace_->Write(engine_.GetFrame(), engine_.GetPosition(), "end", "-");
    result_.frames = engine_.GetFrame() - beginFrame;
    return result_;
}

// Whoever put in another song, a press or an attacca: it is noticed at the next thing that happens.
void OfflineShow::NoticeSong_() {
    if (player_.GetActiveSongNumberRef().Get() != song_) BeginSong_();
}

void OfflineShow::BeginSong_() {
    const bool follows = !song_.empty() && engine_.IsRolling();
    const std::string before = song_;
    song_ = player_.GetActiveSongNumberRef().Get();
    isListed_ = false;
    NoteSoundProblems_();
    if (trace_) {
        tracedLoops_.clear();
        const tavo_midi::SongData& data = showData_.GetSongData(song_);
        const std::uint32_t tick = data.GetSongStartTickIndex();
        trace_->WriteNotifications(engine_.GetFrame(), tick);
        trace_->SetPositions(TL::BarPositions(data.GetTimeline()));
        if (follows) TraceLine_(tick, "attacca", fmt::format("{} -> {}", before, song_));
        TraceLine_(tick, "song", fmt::format("{} {}", song_, data.GetTitle()));
    }
    automaticPress_.reset();
    vampPasses_.clear();
    unattendedSince_ = engine_.GetFrame();
    PrepareNextLine_();
}

// The player has stopped at the song's end and, where there is one, put in the next song.
void OfflineShow::EndSong_() {
    endedSong_ = song_;
    nextStartFrame_ = engine_.GetFrame() + static_cast<std::int64_t>(PauseBetweenSongsSeconds * framesPerSecond_);
    if (trace_) TraceLine_(showData_.GetSongData(song_).GetTimeline().GetEndTickIndex(), "song-end", song_);
}

// Everything that happens between two blocks.
void OfflineShow::PlayOn_() {
    NoticeSong_();
    DoWhatIsDue_();
    if (feed_.IsRunning() && engine_.GetFrame() >= nextPassFrame_) {
        feed_.MakePass();
        nextPassFrame_ = (engine_.GetFrame() / passFrames_ + 1) * passFrames_;
    }
    KeepDisplayCurrent_();
    EndOvertime_();
    if (HasNextSongToStart_() && engine_.GetFrame() >= nextStartFrame_) {
        endedSong_.clear();
        lastPressFrame_ = engine_.GetFrame();
        Press_(Verb::Play);
    }
    if (trace_) trace_->WriteNotifications(engine_.GetFrame(), engine_.GetPosition());
}

// What was signalled to the feed and what was sent to the display in the last step.
void OfflineShow::KeepDisplayCurrent_() {
    if (feed_.UseCurrentPosition() || !engine_.IsRolling()) feed_.MakePass();
    if (trace_) trace_->WriteNotifications(engine_.GetFrame(), engine_.GetPosition());
}

std::int64_t OfflineShow::NextMoment_() {
    std::int64_t moment = engine_.GetFrame() + LongestPieceFrames;
    if (feed_.IsRunning()) moment = std::min(moment, std::max(nextPassFrame_, engine_.GetFrame() + 1));
    if (automaticPress_) moment = std::min(moment, automaticPress_->frame);
    if (HasNextSongToStart_()) moment = std::min(moment, nextStartFrame_);
    if (const ScriptLine* line = NextLine_(); line != nullptr && !line->tick) {
        moment = std::min(moment, LineFrame_(*line));
    }
    return moment;
}

void OfflineShow::RenderUntil_(std::int64_t frame) {
    while (engine_.GetFrame() < frame) {
        if (filledFrames_ == LongestPieceFrames) HandOverSound_();
        auto frames = static_cast<std::uint32_t>(
            std::min<std::int64_t>(frame - engine_.GetFrame(), LongestPieceFrames - filledFrames_));
        // Operations take effect at the beginning of a block.
        if (options_.take)
            frames = std::min(frames, options_.take->blockFrames -
                                          static_cast<std::uint32_t>(engine_.GetFrame() % options_.take->blockFrames));
        pairs_.assign(1, {left_.data() + filledFrames_, right_.data() + filledFrames_});
        if (!clickLeft_.empty())
            pairs_.push_back({clickLeft_.data() + filledFrames_, clickRight_.data() + filledFrames_});
        for (std::size_t output = 0; output < CountOwnOutputs_(); ++output) {
            float* const left = ownOutputs_.data() + 2 * output * LongestPieceFrames + filledFrames_;
            pairs_.push_back({left, left + LongestPieceFrames});
        }
        engine_.RenderLater(pairs_, frames);
        filledFrames_ += frames;
    }
}

std::size_t OfflineShow::CountOwnOutputs_() const {
    const GroupMixer* const groups = options_.groupSink ? engine_.GetGroups() : nullptr;
    return groups != nullptr ? groups->CountOwnOutputs() : 0;
}

float OfflineShow::HandOverSound_() {
    engine_.FinishRendering();
    const std::uint32_t frames = std::exchange(filledFrames_, 0);
    if (options_.clickSink && frames > 0) options_.clickSink(clickLeft_.data(), clickRight_.data(), frames);
    for (std::size_t output = 0; output < CountOwnOutputs_() && frames > 0; ++output) {
        const float* const left = ownOutputs_.data() + 2 * output * LongestPieceFrames;
        options_.groupSink(output, left, left + LongestPieceFrames, frames);
    }
    const float peak = std::max(FindPeak(left_.data(), frames), FindPeak(right_.data(), frames));
    result_.peak = std::max(result_.peak, peak);
    PutOutSound_(left_.data(), right_.data(), frames);
    return peak;
}

// Of the song that is in. An edit may bring more.
void OfflineShow::NoteSoundProblems_() {
    for (std::string& problem : player_.TakeSoundProblems()) {
        std::vector<std::string>& noted = result_.soundProblems;
        if (std::find(noted.begin(), noted.end(), problem) == noted.end()) noted.push_back(std::move(problem));
    }
}

void OfflineShow::PutOutSound_(float* left, float* right, std::uint32_t frames) {
    limiter_.Process(left, right, frames);
    const std::uint32_t leftOut = std::min(frames, delayFrames_);
    delayFrames_ -= leftOut;
    if (soundSink_ && frames > leftOut) soundSink_(left + leftOut, right + leftOut, frames - leftOut);
}

void OfflineShow::RenderTail_() {
    RenderRinging_();
    // What the limiter still holds.
    std::fill_n(left_.begin(), TruePeakLimiter::DelayFrames, 0.0F);
    std::fill_n(right_.begin(), TruePeakLimiter::DelayFrames, 0.0F);
    PutOutSound_(left_.data(), right_.data(), TruePeakLimiter::DelayFrames);
    result_.limitedFrames = limiter_.CountLimitedFrames();
}

// What rings on after the last song: instruments for a while, the reverb and effects to their ends.
void OfflineShow::RenderRinging_() {
    HandOverSound_();
    engine_.Stop();
    engine_.EndAmbiences();
    const auto end = engine_.GetFrame() + static_cast<std::int64_t>(LongestTailSeconds * framesPerSecond_);
    const auto reverbEnd = engine_.GetFrame() + static_cast<std::int64_t>(LongestReverbSeconds * framesPerSecond_);
    const auto isReverbRinging = [&] {
        const GroupMixer* const groups = engine_.GetGroups();
        return groups != nullptr && groups->IsReverbRinging() && engine_.GetFrame() < reverbEnd;
    };
    while (engine_.GetFrame() < end || engine_.CountEffects() > 0 || isReverbRinging()) {
        std::int64_t pieceEnd = engine_.GetFrame() + LongestPieceFrames;
        if (engine_.GetFrame() < end) pieceEnd = std::min(pieceEnd, end);
        RenderUntil_(pieceEnd);
        if (HandOverSound_() < TailSilence && engine_.CountEffects() == 0) return;
    }
}

bool OfflineShow::HasNextSongToStart_() {
    return !options_.take && !endedSong_.empty() && endedSong_ != song_ && player_.IsStopped() &&
           kit::NumericStringCompare()(endedSong_, options_.lastSong);
}

bool OfflineShow::IsFinished_() {
    if (isQuitting_) return true;
    const ScriptLine* line = NextLine_();
    const bool waitsForTime = automaticPress_ || (line != nullptr && !line->tick);
    const bool isHeld = engine_.IsHolding() && !flow_.GetWaitingJump();
    const bool stands = (!engine_.IsRolling() && !engine_.IsCountingIn()) || isHeld;
    if (!stands || waitsForTime || HasNextSongToStart_()) return false;
    const bool isPlayedToTheEnd = !endedSong_.empty() && player_.IsStopped();
    if (line != nullptr) {
        Remark_(fmt::format("line {} of the script (\"{}\") is never reached: playback is stopped {}.",
                            line->lineNumber, line->text, DescribeStanding_()));
    } else if (!isPlayedToTheEnd) {
        Remark_(fmt::format("The script has run out and playback is stopped {}: the render ends there.",
                            DescribeStanding_()));
    }
    return true;
}

std::string OfflineShow::DescribeStanding_() {
    if (song_.empty()) return "before a song is loaded";
    const TL::BarPositions positions(showData_.GetSongData(song_).GetTimeline());
    const std::string place = positions.DescribeTick(engine_.IsHolding() ? engine_.GetPosition() + 1  //
                                                                         : engine_.GetPosition());
    return fmt::format("{} {} of song {}", engine_.IsHolding() ? "in the fermata before" : "at", place, song_);
}

void OfflineShow::Quit_() {
    isQuitting_ = true;
    engine_.Stop();
}

void OfflineShow::Remark_(const std::string& sentence) {
    result_.remarks.push_back(sentence);
    isQuitting_ = true;
}

}  // namespace stage
