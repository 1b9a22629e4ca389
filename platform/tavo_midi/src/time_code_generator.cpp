#include "tavo_midi/time_code_generator.h"

#include <algorithm>

#include "wide_arithmetic.h"

namespace tavo_midi {

namespace {

/// The eight quarter frames of a whole address take two frames.
constexpr std::int64_t QuartersPerPair = 8;

}  // namespace

std::int64_t TimeCodeGenerator::CountUnits(std::chrono::nanoseconds time) const {
    return DivideToNearest(Wide{time.count()} * unitsPerSecond_, NanosecondsPerSecond);
}

void TimeCodeGenerator::Post(const Order& order) {
    while (pendingCount_ > 0 && pending_[pendingCount_ - 1].at > order.at)
        --pendingCount_;
    // More than fit can only be meant for the same few moments: the last one counts.
    if (pendingCount_ == pending_.size()) --pendingCount_;
    pending_[pendingCount_++] = order;
}

bool TimeCodeGenerator::Next(std::int64_t from, std::int64_t end, TimeCodeMessage& message) {
    const std::int64_t quarterAt = GetQuarterAt_();
    if (pendingCount_ > 0 && pending_[0].at < end && pending_[0].at <= quarterAt) {
        current_ = pending_[0];
        std::copy(pending_.begin() + 1, pending_.begin() + static_cast<std::ptrdiff_t>(pendingCount_),
                  pending_.begin());
        --pendingCount_;
        BeginAt_(std::max(current_.at, from), message);
        return true;
    }
    if (quarterAt >= end) return false;
    if (quarterAt < from - unitsPerSecond_ / 10) {
        BeginAt_(from, message);
        return true;
    }
    const std::int64_t pair = nextQuarter_ / QuartersPerPair;
    const int piece = static_cast<int>(nextQuarter_ % QuartersPerPair);
    const TimeCode timeCode = ConvertFramesToTimeCode(pair * 2, current_.frameRate);
    message.at = quarterAt;
    message.bytes[0] = 0xF1;
    message.bytes[1] = MakeQuarterFrame(timeCode, current_.frameRate, piece);
    message.size = 2;
    ++nextQuarter_;
    return true;
}

std::int64_t TimeCodeGenerator::GetNextAt() const {
    return pendingCount_ > 0 ? std::min(pending_[0].at, GetQuarterAt_()) : GetQuarterAt_();
}

std::size_t TimeCodeGenerator::CountDue(std::int64_t now) const {
    const auto end = pending_.begin() + static_cast<std::ptrdiff_t>(pendingCount_);
    return static_cast<std::size_t>(
        std::count_if(pending_.begin(), end, [now](const Order& order) { return order.at <= now; }));
}

std::int64_t TimeCodeGenerator::GetQuarterAt_() const {
    if (!rolls_) return Never;
    const FrameRateFraction rate = GetFrameRateFraction(current_.frameRate);
    const Wide quartersPerSecond = Wide{4} * rate.numerator;
    const Wide distance =
        Wide{nextQuarter_} * rate.denominator * NanosecondsPerSecond - Wide{current_.positionNs} * quartersPerSecond;
    return current_.at + DivideToNearest(distance * unitsPerSecond_, quartersPerSecond * NanosecondsPerSecond);
}

/// A full frame for the moment; quarter frames follow from the next pair of frames on.
void TimeCodeGenerator::BeginAt_(std::int64_t at, TimeCodeMessage& message) {
    rolls_ = current_.rolls;
    const std::int64_t elapsed = rolls_ ? at - current_.at : 0;
    const std::int64_t positionNs =
        current_.positionNs + DivideDown(Wide{elapsed} * NanosecondsPerSecond, unitsPerSecond_);
    const FrameRate frameRate = current_.frameRate;
    const FrameRateFraction rate = GetFrameRateFraction(frameRate);
    const Wide quartersPerSecond = Wide{4} * rate.numerator;
    nextQuarter_ = QuartersPerPair * DivideUp(Wide{positionNs} * quartersPerSecond,
                                              QuartersPerPair * Wide{rate.denominator} * NanosecondsPerSecond);
    message.at = at;
    message.bytes =
        MakeFullFrame(ConvertFramesToTimeCode(ConvertNanosecondsToFrames(positionNs, frameRate), frameRate), frameRate);
    message.size = static_cast<unsigned char>(message.bytes.size());
}

}  // namespace tavo_midi
