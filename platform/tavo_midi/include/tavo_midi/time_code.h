#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "tavo_midi/frame_rate.h"

namespace tavo_midi {

/// A frame's address within a day (SMPTE ST 12-1). At 29.97 drop the addresses :00 and :01 are missing in the first
/// second of every minute that is not a multiple of ten.
struct TimeCode {
    int hours = 0;    ///< 0 to 23
    int minutes = 0;  ///< 0 to 59
    int seconds = 0;  ///< 0 to 59
    int frames = 0;   ///< 0 up to, but not including, the frame rate's count: 24, 25 or 30

    /// All fields count; the frame rate is not among them.
    bool operator==(const TimeCode&) const = default;
};

/// Frames a second as a fraction, 30000 / 1001 for 29.97 drop.
struct FrameRateFraction {
    std::int64_t numerator;    ///< 24, 25, 30 or 30000
    std::int64_t denominator;  ///< 1 or 1001
};

// All functions here are for any thread; those without texts are real-time safe.

/// A value that is not a frame rate throws std::out_of_range with a sentence.
[[nodiscard]] FrameRateFraction GetFrameRateFraction(FrameRate frameRate);
/// Frames from 00:00:00:00 to the next one: the addresses of a day.
[[nodiscard]] std::int64_t GetFramesPerDay(FrameRate frameRate);
/// Whether it is an address of a day at that rate, not left out by drop frame.
[[nodiscard]] bool IsTimeCode(const TimeCode& timeCode, FrameRate frameRate);

/// The number of frames before `timeCode`, which must be an address of the frame rate.
[[nodiscard]] std::int64_t ConvertTimeCodeToFrames(const TimeCode& timeCode, FrameRate frameRate);
/// The address of a frame; counting goes on from the last frame of a day to the first, both ways.
[[nodiscard]] TimeCode ConvertFramesToTimeCode(std::int64_t frames, FrameRate frameRate);

/// The frame that runs at a time, both counted from 0 and negative before it. Exact over any length.
[[nodiscard]] std::int64_t ConvertNanosecondsToFrames(std::int64_t nanoseconds, FrameRate frameRate);
/// The first nanosecond that belongs to a frame, so that the two lead back to the frame. Exact over any length.
[[nodiscard]] std::int64_t ConvertFramesToNanoseconds(std::int64_t frames, FrameRate frameRate);

/// "01:02:03:04"; at 29.97 drop with a semicolon before the frames.
[[nodiscard]] std::string ConvertTimeCodeToString(const TimeCode& timeCode, FrameRate frameRate);
/// Takes either separator. A text that is not an address of the frame rate throws std::out_of_range with a sentence.
[[nodiscard]] TimeCode ConvertStringToTimeCode(const std::string& text, FrameRate frameRate);

/// The ten bytes of a full frame (MIDI 1.0, real-time universal System Exclusive, to all devices).
[[nodiscard]] std::array<unsigned char, 10> MakeFullFrame(const TimeCode& timeCode, FrameRate frameRate);
/// The second byte of quarter frame `piece`, 0 to 7, of the two frames that begin at `timeCode`.
[[nodiscard]] unsigned char MakeQuarterFrame(const TimeCode& timeCode, FrameRate frameRate, int piece);

}  // namespace tavo_midi
