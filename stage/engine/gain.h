#pragma once

#include <cstdint>

namespace stage {

/// A factor on the amplitude that moves to its target in a straight line, frame by frame. Not thread-safe; real-time
/// safe.
class Gain {
public:
    [[nodiscard]] bool IsMoving() const { return framesLeft_ > 0; }
    /// Whether Apply would change nothing.
    [[nodiscard]] bool IsOne() const { return framesLeft_ == 0 && value_ == 1.0F; }
    [[nodiscard]] float GetTarget() const { return target_; }

    /// Reaches `target` after `frames`; 0 at once.
    void MoveTo(float target, std::uint32_t frames) {
        target_ = target;
        framesLeft_ = frames;
        if (frames == 0) {
            value_ = target;
        } else {
            step_ = (target - value_) / static_cast<float>(frames);
        }
    }

    /// Applies the next `frames` of the movement to both channels.
    void Apply(float* left, float* right, std::uint32_t frames) {
        std::uint32_t i = 0;
        for (; i < frames && framesLeft_ > 0; ++i) {
            // The last step lands on the target itself, whatever the steps before it added up to.
            value_ = --framesLeft_ == 0 ? target_ : value_ + step_;
            left[i] *= value_;
            right[i] *= value_;
        }
        if (value_ == 1.0F) return;
        for (; i < frames; ++i) {
            left[i] *= value_;
            right[i] *= value_;
        }
    }

private:
    float value_ = 1.0F;
    float target_ = 1.0F;
    float step_ = 0.0F;
    std::uint32_t framesLeft_ = 0;
};

}  // namespace stage
