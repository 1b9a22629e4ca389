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
      soundSink_(std::move(soundSink)),
      player_(session.GetStagePlayer()),
      engine_(player_.GetEngine()),
      flow_(player_.GetStageShowControl()),
      feed_(session.GetSteppedFeed()),
      framesPerSecond_(session.GetOptions().framesPerSecond),
      passFrames_(std::int64_t{feed_.GetInterval()} * framesPerSecond_ / 1000),
      left_(LongestPieceFrames),
      right_(LongestPieceFrames) {
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
        engine_.RenderLater(left_.data() + filledFrames_, right_.data() + filledFrames_, frames);
        filledFrames_ += frames;
    }
}

float OfflineShow::HandOverSound_() {
    engine_.FinishRendering();
    const std::uint32_t frames = std::exchange(filledFrames_, 0);
    const float peak = std::max(FindPeak(left_.data(), frames), FindPeak(right_.data(), frames));
    result_.peak = std::max(result_.peak, peak);
    if (soundSink_ && frames > 0) soundSink_(left_.data(), right_.data(), frames);
    return peak;
}

// What rings on after the last song.
void OfflineShow::RenderTail_() {
    HandOverSound_();
    engine_.Stop();
    const auto end = engine_.GetFrame() + static_cast<std::int64_t>(LongestTailSeconds * framesPerSecond_);
    while (engine_.GetFrame() < end) {
        const std::int64_t pieceEnd = std::min<std::int64_t>(engine_.GetFrame() + LongestPieceFrames, end);
        RenderUntil_(pieceEnd);
        if (HandOverSound_() < TailSilence) return;
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
    const bool stands = !engine_.IsRolling() || isHeld;
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
