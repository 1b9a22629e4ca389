#include "tavo_midi/user_controls.h"

#include <algorithm>
#include <cmath>

namespace tavo_midi {

void UserControls::SetTempoScale(double scale) {
    if (std::isnan(scale)) return;
    tempoScale_.store(std::clamp(scale, LowestTempoScale, HighestTempoScale), std::memory_order_relaxed);
}

void UserControls::SetTransposition(int semitones) {
    transposition_.store(std::clamp(semitones, LowestTransposition, HighestTransposition), std::memory_order_relaxed);
}

}  // namespace tavo_midi
