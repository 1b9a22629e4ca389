#include "tavo_midi/machine_control.h"

#include <cstddef>

namespace tavo_midi {

namespace {

using Bytes = std::span<const unsigned char>;

/// Bytes of the command that `data`, which is not empty, begins with. Those from 40 to 77 say themselves how many
/// follow, and 00 leads to a further set of commands.
std::size_t LengthOfMachineCommand(Bytes data) {
    const std::size_t prefix = data[0] == 0x00 ? 1 : 0;
    if (data.size() == prefix) return prefix + 1;
    const bool saysItself = data[prefix] >= 0x40 && data[prefix] <= 0x77;
    if (!saysItself) return prefix + 1;
    return data.size() == prefix + 1 ? prefix + 2 : prefix + 2 + data[prefix + 1];
}

}  // namespace

std::vector<Bytes> SplitMachineControl(Bytes data) {
    std::vector<Bytes> commands;
    while (!data.empty()) {
        const std::size_t length = LengthOfMachineCommand(data);
        if (length > data.size()) break;
        commands.push_back(data.first(length));
        data = data.subspan(length);
    }
    return commands;
}

}  // namespace tavo_midi
