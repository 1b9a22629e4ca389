#pragma once

#include <atomic>

namespace tavo_midi {

/// What the operator turns while the show runs. Thread-safe by itself; reads are lock-free and real-time safe.
class UserControls {
public:
    static constexpr double LowestTempoScale = 0.5;   ///< half as fast as written
    static constexpr double HighestTempoScale = 2.0;  ///< twice as fast
    static constexpr int LowestTransposition = -24;   ///< two octaves down
    static constexpr int HighestTransposition = 24;   ///< two octaves up

    /// The factor on every tempo: 1 is as written. A value outside the playable range becomes the nearest end of it;
    /// one that is not a number changes nothing.
    void SetTempoScale(double scale);
    /// Within the range; 1 at first.
    [[nodiscard]] double GetTempoScale() const { return tempoScale_.load(std::memory_order_relaxed); }

    /// Semitones on every note that is not percussion. A value outside the range becomes the nearest end of it.
    void SetTransposition(int semitones);
    /// Semitones, within the range; 0 at first.
    [[nodiscard]] int GetTransposition() const { return transposition_.load(std::memory_order_relaxed); }

private:
    std::atomic<double> tempoScale_{1.0};
    std::atomic<int> transposition_{0};
};

}  // namespace tavo_midi

using tavo_midi::UserControls;
