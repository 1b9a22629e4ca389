#include "tavo_midi/time_code.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdio>
#include <stdexcept>

#include "wide_arithmetic.h"

namespace tavo_midi {

namespace {

constexpr std::int64_t DroppedPerMinute = 2;
constexpr std::int64_t MinutesPerDay = 24 * 60;

/// The addresses that a second has, the missing ones included.
std::int64_t CountPerSecond(FrameRate frameRate) {
    switch (frameRate) {
        case FrameRate::Fps24:
            return 24;
        case FrameRate::Fps25:
            return 25;
        case FrameRate::Fps2997Drop:
        case FrameRate::Fps30:
            return 30;
    }
    throw std::out_of_range(
        fmt::format("{} is not a frame rate: the values are 0 to 3", static_cast<unsigned int>(frameRate)));
}

bool Drops(FrameRate frameRate) {
    return frameRate == FrameRate::Fps2997Drop;
}

unsigned int HoursByte(const TimeCode& timeCode, FrameRate frameRate) {
    return static_cast<unsigned int>(frameRate) << 5U | static_cast<unsigned int>(timeCode.hours);
}

}  // namespace

FrameRateFraction GetFrameRateFraction(FrameRate frameRate) {
    if (Drops(frameRate)) return {30000, 1001};
    return {CountPerSecond(frameRate), 1};
}

std::int64_t GetFramesPerDay(FrameRate frameRate) {
    const std::int64_t addresses = MinutesPerDay * 60 * CountPerSecond(frameRate);
    return Drops(frameRate) ? addresses - DroppedPerMinute * (MinutesPerDay - MinutesPerDay / 10) : addresses;
}

bool IsTimeCode(const TimeCode& timeCode, FrameRate frameRate) {
    const auto within = [](int value, std::int64_t end) { return value >= 0 && value < end; };
    if (!within(timeCode.hours, 24) || !within(timeCode.minutes, 60) || !within(timeCode.seconds, 60)) return false;
    if (!within(timeCode.frames, CountPerSecond(frameRate))) return false;
    const bool isDropped = timeCode.minutes % 10 != 0 && timeCode.seconds == 0 && timeCode.frames < DroppedPerMinute;
    return !Drops(frameRate) || !isDropped;
}

std::int64_t ConvertTimeCodeToFrames(const TimeCode& timeCode, FrameRate frameRate) {
    const std::int64_t minutes = timeCode.hours * 60 + timeCode.minutes;
    const std::int64_t address = (minutes * 60 + timeCode.seconds) * CountPerSecond(frameRate) + timeCode.frames;
    return Drops(frameRate) ? address - DroppedPerMinute * (minutes - minutes / 10) : address;
}

TimeCode ConvertFramesToTimeCode(std::int64_t frames, FrameRate frameRate) {
    const std::int64_t day = GetFramesPerDay(frameRate);
    std::int64_t address = (frames % day + day) % day;
    const std::int64_t count = CountPerSecond(frameRate);
    if (Drops(frameRate)) {
        const std::int64_t perMinute = 60 * count - DroppedPerMinute;
        const std::int64_t perTenMinutes = 10 * perMinute + DroppedPerMinute;
        const std::int64_t tens = address / perTenMinutes;
        const std::int64_t rest = address % perTenMinutes;
        // The first of ten minutes drops nothing and is longer by as much.
        const std::int64_t minutes = rest < DroppedPerMinute ? 0 : (rest - DroppedPerMinute) / perMinute;
        address += DroppedPerMinute * (9 * tens + minutes);
    }
    const auto part = [](std::int64_t value) { return static_cast<int>(value); };
    return {part(address / (3600 * count)), part(address / (60 * count) % 60), part(address / count % 60),
            part(address % count)};
}

std::int64_t ConvertNanosecondsToFrames(std::int64_t nanoseconds, FrameRate frameRate) {
    const FrameRateFraction rate = GetFrameRateFraction(frameRate);
    return DivideDown(Wide{nanoseconds} * rate.numerator, Wide{rate.denominator} * NanosecondsPerSecond);
}

std::int64_t ConvertFramesToNanoseconds(std::int64_t frames, FrameRate frameRate) {
    const FrameRateFraction rate = GetFrameRateFraction(frameRate);
    return DivideUp(Wide{frames} * rate.denominator * NanosecondsPerSecond, rate.numerator);
}

std::string ConvertTimeCodeToString(const TimeCode& timeCode, FrameRate frameRate) {
    return fmt::format("{:02}:{:02}:{:02}{}{:02}", timeCode.hours, timeCode.minutes, timeCode.seconds,
                       Drops(frameRate) ? ';' : ':', timeCode.frames);
}

TimeCode ConvertStringToTimeCode(const std::string& text, FrameRate frameRate) {
    TimeCode timeCode;
    char separator = 0;
    int length = 0;
    const bool isRead = std::sscanf(text.c_str(), "%2d:%2d:%2d%c%2d%n", &timeCode.hours, &timeCode.minutes,
                                    &timeCode.seconds, &separator, &timeCode.frames, &length) == 5 &&
                        static_cast<std::size_t>(length) == text.size() && (separator == ':' || separator == ';');
    if (!isRead || !IsTimeCode(timeCode, frameRate))
        throw std::out_of_range(fmt::format("\"{}\" is not a time code of {} frames a second, such as 01:00:00:00",
                                            text, ConvertFrameRateToString(frameRate)));
    return timeCode;
}

std::array<unsigned char, 10> MakeFullFrame(const TimeCode& timeCode, FrameRate frameRate) {
    const auto byte = [](unsigned int value) { return static_cast<unsigned char>(value); };
    return {0xF0,
            0x7F,
            0x7F,
            0x01,
            0x01,
            byte(HoursByte(timeCode, frameRate)),
            byte(static_cast<unsigned int>(timeCode.minutes)),
            byte(static_cast<unsigned int>(timeCode.seconds)),
            byte(static_cast<unsigned int>(timeCode.frames)),
            0xF7};
}

unsigned char MakeQuarterFrame(const TimeCode& timeCode, FrameRate frameRate, int piece) {
    const std::array<unsigned int, 4> values{
        static_cast<unsigned int>(timeCode.frames), static_cast<unsigned int>(timeCode.seconds),
        static_cast<unsigned int>(timeCode.minutes), HoursByte(timeCode, frameRate)};
    const auto index = static_cast<unsigned int>(piece);
    const unsigned int half = values[index / 2] >> (4 * (index % 2)) & 0xFU;
    return static_cast<unsigned char>(index << 4U | half);
}

}  // namespace tavo_midi
