#include "stage/osc/osc_cues.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "stage/live/real_time.h"

namespace stage {

namespace {

/// Cues that wait to be heard; far more than a bar has.
constexpr std::size_t MostWaitingCues = 4096;
constexpr std::chrono::seconds LongestSleep{1};
constexpr std::chrono::milliseconds RestOfCues{10};

OscMessage AsMessage(const CL::Osc& edit) {
    OscMessage message{edit.address(), {}};
    for (const CL::OscArgument& argument : edit.arguments()) {
        if (const auto* const whole = std::get_if<int>(&argument)) message.arguments.emplace_back(std::int64_t{*whole});
        if (const auto* const number = std::get_if<float>(&argument))
            message.arguments.emplace_back(static_cast<double>(*number));
        if (const auto* const text = std::get_if<std::string>(&argument)) message.arguments.emplace_back(*text);
    }
    return message;
}

std::string DescribeWay(const Settings::OscTarget& target) {
    return fmt::format("The OSC target \"{}\" ({} {}:{})", target.name,
                       target.transport == Settings::Transport::Tcp ? "tcp" : "udp", target.host, target.port);
}

}  // namespace

OscCues::OscCues(const std::vector<Settings::OscTarget>& targets) {
    for (const Settings::OscTarget& target : targets) {
        Way way;
        if (target.transport == Settings::Transport::Midi) {
            way.midi = std::make_unique<MidiCues>(target);
        } else {
            way.osc = std::make_unique<OscTarget>(target, wakeUp_);
        }
        ways_.push_back(std::move(way));
        state_.push_back({.name = target.name, .problem = {}});
    }
    events_.resize(ways_.size());
    if (!ways_.empty()) thread_ = std::thread([this] { Run_(); });
}

OscCues::~OscCues() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    wakeUp_->Ring();
    if (thread_.joinable()) thread_.join();
}

void OscCues::Take(const Cue& cue, std::optional<std::chrono::nanoseconds> heard) {
    const auto* const message = std::get_if<CL::Osc>(&cue.edit);
    if (message == nullptr || !thread_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        if (new_.size() >= MostWaitingCues) {
            ++overflown_;
            return;
        }
        new_.push_back({*message, heard ? Clock::time_point(*heard) : Clock::time_point::min()});
    }
    wakeUp_->Ring();
}

void OscCues::Run_() {
    kit::threadNames.SetNameOfCurrentThread("OSC cues");
    BecomeRealTime(RealTimePriority::Host);
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (isEnding_) return;
        }
        const bool isDone = kit::RunLogged([this] {
            TakeNew_();
            const Clock::time_point next = Work_(Clock::now());
            Report_();
            Wait_(next);
        });
        if (!isDone) std::this_thread::sleep_for(RestOfCues);
    }
}

// Each goes to the way of its target; what names none that there is was shown when the show was checked and loaded.
void OscCues::TakeNew_() {
    std::deque<Waiting> taken;
    {
        const std::lock_guard lock(mutex_);
        taken = std::exchange(new_, {});
    }
    for (Waiting& each : taken) {
        const std::string& name = each.message.target();
        const auto found = std::ranges::find_if(ways_, [&](const Way& way) {
            return name.empty() || (way.osc ? way.osc->GetSettings().name : way.midi->GetName()) == name;
        });
        if (found != ways_.end()) found->waiting.push_back(std::move(each));
    }
}

OscCues::Clock::time_point OscCues::Work_(Clock::time_point now) {
    Clock::time_point next = now + LongestSleep;
    for (std::size_t i = 0; i < ways_.size(); ++i) {
        Way& way = ways_[i];
        SendDue_(way, now);
        if (!way.waiting.empty()) next = std::min(next, way.waiting.front().heard);
        if (way.osc) next = std::min(next, way.osc->Work(std::exchange(events_[i], short{0}), now));
    }
    return next;
}

void OscCues::SendDue_(Way& way, Clock::time_point now) {
    const bool isAhead = way.osc && way.osc->GetSettings().timeTags;
    while (!way.waiting.empty() && (isAhead || way.waiting.front().heard <= now)) {
        std::vector<Waiting> cues;
        // What is heard at one moment leaves in one bundle.
        do {
            cues.push_back(std::move(way.waiting.front()));
            way.waiting.pop_front();
        } while (isAhead && !way.waiting.empty() && way.waiting.front().heard == cues.front().heard);
        Send_(way, std::move(cues), now);
    }
}

void OscCues::Send_(Way& way, std::vector<Waiting> cues, Clock::time_point now) {
    if (way.midi) return way.midi->Send(cues.front().message);
    std::vector<OscMessage> messages;
    for (const Waiting& cue : cues)
        messages.push_back(AsMessage(cue.message));
    try {
        std::vector<char> packet;
        if (way.osc->GetSettings().timeTags) {
            const auto ahead = std::max(cues.front().heard, now) - now;
            packet =
                WriteOscBundle(messages, std::chrono::system_clock::now() +
                                             std::chrono::duration_cast<std::chrono::system_clock::duration>(ahead));
        } else {
            packet = WriteOscPacket(messages.front());
        }
        way.osc->Send(std::move(packet), cues.size(), now);
    } catch (const std::invalid_argument& problem) {
        const std::lock_guard lock(mutex_);
        reports_.push_back(fmt::format("The cue {} was not sent: {}.", messages.front().address, problem.what()));
    }
}

void OscCues::Wait_(Clock::time_point until) {
    std::vector<pollfd> polled;
    for (const Way& way : ways_)
        polled.push_back(way.osc ? way.osc->GetPolled() : pollfd{-1, 0, 0});
    polled.push_back({wakeUp_->GetDescriptor(), POLLIN, 0});
    const auto wait = std::max(until - Clock::now(), Clock::duration{0});
    const timespec time{static_cast<std::time_t>(std::chrono::duration_cast<std::chrono::seconds>(wait).count()),
                        static_cast<long>((wait % std::chrono::seconds(1)).count())};
    static_cast<void>(::ppoll(polled.data(), polled.size(), &time, nullptr));
    if (polled.back().revents != 0) wakeUp_->Clear();
    for (std::size_t i = 0; i < ways_.size(); ++i)
        events_[i] = polled[i].revents;
}

void OscCues::Report_() {
    const std::lock_guard lock(mutex_);
    if (overflown_ > 0) reports_.push_back(fmt::format("{} cues were not sent: too many waited.", overflown_));
    overflown_ = 0;
    for (std::size_t i = 0; i < ways_.size(); ++i) {
        Way& way = ways_[i];
        LiveStatus::OscTarget& state = state_[i];
        if (way.midi) {
            state = way.midi->GetState();
        } else {
            const std::string& problem = way.osc->GetProblem();
            state.problem = problem.empty() ? "" : fmt::format("it cannot be reached: {}", problem);
            state.sent = way.osc->CountSent();
            state.lost = way.osc->CountLost();
        }
        if (state.problem == way.last) continue;
        const std::string subject = way.osc ? DescribeWay(way.osc->GetSettings()) : way.midi->Describe();
        reports_.push_back(state.problem.empty() ? fmt::format("{} is reached again.", subject)
                                                 : fmt::format("{} gets no cues: {}.", subject, state.problem));
        way.last = state.problem;
    }
}

std::vector<LiveStatus::OscTarget> OscCues::GetState() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

std::vector<std::string> OscCues::TakeReports() {
    const std::lock_guard lock(mutex_);
    return std::exchange(reports_, {});
}

}  // namespace stage
