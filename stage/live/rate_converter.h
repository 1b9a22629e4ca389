#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "stage/engine/stereo_buffer.h"

namespace stage {

/// Plays a session on a device that takes another number of frames per second. Not thread-safe. Only the constructor
/// allocates.
class RateConverter {
public:
    /// Throws std::runtime_error with one sentence where the two rates are too far apart.
    RateConverter(std::uint32_t fromRate, std::uint32_t toRate, std::uint32_t longestBlock, std::size_t pairs);
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    /// Converts the next frames of all pairs; returns how many came out, which GetPairs holds until the next call.
    std::uint32_t Convert(std::span<const StereoBuffer> pairs, std::uint32_t frames);
    [[nodiscard]] std::span<const StereoBuffer> GetPairs() const { return pairs_; }
    /// Frames that a block may become.
    [[nodiscard]] std::uint32_t GetLongestOutput() const { return longestOutput_; }

private:
    struct State;

    const double ratio_;
    const std::uint32_t longestOutput_;
    std::unique_ptr<State> state_;
    std::vector<float> in_;  // interleaved
    std::vector<float> out_;
    std::vector<float> samples_;  // one channel after the other
    std::vector<StereoBuffer> pairs_;
};

}  // namespace stage
