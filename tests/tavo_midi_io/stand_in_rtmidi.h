#pragma once

// In the place of the RtMidi library: the same classes over a sequencer of the test's own, which behaves as ALSA's. A
// device has an address and ports of one name; a subscription goes with its device, and nobody is told.

#define RTMIDI_H

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace test_support {

class StandInSequencer {
public:
    using Receiver = std::function<void(std::vector<unsigned char>)>;

    static StandInSequencer& Get() {
        static StandInSequencer sequencer;
        return sequencer;
    }

    /// The device "NAME ADDRESS", which both sends and receives.
    void Plug(const std::string& name, const std::string& address) {
        const std::lock_guard lock(mutex_);
        devices_.push_back({name, address, {}, {}, {}});
    }
    void Unplug(const std::string& address) {
        const std::lock_guard lock(mutex_);
        std::erase_if(devices_, [&](const Device& device) { return device.address == address; });
    }
    /// Out and in again, between two looks of anybody.
    void Replug(const std::string& address, const std::string& nextAddress) {
        const std::lock_guard lock(mutex_);
        for (Device& device : devices_) {
            if (device.address == address) device = {device.name, nextAddress, {}, {}, {}};
        }
    }
    /// Once, right after as many of the next ports as that have been named.
    void UnplugAfterNames(const std::string& address, int names) {
        const std::lock_guard lock(mutex_);
        unplugsNext_ = address;
        namesBeforeUnplug_ = names;
    }
    void UnplugAll() {
        const std::lock_guard lock(mutex_);
        devices_.clear();
    }
    /// What the device at that address sends reaches whoever is subscribed.
    void Press(const std::string& address, const std::vector<unsigned char>& bytes) {
        const std::lock_guard lock(mutex_);
        for (Device& device : devices_) {
            if (device.address != address) continue;
            for (const auto& [client, receiver] : device.readers)
                receiver(bytes);
        }
    }
    /// What has reached the device at that address.
    std::vector<std::vector<unsigned char>> GetReceived(const std::string& address) {
        const std::lock_guard lock(mutex_);
        for (const Device& device : devices_) {
            if (device.address == address) return device.received;
        }
        return {};
    }

    std::vector<std::string> List() {
        const std::lock_guard lock(mutex_);
        std::vector<std::string> names;
        for (const Device& device : devices_)
            names.push_back(device.name + " " + device.address);
        return names;
    }
    std::string Name(unsigned int index) {
        const std::vector<std::string> names = List();
        const std::lock_guard lock(mutex_);
        if (namesBeforeUnplug_ > 0 && --namesBeforeUnplug_ == 0)
            std::erase_if(devices_, [&](const Device& device) { return device.address == unplugsNext_; });
        return index < names.size() ? names[index] : "";
    }
    void Read(unsigned int index, const void* client, Receiver receiver) {
        const std::lock_guard lock(mutex_);
        if (index < devices_.size()) devices_[index].readers[client] = std::move(receiver);
    }
    void Write(unsigned int index, const void* client) {
        const std::lock_guard lock(mutex_);
        if (index < devices_.size()) devices_[index].writers.insert(client);
    }
    void Send(const void* client, const std::vector<unsigned char>& bytes) {
        const std::lock_guard lock(mutex_);
        for (Device& device : devices_) {
            if (device.writers.contains(client)) device.received.push_back(bytes);
        }
    }
    void Leave(const void* client) {
        const std::lock_guard lock(mutex_);
        for (Device& device : devices_) {
            device.readers.erase(client);
            device.writers.erase(client);
        }
    }
    bool HasSubscriber(const std::string& address, bool isSource) {
        const std::lock_guard lock(mutex_);
        return std::any_of(devices_.begin(), devices_.end(), [&](const Device& device) {
            return device.address == address && (isSource ? !device.readers.empty() : !device.writers.empty());
        });
    }

private:
    struct Device {
        std::string name;
        std::string address;
        std::map<const void*, Receiver> readers;
        std::set<const void*> writers;
        std::vector<std::vector<unsigned char>> received;
    };

    std::mutex mutex_;
    std::vector<Device> devices_;
    std::string unplugsNext_;
    int namesBeforeUnplug_ = 0;
};

class StandInRtMidiError {
public:
    enum Type { WARNING };
};

class StandInRtMidi {
public:
    enum Api { UNSPECIFIED, LINUX_ALSA, UNIX_JACK, RTMIDI_DUMMY };
    using ErrorCallback = void (*)(StandInRtMidiError::Type, const std::string&, void*);

    static void getCompiledApi(std::vector<Api>& apis) { apis = {LINUX_ALSA}; }
    static std::string getApiDisplayName(Api) { return "stand-in"; }

    StandInRtMidi() = default;
    virtual ~StandInRtMidi() { StandInSequencer::Get().Leave(this); }
    StandInRtMidi(const StandInRtMidi&) = delete;
    StandInRtMidi& operator=(const StandInRtMidi&) = delete;

    void setErrorCallback(ErrorCallback) {}
    unsigned int getPortCount() { return static_cast<unsigned int>(StandInSequencer::Get().List().size()); }
    std::string getPortName(unsigned int index) { return StandInSequencer::Get().Name(index); }
    virtual void openPort(unsigned int index, const std::string& name) = 0;
    /// Like the library's, which does not notice that the device has gone.
    [[nodiscard]] bool isPortOpen() const { return isOpen_; }

protected:
    bool isOpen_ = false;
};

class StandInRtMidiIn : public StandInRtMidi {
public:
    using Callback = void (*)(double, std::vector<unsigned char>*, void*);

    StandInRtMidiIn(Api, const std::string&) {}
    void ignoreTypes(bool, bool, bool) {}
    void setCallback(Callback callback, void* argument) {
        callback_ = callback;
        argument_ = argument;
    }
    void openPort(unsigned int index, const std::string&) override {
        StandInSequencer::Get().Read(index, this,
                                     [this](std::vector<unsigned char> bytes) { callback_(0, &bytes, argument_); });
        isOpen_ = true;
    }

private:
    Callback callback_ = nullptr;
    void* argument_ = nullptr;
};

class StandInRtMidiOut : public StandInRtMidi {
public:
    StandInRtMidiOut(Api, const std::string&) {}
    void openPort(unsigned int index, const std::string&) override {
        StandInSequencer::Get().Write(index, this);
        isOpen_ = true;
    }
    /// Asked for on JACK only, which this library does not have.
    void closePort() { isOpen_ = false; }
    void sendMessage(const unsigned char* bytes, std::size_t size) {
        StandInSequencer::Get().Send(this, {bytes, bytes + size});
    }
};

}  // namespace test_support

#define RtMidi test_support::StandInRtMidi
#define RtMidiIn test_support::StandInRtMidiIn
#define RtMidiOut test_support::StandInRtMidiOut
#define RtMidiError test_support::StandInRtMidiError
#define OpenRtMidiPorts OpenStandInPorts
#define IsSubscribedTo IsStandInSubscribedTo
