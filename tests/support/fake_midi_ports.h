#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "tavo_midi/midi_ports.h"

namespace test_support {

/// A MIDI system of one input, "pedal", and one output, "desk", that does what a test has it do.
class FakeMidiPorts final : public tavo_midi::MidiPorts {
public:
    explicit FakeMidiPorts(std::string systemName = "fake") : systemName_(std::move(systemName)) {}

    /// Called on whichever thread asks; to be set before the system is used.
    std::function<void()> onList = [] {};
    std::function<void()> onOpen = [] {};
    std::function<bool(std::span<const unsigned char>)> onSend = [](std::span<const unsigned char>) { return true; };
    std::function<bool()> onWaitUntilSent = [] { return true; };
    std::function<void()> onCloseOutput = [] {};
    std::atomic<bool> isPlugged{true};
    std::atomic<bool> isAlive{true};
    /// Of the input; opening it connects it again.
    std::atomic<bool> isConnected{true};

    [[nodiscard]] std::string GetSystemName() const override { return systemName_; }
    [[nodiscard]] bool GetIsAlive() const override { return isAlive; }
    [[nodiscard]] std::vector<std::string> GetSourceNames() override { return List_("pedal"); }
    [[nodiscard]] std::vector<std::string> GetDestinationNames() override { return List_("desk"); }
    [[nodiscard]] std::unique_ptr<tavo_midi::MidiInput> OpenInput(const std::string&,
                                                                  tavo_midi::MidiByteSink& sink) override {
        onOpen();
        isConnected = true;
        const std::lock_guard lock(sinkMutex_);
        sink_ = &sink;
        return std::make_unique<Input>(*this);
    }
    [[nodiscard]] std::unique_ptr<tavo_midi::MidiOutput> OpenOutput(const std::string&) override {
        onOpen();
        return std::make_unique<Output>(*this);
    }

    /// What the pedal sends, stamped as arrived at `arrival`; false while nobody has connected it.
    bool Play(std::span<const unsigned char> bytes, std::chrono::nanoseconds arrival = std::chrono::nanoseconds(0)) {
        const std::lock_guard lock(sinkMutex_);
        if (sink_ == nullptr) return false;
        sink_->Take(bytes, arrival);
        return true;
    }

private:
    struct Input final : tavo_midi::MidiInput {
        explicit Input(FakeMidiPorts& from) : ports(from) {}
        ~Input() override {
            const std::lock_guard lock(ports.sinkMutex_);
            ports.sink_ = nullptr;
        }
        [[nodiscard]] bool IsConnected() override { return ports.isConnected; }
        Input(const Input&) = delete;
        Input& operator=(const Input&) = delete;
        FakeMidiPorts& ports;
    };
    struct Output final : tavo_midi::MidiOutput {
        explicit Output(FakeMidiPorts& to) : ports(to) {}
        ~Output() override { ports.onCloseOutput(); }
        Output(const Output&) = delete;
        Output& operator=(const Output&) = delete;
        bool Send(std::span<const unsigned char> message) override { return ports.onSend(message); }
        bool WaitUntilSent() override { return ports.onWaitUntilSent(); }
        FakeMidiPorts& ports;
    };

    [[nodiscard]] std::vector<std::string> List_(const char* name) {
        onList();
        if (!isPlugged) return {};
        return {name};
    }

    const std::string systemName_;
    std::mutex sinkMutex_;
    tavo_midi::MidiByteSink* sink_ = nullptr;  ///< guarded by sinkMutex_
};

}  // namespace test_support
