#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tavo_midi_io {

/// Names for the ports of a system that tells ports of one name apart by an address which changes, "Pedal:Pedal MIDI 1
/// 20:0". A device keeps its name as long as it is there, whatever else comes and goes; of several of one name the
/// first is "Pedal", the next "Pedal (2)". Not thread-safe.
class DeviceNames {
public:
    /// The names of the ports that are there now, in their order; "" for ports of this product. To be told of all
    /// changes, in order.
    std::vector<std::string> Name(const std::vector<std::string>& fullNames);
    /// The system's full name of the port that was last called so.
    [[nodiscard]] std::optional<std::string> FindFullName(const std::string& name) const;

private:
    struct Device {
        std::string fullName;
        std::string name;
    };

    [[nodiscard]] std::string ChooseName_(const std::string& base) const;

    std::vector<Device> devices_;
};

/// "20:0" of "Pedal:Pedal MIDI 1 20:0"; "" where there is none.
[[nodiscard]] std::string FindAddress(const std::string& fullName);

}  // namespace tavo_midi_io
