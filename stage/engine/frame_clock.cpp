#include "stage/engine/frame_clock.h"

#include <algorithm>
#include <cmath>

namespace stage {

namespace {

constexpr unsigned int FractionBits = 32;
constexpr std::uint64_t HalfFrame = 1ULL << (FractionBits - 1);

template <class Integer>
Integer DivideDown(Integer dividend, Integer divisor) {
    const Integer quotient = dividend / divisor;
    return dividend % divisor < 0 ? quotient - 1 : quotient;
}

}  // namespace

FrameClock::Wide FrameClock::AsWide(FrameTime moment) {
    return (Wide{moment.frame} << FractionBits) + moment.fraction;
}

FrameTime FrameClock::AsFrameTime(Wide moment) {
    return {static_cast<std::int64_t>(moment >> FractionBits), static_cast<std::uint32_t>(moment & 0xFFFFFFFF)};
}

void FrameClock::Anchor(std::uint32_t tick, FrameTime moment, std::uint32_t scaleMillionths) {
    anchorPlace_ = Wide{tempoMap_->GetTickMicroseconds(tick)} << FractionBits;
    anchorMoment_ = AsWide(moment);
    scaleMillionths_ = scaleMillionths;
}

void FrameClock::Rescale(std::int64_t frame, std::uint32_t scaleMillionths) {
    const Wide moment = AsWide({frame, 0});
    anchorPlace_ = PlaceAt(moment);
    anchorMoment_ = moment;
    scaleMillionths_ = scaleMillionths;
}

void FrameClock::StandStill(std::int64_t frame, std::int64_t resumeFrame) {
    anchorMoment_ += Wide{resumeFrame - frame} << FractionBits;
}

FrameTime FrameClock::TimeOfTick(std::uint32_t tick) const {
    const Wide distance = (Wide{tempoMap_->GetTickMicroseconds(tick)} << FractionBits) - anchorPlace_;
    return AsFrameTime(anchorMoment_ + DivideDown<Wide>(distance * framesPerSecond_, Speed()));
}

FrameClock::Wide FrameClock::PlaceAt(Wide moment) const {
    return anchorPlace_ + DivideDown<Wide>((moment - anchorMoment_) * Speed(), framesPerSecond_);
}

std::uint32_t FrameClock::TickOfFrame(std::int64_t frame) const {
    // A tick is due at the frame nearest to it, so what lies just short of half a frame later is due already.
    const Wide place = PlaceAt((Wide{frame} << FractionBits) + HalfFrame) - 1;
    return place < 0 ? 0 : tempoMap_->GetTick(static_cast<std::uint64_t>(place >> FractionBits));
}

std::uint32_t FrameClock::CountTicks(std::uint32_t tick, std::uint32_t frames) const {
    segmentGuess_ = tempoMap_->FindSegment(tick, segmentGuess_);
    const std::uint64_t microseconds = tempoMap_->GetSegments()[segmentGuess_].microsecondsPerQuarter;
    const std::uint64_t ticks = std::uint64_t{frames} * tempoMap_->GetTicksPerQuarter() * scaleMillionths_ /
                                (std::uint64_t{framesPerSecond_} * microseconds);
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(ticks, 1, 0x7FFFFFFF));
}

std::uint32_t AsMillionths(double scale) {
    const double millionths = std::round(scale * FrameClock::UnscaledMillionths);
    return static_cast<std::uint32_t>(std::clamp(millionths, 1.0, 4e9));
}

}  // namespace stage
