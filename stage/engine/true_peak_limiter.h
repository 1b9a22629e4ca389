#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace stage {

/// Keeps a stereo pair at full scale where it would be louder, between its samples as well (true peak, found by
/// four-fold oversampling as in ITU-R BS.1770-4, annex 2). It looks ahead, so what comes out is DelayFrames later;
/// where nothing near by is too loud it is what went in, bit for bit. The result does not depend on how the sound is
/// cut into calls. One thread processes; real-time safe.
class TruePeakLimiter {
public:
    static constexpr std::uint32_t DelayFrames = 32;

    explicit TruePeakLimiter(std::uint32_t framesPerSecond);

    /// Replaces the next frames of both channels by those that come out.
    void Process(float* left, float* right, std::uint32_t frames);
    /// Frames that were turned down since the beginning. Any thread.
    [[nodiscard]] std::uint64_t CountLimitedFrames() const { return limitedFrames_.load(std::memory_order_relaxed); }

private:
    static constexpr std::uint32_t HalfTaps = 6;
    static constexpr std::uint32_t Taps = 2 * HalfTaps;
    /// Frames over which the gain moves down before a peak.
    static constexpr std::uint32_t Window = DelayFrames - HalfTaps + 1;
    static constexpr std::uint32_t ChunkFrames = 256;
    using Channel = std::array<float, DelayFrames + ChunkFrames>;
    using Phase = std::array<float, Taps>;

    void ProcessChunk_(float* left, float* right, std::uint32_t frames);
    [[nodiscard]] float FindPeak_(std::uint32_t from, std::uint32_t to) const;
    [[nodiscard]] float FindTruePeak_(const Channel& channel, std::uint32_t end) const;
    [[nodiscard]] float NextGain_(float wanted);

    // Constant after construction.
    std::array<Phase, 3> phases_{};  // between two samples: at a quarter, a half, three quarters
    float quietPeak_ = 0;            // what has no higher sample has no true peak above full scale
    double release_ = 0;
    // Used by the processing thread.
    Channel left_{};  // the last DelayFrames, then those at hand
    Channel right_{};
    std::array<float, Window> wanted_{};  // gains that the last frames ask for
    std::array<float, Window> moved_{};   // with the release, before they are smoothed
    std::uint32_t place_ = 0;             // in both
    float lastWanted_ = 1.0F;
    double released_ = 1.0;           // in whose steps back a float would get stuck
    std::uint32_t activeFrames_ = 0;  // until all of that is 1 again, if nothing more is too loud
    // Synchronises itself.
    std::atomic<std::uint64_t> limitedFrames_{0};
};

}  // namespace stage
