#include "tavo_midi/tempo_map.h"

#include <algorithm>
#include <limits>

#include "tavo_midi/tick_search.h"

namespace tavo_midi {

namespace {

__extension__ using UnsignedWide = unsigned __int128;

constexpr std::uint32_t LastTick = std::numeric_limits<std::uint32_t>::max();

/// a * b / divisor, rounded down; the product may need 128 bits, which cost more than the usual 64.
std::uint64_t MultiplyAndDivide(UnsignedWide a, std::uint64_t b, std::uint64_t divisor) {
    const UnsignedWide product = a * b;
    if (product >> 64U == 0) return static_cast<std::uint64_t>(product) / divisor;
    return static_cast<std::uint64_t>(
        std::min<UnsignedWide>(product / divisor, std::numeric_limits<std::uint64_t>::max()));
}

}  // namespace

TempoMap::TempoMap() : TempoMap({}, DefaultTicksPerQuarter) {}

TempoMap::TempoMap(const TL::TimelineSequence<TL::Tempo>& tempos, unsigned int ticksPerQuarter)
    : ticksPerQuarter_(ticksPerQuarter == 0 ? DefaultTicksPerQuarter : ticksPerQuarter) {
    segments_.reserve(tempos.size() + 1);
    segments_.emplace_back();
    for (const TL::Tempo& tempo : tempos)
        if (tempo.microseconds_per_quarter() != 0) AddTempo(tempo.abs_time(), tempo.microseconds_per_quarter());
    BuildSearch();
}

void TempoMap::BuildSearch() {
    times_.reserve(segments_.size());
    for (const Segment& segment : segments_)
        times_.push_back(segment.tickMicroseconds);
    while (segments_.size() % BlockSize != 0)
        AppendSegment(LastTick, segments_.back().microsecondsPerQuarter);
    blockTicks_.reserve(segments_.size() / BlockSize);
    for (std::size_t i = 0; i < segments_.size(); i += BlockSize)
        blockTicks_.push_back(segments_[i].tick);
}

void TempoMap::AddTempo(std::uint32_t tick, std::uint32_t microsecondsPerQuarter) {
    if (tick > segments_.back().tick) {
        AppendSegment(tick, microsecondsPerQuarter);
    } else {
        segments_.back().microsecondsPerQuarter = microsecondsPerQuarter;
    }
}

void TempoMap::AppendSegment(std::uint32_t tick, std::uint32_t microsecondsPerQuarter) {
    const Segment& last = segments_.back();
    const std::uint64_t length = std::uint64_t{tick - last.tick} * last.microsecondsPerQuarter;
    segments_.push_back({tick, microsecondsPerQuarter, last.tickMicroseconds + length});
}

std::size_t TempoMap::FindInBlocks(std::uint32_t tick) const {
    std::size_t index = (CountNotAfter<std::uint32_t>(blockTicks_, tick) - 1) * BlockSize;
    const Segment* const block = &segments_[index];
    for (std::size_t i = 1; i < BlockSize; ++i)
        index += static_cast<std::size_t>(block[i].tick <= tick);
    return index;
}

std::size_t TempoMap::FindSegment(std::uint32_t tick) const {
    // What fills the last block up is met at the very last tick only.
    return std::min(FindInBlocks(tick), times_.size() - 1);
}

std::size_t TempoMap::FindSegment(std::uint32_t tick, std::size_t guess) const {
    const std::size_t count = times_.size();
    const auto isAnswer = [&](std::size_t index) {
        return index < count && segments_[index].tick <= tick &&
               (index + 1 == count || segments_[index + 1].tick > tick);
    };
    if (isAnswer(guess)) return guess;
    if (isAnswer(guess + 1)) return guess + 1;
    return FindSegment(tick);
}

std::uint64_t TempoMap::GetTickMicroseconds(std::uint32_t tick) const {
    const Segment& segment = segments_[FindInBlocks(tick)];
    return segment.tickMicroseconds + std::uint64_t{tick - segment.tick} * segment.microsecondsPerQuarter;
}

double TempoMap::GetSeconds(std::uint32_t tick) const {
    return static_cast<double>(GetTickMicroseconds(tick)) / static_cast<double>(GetTickMicrosecondsPerSecond());
}

const TempoMap::Segment& TempoMap::SegmentAtTime(std::uint64_t tickMicroseconds) const {
    return segments_[CountNotAfter<std::uint64_t>(times_, tickMicroseconds) - 1];
}

std::uint32_t TempoMap::GetTick(std::uint64_t tickMicroseconds) const {
    const Segment& segment = SegmentAtTime(tickMicroseconds);
    const std::uint64_t ticks = (tickMicroseconds - segment.tickMicroseconds) / segment.microsecondsPerQuarter;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(segment.tick + ticks, LastTick));
}

std::uint64_t TempoMap::FrameOfTick(std::uint32_t tick, std::uint32_t framesPerSecond) const {
    const std::uint64_t second = GetTickMicrosecondsPerSecond();
    const UnsignedWide frames = UnsignedWide{GetTickMicroseconds(tick)} * framesPerSecond;
    const UnsignedWide halfUp = frames * 2 + second;
    if (halfUp >> 64U == 0) return static_cast<std::uint64_t>(halfUp) / (second * 2);
    return static_cast<std::uint64_t>(halfUp / (second * 2));
}

std::uint32_t TempoMap::TickOfFrame(std::uint64_t frame, std::uint32_t framesPerSecond) const {
    // A tick belongs to this frame or an earlier one when its time lies before the middle between this frame and the
    // next: 2 * time * rate < second * (2 * frame + 1).
    const UnsignedWide bound = UnsignedWide{GetTickMicrosecondsPerSecond()} * (UnsignedWide{frame} * 2 + 1) - 1;
    const UnsignedWide latest = bound / (std::uint64_t{framesPerSecond} * 2);
    return GetTick(
        static_cast<std::uint64_t>(std::min<UnsignedWide>(latest, std::numeric_limits<std::uint64_t>::max())));
}

double TempoMap::FractionalTickOfFrame(std::uint64_t frame, std::uint32_t framesPerSecond) const {
    const std::uint64_t second = GetTickMicrosecondsPerSecond();
    const std::uint64_t whole = MultiplyAndDivide(frame, second, framesPerSecond);
    const Segment& segment = SegmentAtTime(whole);
    const UnsignedWide scaledStart = UnsignedWide{segment.tickMicroseconds} * framesPerSecond;
    const UnsignedWide scaled = UnsignedWide{frame} * second;
    const double ticks = static_cast<double>(scaled - scaledStart) /
                         (static_cast<double>(segment.microsecondsPerQuarter) * framesPerSecond);
    return static_cast<double>(segment.tick) + ticks;
}

}  // namespace tavo_midi
