#include "device_names.h"

#include <fmt/format.h>

#include <algorithm>

#include "system_ports.h"

namespace tavo_midi_io {

namespace {

/// "Pedal" of "Pedal 128:0".
std::string WithoutAddress(const std::string& fullName) {
    const std::string address = FindAddress(fullName);
    return address.empty() ? fullName : fullName.substr(0, fullName.size() - address.size() - 1);
}

bool IsAmong(const std::vector<std::string>& all, const std::string& one) {
    return std::find(all.begin(), all.end(), one) != all.end();
}

}  // namespace

std::string FindAddress(const std::string& fullName) {
    const std::size_t space = fullName.rfind(' ');
    if (space == std::string::npos) return "";
    const std::string tail = fullName.substr(space + 1);
    const std::size_t colon = tail.find(':');
    const bool isAddress = tail.find_first_not_of("0123456789:") == std::string::npos && colon != tail.npos &&
                           colon > 0 && colon + 1 < tail.size() && tail.find(':', colon + 1) == tail.npos;
    return isAddress ? tail : "";
}

std::vector<std::string> DeviceNames::Name(const std::vector<std::string>& fullNames) {
    // Who has gone lets go of the name first: it is free for who comes.
    std::erase_if(devices_, [&](const Device& device) { return !IsAmong(fullNames, device.fullName); });
    std::vector<std::string> names;
    std::vector<bool> isUsed(devices_.size(), false);
    for (const std::string& fullName : fullNames) {
        const std::string base = WithoutAddress(fullName);
        if (IsOwnPortName(base)) {
            names.emplace_back();
            continue;
        }
        // Systems without addresses may have one full name several times: each is another device.
        std::size_t index = 0;
        while (index < devices_.size() && (isUsed[index] || devices_[index].fullName != fullName))
            ++index;
        if (index == devices_.size()) {
            devices_.push_back({fullName, ChooseName_(base)});
            isUsed.push_back(false);
        }
        isUsed[index] = true;
        names.push_back(devices_[index].name);
    }
    for (std::size_t index = devices_.size(); index-- > 0;) {
        if (!isUsed[index]) devices_.erase(devices_.begin() + static_cast<std::ptrdiff_t>(index));
    }
    return names;
}

std::optional<std::string> DeviceNames::FindFullName(const std::string& name) const {
    const auto found =
        std::find_if(devices_.begin(), devices_.end(), [&](const Device& device) { return device.name == name; });
    if (found == devices_.end()) return std::nullopt;
    return found->fullName;
}

std::string DeviceNames::ChooseName_(const std::string& base) const {
    const auto isTaken = [this](const std::string& name) {
        return std::any_of(devices_.begin(), devices_.end(), [&](const Device& device) { return device.name == name; });
    };
    std::string name = base;
    for (int number = 2; isTaken(name); ++number)
        name = fmt::format("{} ({})", base, number);
    return name;
}

}  // namespace tavo_midi_io
