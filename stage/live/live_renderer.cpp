#include "stage/live/live_renderer.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "stage/live/real_time.h"

namespace stage {

namespace {

using std::chrono::nanoseconds;

/// While no device takes anything the thread looks this seldom: one that begins is noticed before it has used up what
/// is ready.
constexpr nanoseconds IdleWait = std::chrono::milliseconds(1);
/// A device is a little late now and then: how soon it is looked at again.
constexpr nanoseconds ShortestWait = std::chrono::microseconds(150);
/// After the moment at which the device should have taken its frames.
constexpr nanoseconds AfterPeriod = std::chrono::microseconds(60);
/// A device that has not taken anything for so many periods does not play.
constexpr int PeriodsUntilIdle = 8;

nanoseconds Now() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

LiveEvent::Kind KindOf(EngineEvent::Kind kind) {
    switch (kind) {
        case EngineEvent::Kind::Started:
            return LiveEvent::Kind::Started;
        case EngineEvent::Kind::Stopped:
            return LiveEvent::Kind::Stopped;
        case EngineEvent::Kind::Put:
            return LiveEvent::Kind::Put;
        case EngineEvent::Kind::Jumped:
            return LiveEvent::Kind::Jumped;
        case EngineEvent::Kind::Held:
            return LiveEvent::Kind::Held;
        case EngineEvent::Kind::Released:
            return LiveEvent::Kind::Released;
        case EngineEvent::Kind::StoppedAtCaesura:
            return LiveEvent::Kind::Caesura;
        case EngineEvent::Kind::Arrived:
            return LiveEvent::Kind::Beat;
        case EngineEvent::Kind::SongPutIn:
            return LiveEvent::Kind::Song;
        default:
            return LiveEvent::Kind::SongEnded;
    }
}

bool IsReported(const EngineEvent& event) {
    if (event.kind != EngineEvent::Kind::Arrived)
        return event.kind != EngineEvent::Kind::BlockBegins && event.kind != EngineEvent::Kind::Cue &&
               event.kind != EngineEvent::Kind::FadeDone && event.kind != EngineEvent::Kind::CountIn;
    // Playback arrives at many ticks; those where a beat may begin are reported.
    const std::vector<std::uint32_t>& stops = event.plan->GetStops();
    return std::binary_search(stops.begin(), stops.end(), event.tick);
}

}  // namespace

LiveRenderer::LiveRenderer(ShowSession& session, OutputFeed& feed, const Options& options, CueListener onCue)
    : session_(session),
      player_(session.GetStagePlayer()),
      engine_(player_.GetEngine()),
      feed_(feed),
      options_(options),
      onCue_(std::move(onCue)),
      framesPerSecond_(session.GetOptions().framesPerSecond),
      samples_(2 * feed.GetRing().CountPairs() * options.blockFrames),
      limiter_(framesPerSecond_),
      delay_(feed.GetRing().CountPairs() - 1) {
    session_.GetMidiOut().SetSink([this](const MidiOutEvent& event) { SendMidi_(event); });
    for (std::size_t pair = 0; pair < feed_.GetRing().CountPairs(); ++pair) {
        float* const left = samples_.data() + 2 * pair * options_.blockFrames;
        pairs_.push_back({left, left + options_.blockFrames});
    }
    engine_.Subscribe(*this);
    engine_.SetMetered(true);
    player_.SetHeardPosition([this] { return FindHeardTick(); });
    session_.SetMomentHeard([this](std::int64_t frame) { return FindMomentHeard(frame); });
    session_.GetDesk().SetWakeUp([this] { WakeUp(); });
    session_.SetPerformed(true);
    thread_ = std::thread([this] { Run_(); });
}

LiveRenderer::~LiveRenderer() {
    session_.SetPerformed(false);
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
    session_.GetMidiOut().SetSink({});
    session_.GetDesk().SetWakeUp({});
    player_.SetHeardPosition({});
    session_.SetMomentHeard({});
    engine_.Unsubscribe(*this);
}

void LiveRenderer::WakeUp() {
    {
        const std::lock_guard lock(mutex_);
        isWoken_ = true;
    }
    changed_.notify_all();
}

std::uint32_t LiveRenderer::GetLeadFrames() const {
    const OutputFormat format = feed_.GetClock().GetFormat();
    const std::uint32_t period = format.periodFrames;
    const std::uint32_t atOnce = period * format.periodsAtOnce;
    const std::uint32_t wanted = options_.leadFrames > 0 ? options_.leadFrames : atOnce + options_.blockFrames;
    // Less than a period would come too late every time; more than the ring holds there cannot be.
    const std::uint32_t needed = std::max({wanted, period, options_.blockFrames});
    return std::min<std::uint32_t>(needed, FrameRing::Capacity);
}

nanoseconds LiveRenderer::Period_() const {
    const OutputFormat format = feed_.GetClock().GetFormat();
    return nanoseconds(std::int64_t{1'000'000'000} * std::max(format.periodFrames, 1U) / format.framesPerSecond);
}

std::int64_t LiveRenderer::FindHeardFrame() const {
    const std::int64_t ring = feed_.GetClock().FindHeardFrame(Now());
    if (ring < 0) return -1;
    const double moved = static_cast<double>(ring - anchorRing_) * framesPerDeviceFrame_;
    return anchorFrame_ + static_cast<std::int64_t>(moved);
}

std::optional<nanoseconds> LiveRenderer::FindMomentHeard(std::int64_t frame) const {
    const double moved = static_cast<double>(frame - anchorFrame_) / framesPerDeviceFrame_;
    return feed_.GetClock().FindMomentHeard(anchorRing_ + static_cast<std::int64_t>(moved), Now());
}

void LiveRenderer::Run_() {
    kit::threadNames.SetNameOfCurrentThread("rendering");
    isRealTime_ = BecomeRealTime(RealTimePriority::Rendering);
    FollowDevice_();
    NotePlayhead_();
    // Where the machine cannot keep up, a block is always due.
    while (!isEnding_) {
        const nanoseconds begin = Now();
        const ThreadUse before = GetThreadUse();
        // Asked before the ring is looked at: what the device takes after that look would otherwise pass for known, and
        // nothing would be rendered for a whole period.
        const std::optional<nanoseconds> lastPeriod = feed_.GetClock().GetLastMoment();
        try {
            if (session_.GetDesk().RunPosted() > 0) {
                engine_.FollowForCertain();
                // What begins to play where it was put jumps there with its first block only; until then it is where it
                // stood.
                if (hasRolled_ || !engine_.IsRolling()) NotePlayhead_();
            }
            NoteLatePeriods_();
            if (IsBlockDue_()) {
                RenderBlock_();
                CountIfSlow_(begin, before);
                continue;
            }
        } catch (const std::exception& problem) {
            // The show goes on: what a listener could not do is no reason for silence.
            kit::AppendToThreadExceptionLog(problem.what());
        }
        Wait_(lastPeriod);
    }
    session_.GetDesk().RunPosted();
}

bool LiveRenderer::IsBlockDue_() {
    FollowDevice_();
    const std::uint32_t waiting = feed_.GetRing().CountWaiting();
    const std::uint32_t block = converter_ ? converter_->GetLongestOutput() : options_.blockFrames;
    if (waiting > 0 && waiting + block > std::max(GetLeadFrames(), block)) return false;
    if (options_.leadFrames > 0) return true;
    const std::optional<std::int64_t> seam = engine_.FindNextSeam();
    if (!seam || *seam >= engine_.GetFrame() + options_.blockFrames) return true;
    // The next period is served without it: whoever presses until then is heard.
    const OutputFormat format = feed_.GetClock().GetFormat();
    return waiting < format.periodFrames * format.periodsAtOnce;
}

void LiveRenderer::RenderBlock_() {
    const nanoseconds begin = Now();
    EndLostNotes_();
    engine_.Render(pairs_, options_.blockFrames);
    tone_.AddTo(pairs_, options_.blockFrames, framesPerSecond_, engine_.IsRolling());
    limiter_.Process(pairs_.front().left, pairs_.front().right, options_.blockFrames);
    delay_.Process(std::span<const StereoBuffer>(pairs_).subspan(1), options_.blockFrames);
    hasRolled_ = engine_.IsRolling();
    NotePlayhead_();
    WriteBlock_();
    const std::int64_t took = (Now() - begin).count();
    if (took > longestBlock_.load(std::memory_order_relaxed)) longestBlock_.store(took, std::memory_order_relaxed);
}

void LiveRenderer::CountIfSlow_(nanoseconds begin, const ThreadUse& before) {
    if (Now() - begin <= Period_()) return;
    const ThreadUse now = GetThreadUse();
    if (now.processor - before.processor > Period_()) {
        slowBlocks_.fetch_add(1, std::memory_order_relaxed);
    } else if (now.waits > before.waits) {
        heldUpBlocks_.fetch_add(1, std::memory_order_relaxed);
    }
}

// With the sound of its frame, at that of the device which is nearest.
void LiveRenderer::SendMidi_(const MidiOutEvent& event) {
    const double moved = static_cast<double>(event.frame - anchorFrame_) / framesPerDeviceFrame_;
    const std::int64_t ring = anchorRing_ + static_cast<std::int64_t>(moved);
    if (!feed_.PushMidi(static_cast<std::uint64_t>(std::max<std::int64_t>(ring, 0)),
                        {0, event.port, event.size, event.bytes}))
        hasLostMidi_ = true;
}

// The end of a note may have been among what was lost.
void LiveRenderer::EndLostNotes_() {
    const std::size_t ports = session_.GetMidiOut().GetPorts().size();
    if (!hasLostMidi_ || feed_.CountRoomForMidi() < 32 * ports) return;
    hasLostMidi_ = false;
    for (std::size_t port = 0; port < ports; ++port)
        for (std::uint8_t channel = 0; channel < 16; ++channel)
            SendMidi_({engine_.GetFrame(),
                       static_cast<std::uint8_t>(port),
                       3,
                       {static_cast<std::uint8_t>(0xB0U | channel), controller::AllNotesOff, 0}});
}

void LiveRenderer::WriteBlock_() {
    if (converter_ == nullptr) return feed_.GetRing().Write(pairs_, options_.blockFrames);
    const std::uint32_t frames = converter_->Convert(pairs_, options_.blockFrames);
    feed_.GetRing().Write(converter_->GetPairs(), frames);
}

// At the frame that comes next.
void LiveRenderer::NotePlayhead_() {
    const std::uint32_t position = engine_.GetPosition();
    const std::uint32_t tick =
        engine_.IsRolling() ? position : player_.GetStageShowControl().GetWaitingJump().value_or(position);
    history_.Note(engine_.GetFrame(), tick);
}

void LiveRenderer::NoteLatePeriods_() {
    const std::uint64_t late = feed_.CountLatePeriods();
    if (late == latePeriods_) return;
    latePeriods_ = late;
    const std::uint64_t missing = feed_.CountMissingFrames();
    const auto more = static_cast<std::uint32_t>(missing - std::exchange(missingFrames_, missing));
    Push_({.kind = LiveEvent::Kind::Late,
           .frame = engine_.GetFrame(),
           .tick = engine_.GetPosition(),
           .missingFrames = more,
           .song = song_});
}

// The device may have come back with another rate.
void LiveRenderer::FollowDevice_() {
    const std::uint32_t rate = feed_.GetClock().GetFormat().framesPerSecond;
    if (rate == deviceRate_) return;
    deviceRate_ = rate;
    converter_.reset();
    if (rate != framesPerSecond_)
        converter_ = std::make_unique<RateConverter>(framesPerSecond_, rate, options_.blockFrames, pairs_.size());
    anchorRing_ = static_cast<std::int64_t>(feed_.GetRing().CountWritten());
    anchorFrame_ = engine_.GetFrame() - DelayFrames;
    framesPerDeviceFrame_ = static_cast<double>(framesPerSecond_) / rate;
}

void LiveRenderer::Push_(const LiveEvent& event) {
    // Thousands wait already: nobody takes them, and nobody misses one.
    static_cast<void>(events_.Push(event));
}

void LiveRenderer::OnEngineEvent(const EngineEvent& event) {
    if (event.kind == EngineEvent::Kind::Cue && onCue_) onCue_(*event.cue, FindMomentHeard(event.frame));
    if (!IsReported(event)) return;
    if (event.plan != nullptr) song_ = &event.plan->GetSong();
    Push_({.kind = KindOf(event.kind),
           .reason = event.reason,
           .frame = event.frame,
           .fromTick = event.fromTick,
           .tick = event.tick,
           .song = song_});
}

// Until the device should have taken its next frames or somebody has posted something.
void LiveRenderer::Wait_(std::optional<nanoseconds> lastPeriod) {
    const nanoseconds now = Now();
    nanoseconds wake = now + IdleWait;
    if (lastPeriod) {
        const bool isPlaying = now - *lastPeriod < PeriodsUntilIdle * Period_();
        if (isPlaying) wake = std::max(*lastPeriod + Period_() + AfterPeriod, now + ShortestWait);
    }
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, std::chrono::steady_clock::time_point(wake), [this] { return isWoken_ || isEnding_; });
    isWoken_ = false;
}

}  // namespace stage
