#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "stage/engine/stereo_buffer.h"
#include "stage/engine/true_peak_limiter.h"

namespace stage {

/// Keeps stereo pairs as late as the limiter makes the main one, so that what is played at once is heard at once. One
/// thread processes; real-time safe. The result does not depend on how the sound is cut into calls.
class PairDelay {
public:
    static constexpr std::uint32_t DelayFrames = TruePeakLimiter::DelayFrames;

    /// For as many pairs at most.
    explicit PairDelay(std::size_t pairs) : held_(pairs * 2 * std::size_t{DelayFrames}) {}

    /// Replaces the next frames of each pair by those that come out. What comes out of a pair that the call before was
    /// not given begins with DelayFrames of silence.
    void Process(std::span<const StereoBuffer> pairs, std::uint32_t frames);

private:
    void ProcessChannel_(float* samples, std::uint32_t frames, float* held);

    std::vector<float> held_;  // DelayFrames of each channel
    std::size_t given_ = 0;    // pairs that hold something
};

}  // namespace stage
