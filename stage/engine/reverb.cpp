#include "stage/engine/reverb.h"

#include <stk/FreeVerb.h>

#include <cmath>

namespace stage {

namespace {

/// Below it a room is at rest: nobody hears it, and a recursion that fades for minutes more slows processors down.
constexpr double Quiet = 1e-7;
/// Longer than the longest way round in the room.
constexpr double QuietSecondsToRest = 0.1;
/// Of the lengths in the library's table.
constexpr double TableFramesPerSecond = 44100;

}  // namespace

// The library keeps one rate for the whole process and scales its table of lengths anew for each room, so its rate is
// left alone and the lengths are set here. Its Clear leaves the filters in the combs as they are.
class Reverb::Room : public stk::FreeVerb {
public:
    explicit Room(std::uint32_t framesPerSecond) {
        const double scale = framesPerSecond / TableFramesPerSecond;
        const auto setLength = [scale](stk::Delay& delay, int tableFrames) {
            const auto frames = static_cast<unsigned long>(std::floor(scale * tableFrames));
            delay.setMaximumDelay(frames);
            delay.setDelay(frames);
        };
        for (int i = 0; i < nCombs; ++i) {
            setLength(combDelayL_[i], cDelayLengths[i]);
            setLength(combDelayR_[i], cDelayLengths[i] + stereoSpread);
        }
        for (int i = 0; i < nAllpasses; ++i) {
            setLength(allPassDelayL_[i], aDelayLengths[i]);
            setLength(allPassDelayR_[i], aDelayLengths[i] + stereoSpread);
        }
        setEffectMix(1);
        setWidth(1);
    }
    void Silence() {
        clear();
        for (int i = 0; i < nCombs; ++i) {
            combLPL_[i].clear();
            combLPR_[i].clear();
        }
    }
};

Reverb::Reverb(const Settings::Reverb& room, std::uint32_t framesPerSecond)
    : room_(std::make_unique<Room>(framesPerSecond)),
      quietFramesToRest_(static_cast<std::uint32_t>(QuietSecondsToRest * framesPerSecond)) {
    room_->setRoomSize(room.roomSize);
    room_->setDamping(room.damping);
    undelayed_ = room_->tick(1.0, 0.0);
    room_->Silence();
}

Reverb::~Reverb() = default;

void Reverb::Clear() {
    if (isRinging_) room_->Silence();
    isRinging_ = false;
    quietFrames_ = 0;
}

void Reverb::Process(float* left, float* right, std::uint32_t frames) {
    for (std::uint32_t i = 0; i < frames; ++i) {
        const double inLeft = left[i];
        const double inRight = right[i];
        left[i] = right[i] = 0.0F;
        const bool isSent = std::fabs(inLeft) > Quiet || std::fabs(inRight) > Quiet;
        if (!isRinging_ && !isSent) continue;
        isRinging_ = true;
        // What comes back undelayed is the sound itself, which the mix has already.
        const double atOnce = undelayed_ * (inLeft + inRight);
        const double outLeft = room_->tick(inLeft, inRight) - atOnce;
        const double outRight = room_->lastOut(1) - atOnce;
        left[i] = static_cast<float>(outLeft);
        right[i] = static_cast<float>(outRight);
        const bool isQuiet = !isSent && std::fabs(outLeft) < Quiet && std::fabs(outRight) < Quiet;
        quietFrames_ = isQuiet ? quietFrames_ + 1 : 0;
        if (quietFrames_ >= quietFramesToRest_) Clear();
    }
}

}  // namespace stage
