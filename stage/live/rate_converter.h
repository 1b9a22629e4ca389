#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace stage {

/// Plays a session on a device that takes another number of frames per second. Not thread-safe. Only the constructor
/// allocates.
class RateConverter {
public:
    /// Throws std::runtime_error with one sentence where the two rates are too far apart.
    RateConverter(std::uint32_t fromRate, std::uint32_t toRate, std::uint32_t longestBlock);
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    /// Converts the next frames; returns how many came out, which GetLeft and GetRight hold until the next call.
    std::uint32_t Convert(const float* left, const float* right, std::uint32_t frames);
    [[nodiscard]] const float* GetLeft() const { return left_.data(); }
    [[nodiscard]] const float* GetRight() const { return right_.data(); }
    /// Frames that a block may become.
    [[nodiscard]] std::uint32_t GetLongestOutput() const { return static_cast<std::uint32_t>(left_.size()); }

private:
    struct State;

    const double ratio_;
    std::unique_ptr<State> state_;
    std::vector<float> in_;  // interleaved
    std::vector<float> out_;
    std::vector<float> left_;
    std::vector<float> right_;
};

}  // namespace stage
