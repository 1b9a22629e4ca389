#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

namespace stage {

/// Sound that was cut off and fades away below what follows. Not thread-safe; real-time safe.
class CutOffTail {
public:
    /// 4 ms at 48 kHz.
    static constexpr std::uint32_t Frames = 192;

    /// Takes the Frames that would have come next.
    void Begin(const float* left, const float* right) {
        // What is left of an earlier cut fades on below this one.
        const std::uint32_t rest = Frames - position_;
        std::array<float, Frames> earlierLeft{};
        std::array<float, Frames> earlierRight{};
        std::copy_n(left_.begin() + position_, rest, earlierLeft.begin());
        std::copy_n(right_.begin() + position_, rest, earlierRight.begin());
        for (std::uint32_t i = 0; i < Frames; ++i) {
            const float gain = 1.0F - static_cast<float>(i + 1) / Frames;
            left_[i] = left[i] * gain + earlierLeft[i];
            right_[i] = right[i] * gain + earlierRight[i];
        }
        position_ = 0;
    }
    void AddTo(float* left, float* right, std::uint32_t frames) {
        for (std::uint32_t i = 0; i < frames && position_ < Frames; ++i, ++position_) {
            left[i] += left_[position_];
            right[i] += right_[position_];
        }
    }

private:
    std::array<float, Frames> left_{};
    std::array<float, Frames> right_{};
    std::uint32_t position_ = Frames;
};

}  // namespace stage
