#pragma once

#include <atomic>

namespace tavo_midi {

/// What the operator turns while the show runs. Thread-safe by itself; reads are lock-free and real-time safe.
class UserControls {
public:
    static constexpr double LowestTempoScale = 0.5;
    static constexpr double HighestTempoScale = 2.0;
    static constexpr int LowestTransposition = -24;
    static constexpr int HighestTransposition = 24;

    /// The factor on every tempo: 1 is as written. A value outside the playable range becomes the nearest end of it;
    /// one that is not a number changes nothing.
    void SetTempoScale(double scale);
    [[nodiscard]] double GetTempoScale() const { return tempoScale_.load(std::memory_order_relaxed); }

    /// Semitones on every note that is not percussion. A value outside the range becomes the nearest end of it.
    void SetTransposition(int semitones);
    [[nodiscard]] int GetTransposition() const { return transposition_.load(std::memory_order_relaxed); }

private:
    std::atomic<double> tempoScale_{1.0};
    std::atomic<int> transposition_{0};
};

}  // namespace tavo_midi

using tavo_midi::UserControls;
