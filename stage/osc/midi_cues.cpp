#include "stage/osc/midi_cues.h"

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

#include "kit/thread_names.h"
#include "stage/live/real_time.h"
#include "stage/show/midi_cue.h"
#include "tavo_midi/midi_ports.h"

namespace stage {

namespace {

constexpr std::size_t MostWaitingMessages = 256;

}  // namespace

MidiCues::MidiCues(const Settings::OscTarget& target) : name_(target.name), port_(target.midiPort) {
    state_.name = name_;
    thread_ = std::thread([this] { Run_(); });
}

MidiCues::~MidiCues() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

std::string MidiCues::Describe() const {
    return fmt::format("The OSC target \"{}\" (MIDI port \"{}\")", name_, port_);
}

void MidiCues::Send(const CL::Osc& edit) {
    const std::lock_guard lock(mutex_);
    try {
        std::vector<unsigned char> message = MakeMidiCue(edit);
        if (waiting_.size() < MostWaitingMessages) {
            waiting_.push_back(std::move(message));
            changed_.notify_all();
            return;
        }
    } catch (const std::invalid_argument& problem) {
        state_.problem = problem.what();
    }
    ++state_.lost;
}

LiveStatus::OscTarget MidiCues::GetState() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

void MidiCues::Run_() {
    kit::threadNames.SetNameOfCurrentThread("MIDI cues");
    BecomeRealTime(RealTimePriority::Host);
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isEnding_ || !waiting_.empty(); });
        if (isEnding_) return;
        const std::vector<unsigned char> message = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        std::string problem;
        try {
            tavo_midi::SendMidiMessage(port_, message);
        } catch (const std::exception& failure) {
            problem = failure.what();
            // Into the middle of a sentence.
            if (problem.ends_with('.')) problem.pop_back();
        }
        lock.lock();
        ++(problem.empty() ? state_.sent : state_.lost);
        state_.problem = std::move(problem);
    }
}

}  // namespace stage
