#include "stage/engine/output_groups.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace stage {

OutputGroups::OutputGroups(const GroupPlan& plan, SetLevel setLevel)
    : plan_(plan), setLevel_(std::move(setLevel)), states_(plan.groups.size()) {
    for (std::size_t i = 0; i < states_.size(); ++i) {
        states_[i].volume = plan_.groups[i].volume;
        states_[i].isMuted = plan_.groups[i].isMuted;
        states_[i].trim = static_cast<float>(std::pow(10.0, plan_.groups[i].trimDb / 20));
    }
    if (!states_.empty()) SetLevels_();
}

std::optional<std::size_t> OutputGroups::Find(std::string_view name) const {
    const auto found = std::ranges::find(plan_.groups, name, &Settings::Group::name);
    if (found == plan_.groups.end()) return std::nullopt;
    return static_cast<std::size_t>(found - plan_.groups.begin());
}

std::string OutputGroups::ListNames() const {
    if (plan_.groups.empty()) return "there are none";
    std::string names = plan_.groups.front().name;
    for (std::size_t i = 1; i < plan_.groups.size(); ++i)
        names += ", " + plan_.groups[i].name;
    return names;
}

void OutputGroups::SetVolume(std::size_t group, double volume) {
    states_.at(group).volume = std::clamp(volume, 0.0, 1.0);
    SetLevels_();
}

void OutputGroups::Mute(std::size_t group, bool isMuted) {
    states_.at(group).isMuted = isMuted;
    SetLevels_();
}

void OutputGroups::Solo(std::size_t group, bool isSolo) {
    states_.at(group).isSolo = isSolo;
    SetLevels_();
}

void OutputGroups::SetLevels_() {
    const bool isAnySolo = std::ranges::any_of(states_, [](const State& state) { return state.isSolo.load(); });
    setLevel_(0, isAnySolo ? 0.0F : 1.0F);
    for (std::size_t i = 0; i < states_.size(); ++i) {
        const State& state = states_[i];
        const bool isHeard = !state.isMuted && (!isAnySolo || state.isSolo);
        setLevel_(i + 1, isHeard ? static_cast<float>(state.volume) * state.trim : 0.0F);
    }
}

}  // namespace stage
