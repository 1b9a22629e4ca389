#pragma once

#include <atomic>
#include <cstdint>

namespace stage {

/// How loud something is, as factors of full scale.
struct SoundLevel {
    float peak = 0;  ///< the highest amplitude of late, of either channel; falls by 20 dB a second
    float rms = 0;   ///< over the last 300 ms, of the louder channel
};

/// Measures the sound that passes. One thread measures, any reads; both wait-free and real-time safe.
class LevelMeter {
public:
    explicit LevelMeter(std::uint32_t framesPerSecond = 48000) : framesPerSecond_(framesPerSecond) {}

    void Measure(const float* left, const float* right, std::uint32_t frames);
    [[nodiscard]] SoundLevel Read() const {
        return {peak_.load(std::memory_order_relaxed), rms_.load(std::memory_order_relaxed)};
    }

private:
    const std::uint32_t framesPerSecond_;
    // Used by the measuring thread.
    float meanLeft_ = 0;  // of the squares
    float meanRight_ = 0;
    // Synchronise themselves.
    std::atomic<float> peak_{0};
    std::atomic<float> rms_{0};
};

}  // namespace stage
