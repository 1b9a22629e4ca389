#include "tavo_midi_io/install_midi_ports.h"

#include <utility>

#include "system_ports.h"

namespace tavo_midi_io {

namespace {

using tavo_midi::MidiSystemChoice;

class SystemPortsOpener final : public tavo_midi::MidiPortsOpener {
public:
    [[nodiscard]] std::shared_ptr<MidiPorts> Open(MidiSystemChoice choice, std::function<void()> wake) override {
        switch (choice) {
            case MidiSystemChoice::Auto:
                if (auto ports = OpenJackMidiPorts(wake)) return ports;
                return OpenRtMidiPorts(std::move(wake));
            case MidiSystemChoice::Jack:
                return OpenJackMidiPorts(std::move(wake));
            case MidiSystemChoice::RtMidi:
                return OpenRtMidiPorts(std::move(wake));
            case MidiSystemChoice::None:
                break;
        }
        return nullptr;
    }
    [[nodiscard]] bool HasBetterThan(const MidiPorts& inUse) override {
        return inUse.GetSystemName() != JackSystemName && IsJackServerRunning();
    }
};

}  // namespace

bool IsOwnPortName(std::string_view name) {
    constexpr std::string_view Own = "tavo";
    return name.starts_with(Own) && name.size() > Own.size() &&
           (name[Own.size()] == ':' || name[Own.size()] == '-' || name[Own.size()] == ' ');
}

void InstallMidiPorts() {
    static const bool isInstalled = [] {
        tavo_midi::SetMidiPortsOpener(std::make_shared<SystemPortsOpener>());
        return true;
    }();
    static_cast<void>(isInstalled);
}

}  // namespace tavo_midi_io
