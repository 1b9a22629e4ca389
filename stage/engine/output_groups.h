#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "stage/engine/group_plan.h"

namespace stage {

/// What the operator has set the output groups to. Thread-safe; real-time safe after construction.
class OutputGroups {
public:
    /// Sets a strip's level: volume, trim, mute and solo in one factor.
    using SetLevel = std::function<void(std::size_t strip, float level)>;

    /// `plan` outlives the object. All levels are set at once, as the settings have them.
    OutputGroups(const GroupPlan& plan, SetLevel setLevel);

    [[nodiscard]] const GroupPlan& GetPlan() const { return plan_; }
    [[nodiscard]] std::size_t Count() const { return plan_.groups.size(); }
    [[nodiscard]] std::optional<std::size_t> Find(std::string_view name) const;
    [[nodiscard]] const std::string& GetName(std::size_t group) const { return plan_.groups.at(group).name; }
    /// "band, singers"; "there are none" without any.
    [[nodiscard]] std::string ListNames() const;

    // What is wrong with `group` throws std::out_of_range.

    /// 0 to 1.
    void SetVolume(std::size_t group, double volume);
    void Mute(std::size_t group, bool isMuted);
    /// While a group is solo only those that are sound; whatever is in no group is silent then.
    void Solo(std::size_t group, bool isSolo);
    [[nodiscard]] double GetVolume(std::size_t group) const { return states_[group].volume; }
    [[nodiscard]] bool IsMuted(std::size_t group) const { return states_[group].isMuted; }
    [[nodiscard]] bool IsSolo(std::size_t group) const { return states_[group].isSolo; }

private:
    struct State {
        std::atomic<double> volume{1.0};
        std::atomic<bool> isMuted{false};
        std::atomic<bool> isSolo{false};
        float trim = 1.0F;
    };

    void SetLevels_();

    const GroupPlan& plan_;
    const SetLevel setLevel_;
    std::vector<State> states_;
};

}  // namespace stage
