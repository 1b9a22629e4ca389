#include "stage/session/time_code_follower.h"

#include <cmath>
#include <utility>

namespace stage {

namespace {

using std::chrono::nanoseconds;

/// Blocks that come earlier or later than their frames say by less than this only show how the system woke the thread.
constexpr std::chrono::milliseconds Unsteadiness{20};
/// A device's periods come at a steadier pace: less than this is how the system woke its thread.
constexpr std::chrono::milliseconds UnsteadinessOfDevice{1};

nanoseconds Now() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

}  // namespace

nanoseconds FindTimeInSong(const tavo_midi::TempoMap& heard, std::uint32_t startTick, std::uint32_t tick,
                           double userScale) {
    const auto written = static_cast<std::int64_t>(heard.GetTickMicroseconds(tick)) -
                         static_cast<std::int64_t>(heard.GetTickMicroseconds(startTick));
    return nanoseconds(std::llround(static_cast<double>(written) * 1000 / heard.GetTicksPerQuarter() / userScale));
}

std::uint32_t FindTickInSong(const tavo_midi::TempoMap& heard, std::uint32_t startTick, nanoseconds time,
                             double userScale) {
    // Half a nanosecond may have been rounded away.
    const double written = (static_cast<double>(time.count()) + 0.5) * userScale * heard.GetTicksPerQuarter() / 1000;
    return heard.GetTick(heard.GetTickMicroseconds(startTick) + static_cast<std::uint64_t>(written));
}

void TimeCodeFollower::OnBlock_(const EngineEvent& event) {
    const std::optional<nanoseconds> heard = findMomentHeard_ ? findMomentHeard_(event.frame) : std::nullopt;
    const nanoseconds moment = heard.value_or(Now());
    const nanoseconds steady = heard ? UnsteadinessOfDevice : Unsteadiness;
    const bool isSteady =
        anchorTime_ && isAnchorHeard_ == heard.has_value() && std::chrono::abs(moment - TimeOf_(event.frame)) < steady;
    if (!isSteady) {
        anchorFrame_ = event.frame;
        anchorTime_ = moment;
        isAnchorHeard_ = heard.has_value();
    }
    FollowScale_(event);
}

// It changes between two blocks, and all times in the song with it.
void TimeCodeFollower::FollowScale_(const EngineEvent& event) {
    const double scale = controls_.GetTempoScale();
    if (std::exchange(scale_, scale) == scale || !rolls_ || event.plan == nullptr) return;
    const SongPlan& plan = *event.plan;
    controller_.Start(FindTimeInSong(plan.GetHeardTempoMap(), plan.GetStartTick(), event.tick, scale),
                      {TimeOf_(event.frame), {}});
}

nanoseconds TimeCodeFollower::TimeOf_(std::int64_t frame) const {
    // Whole seconds first: no product grows beyond its type.
    const std::int64_t frames = frame - anchorFrame_;
    return *anchorTime_ + std::chrono::seconds(frames / framesPerSecond_) +
           nanoseconds(frames % framesPerSecond_ * 1'000'000'000 / framesPerSecond_);
}

void TimeCodeFollower::OnEngineEvent(const EngineEvent& event) {
    using enum EngineEvent::Kind;
    if (event.kind == BlockBegins) return OnBlock_(event);
    if (event.plan == nullptr) return;
    const SongPlan& plan = *event.plan;
    const std::string& songNumber = plan.GetSong().GetSongNumber();
    if (songNumber != songNumber_) controller_.SetSong(songNumber);
    songNumber_ = songNumber;
    const auto timeAt = [&](std::uint32_t at) {
        return FindTimeInSong(plan.GetHeardTempoMap(), plan.GetStartTick(), at, controls_.GetTempoScale());
    };
    const tavo_midi::TimeCodeMoment when{anchorTime_ ? TimeOf_(event.frame) : Now(), {}};
    switch (event.kind) {
        case Started:
        case Released:
            rolls_ = true;
            return controller_.Start(timeAt(event.tick), when);
        case Stopped:
        case StoppedAtCaesura:
        case Held:
            rolls_ = false;
            return controller_.Stop(timeAt(event.tick), when);
        case Put:
        case SongPutIn:
            return controller_.Locate(timeAt(event.tick), when);
        case Jumped:
            rolls_ = rolls_ || event.wasHolding;
            if (event.wasHolding) return controller_.Start(timeAt(event.tick), when);
            if (event.reason == EngineEvent::Reason::Seek) return controller_.Locate(timeAt(event.tick), when);
            return controller_.Jump(timeAt(event.fromTick), timeAt(event.tick), when);
        default:
            return;
    }
}

}  // namespace stage
