#include "stage/live/output_keeper.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"

namespace stage {

namespace {

using namespace std::chrono_literals;

constexpr auto WatchInterval = 20ms;
constexpr auto RetryInterval = 200ms;
/// A device that has not taken anything for so long is taken to be stopped, even on a busy machine.
constexpr auto LongestStandstill = 1500ms;
/// One that has just been opened may take longer to begin.
constexpr auto LongestStart = 6s;
/// How long a device's speed is measured, and how slow is told.
constexpr auto PaceWindow = 3s;
constexpr auto LongestBreak = 500ms;
constexpr double SlowPace = 0.6;
constexpr double UsualPace = 0.9;

OutputChoice::Kind KindOf(const AudioOutput& output) {
    const std::string name = output.GetName();
    if (name == "JACK") return OutputChoice::Kind::Jack;
    if (name.starts_with("RtAudio")) return OutputChoice::Kind::RtAudio;
    return name == "null" ? OutputChoice::Kind::Null : OutputChoice::Kind::File;
}

const char* NameOf(OutputChoice::Kind kind) {
    return kind == OutputChoice::Kind::RtAudio ? "RtAudio" : "JACK";
}

}  // namespace

OutputKeeper::OutputKeeper(const OutputChoice& choice, OutputFeed& feed, WhenLost whenLost, bool waits,
                           std::function<void(const std::string& sentence)> onChange)
    : whenLost_(whenLost), onChange_(std::move(onChange)), feed_(feed), choice_(choice) {
    feed_.Rest(false);
    try {
        output_ = OpenOutput(choice_, feed_);
        // From now on it is this one that is waited for.
        choice_.kind = KindOf(*output_);
        state_.name = output_->GetName();
    } catch (const std::exception& problem) {
        const bool mayCome = choice.kind == OutputChoice::Kind::Jack || choice.kind == OutputChoice::Kind::RtAudio;
        if (!waits || !mayCome) throw;
        state_.name = NameOf(choice.kind);
        state_.problem = problem.what();
    }
    lastMove_ = std::chrono::steady_clock::now();
    Publish_();
    thread_ = std::thread([this] { Run_(); });
}

OutputKeeper::~OutputKeeper() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

OutputKeeper::State OutputKeeper::GetState() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

void OutputKeeper::Run_() {
    kit::threadNames.SetNameOfCurrentThread("audio keeper");
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (isEnding_) return;
        }
        if (!kit::RunLogged([this] { Watch_(); })) Wait_(RetryInterval);
    }
}

void OutputKeeper::Watch_() {
    if (output_ == nullptr) return TryToReturn_();
    const std::string problem = FindProblem_();
    if (!problem.empty()) return Lose_(problem);
    if (const std::string remark = output_->TakeRemark(); !remark.empty()) onChange_(remark);
    WatchPace_();
    Publish_();
    Wait_(WatchInterval);
}

std::string OutputKeeper::FindProblem_() {
    if (std::string problem = output_->GetProblem(); !problem.empty()) return problem;
    if (feed_.HasRunAway())
        return fmt::format("{} takes sound faster than it can be heard; it will be tried again.", output_->GetName());
    const auto now = std::chrono::steady_clock::now();
    const std::uint64_t periods = feed_.GetClock().CountPeriods();
    if (feed_.HasSettled() && periods != lastPeriods_) {
        lastPeriods_ = periods;
        lastMove_ = now;
        return "";
    }
    if (now - lastMove_ < (feed_.HasSettled() ? LongestStandstill : LongestStart)) return "";
    return fmt::format("{} has stopped taking sound; it will be tried again.", output_->GetName());
}

// A server that waits in vain for one of its clients, period by period, plays everything, and everything too slowly.
void OutputKeeper::WatchPace_() {
    const auto now = std::chrono::steady_clock::now();
    const std::uint64_t frames = feed_.GetClock().CountFrames();
    const bool wasBroken = !feed_.HasSettled() || now - std::exchange(paceLookedAt_, now) > LongestBreak;
    if (!wasBroken && now - paceSince_ < PaceWindow) return;
    const double seconds = std::chrono::duration<double>(now - std::exchange(paceSince_, now)).count();
    const std::uint64_t taken = frames - std::exchange(paceFrames_, frames);
    if (wasBroken) return;
    const double pace = static_cast<double>(taken) / (seconds * feed_.GetClock().GetFormat().framesPerSecond);
    if (isSlow_ == (pace < (isSlow_ ? UsualPace : SlowPace))) return;
    isSlow_ = !isSlow_;
    onChange_(isSlow_ ? fmt::format("{} takes the sound at {:.0f} % of its speed, and everything is heard too slowly: "
                                    "look what holds up the sound server.",
                                    output_->GetName(), 100 * pace)
                      : fmt::format("{} takes the sound at its speed again.", output_->GetName()));
}

void OutputKeeper::Lose_(const std::string& problem) {
    lostOverruns_ += output_->CountDeviceOverruns();
    output_.reset();
    isSlow_ = false;
    feed_.Rest(true);
    if (whenLost_ == WhenLost::Run) StandIn_();
    {
        const std::lock_guard lock(mutex_);
        state_.isPlaying = false;
        state_.problem = problem;
        ++state_.timesLost;
    }
    onChange_(problem);
}

void OutputKeeper::StandIn_() {
    OutputChoice pacing = choice_;
    pacing.kind = OutputChoice::Kind::Null;
    const OutputFormat format = feed_.GetClock().GetFormat();
    pacing.framesPerSecond = format.framesPerSecond;
    pacing.periodFrames = std::max(format.periodFrames, 32U);
    standIn_ = OpenPacedOutput(pacing, feed_);
}

void OutputKeeper::TryToReturn_() {
    Wait_(RetryInterval);
    std::unique_ptr<AudioOutput> returned;
    try {
        // The stand-in keeps time until the device is known to be there: two would take frames side by side.
        if (standIn_ != nullptr) static_cast<void>(ProbeOutput(choice_));
        standIn_.reset();
        returned = OpenOutput(choice_, feed_);
    } catch (const std::exception& problem) {
        if (whenLost_ == WhenLost::Run && standIn_ == nullptr) StandIn_();
        const std::lock_guard lock(mutex_);
        if (state_.problem.empty()) state_.problem = problem.what();
        return;
    }
    output_ = std::move(returned);
    lastMove_ = std::chrono::steady_clock::now();
    if (!WaitUntilItPlays_()) {
        output_.reset();
        feed_.Rest(true);
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        state_.problem.clear();
    }
    Publish_();
    onChange_(fmt::format("{} is back, sound goes on.", output_->GetName()));
}

// A device can be there again and its server not yet.
bool OutputKeeper::WaitUntilItPlays_() {
    while (!feed_.HasSettled()) {
        if (!FindProblem_().empty()) return false;
        Wait_(WatchInterval);
        const std::lock_guard lock(mutex_);
        if (isEnding_) return true;
    }
    return true;
}

void OutputKeeper::Publish_() {
    const std::lock_guard lock(mutex_);
    state_.isPlaying = output_ != nullptr;
    state_.format = feed_.GetClock().GetFormat();
    state_.deviceOverruns = lostOverruns_ + (output_ != nullptr ? output_->CountDeviceOverruns() : 0);
}

void OutputKeeper::Wait_(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, time, [this] { return isEnding_; });
}

}  // namespace stage
