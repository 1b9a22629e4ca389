#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "tavo_midi/time_code.h"

namespace tavo_midi {

/// A full frame or a quarter frame.
struct TimeCodeMessage {
    std::int64_t at = 0;                    ///< in the generator's units
    std::array<unsigned char, 10> bytes{};  ///< the first `size` of them are the message, status byte included
    unsigned char size = 0;                 ///< 10 for a full frame, 2 for a quarter frame
};

/// Turns orders into the messages of MIDI time code with their exact moments, counted in units of any clock: samples or
/// nanoseconds. For outputs that time them by themselves (MidiOutput::RunTimeCode). Real-time safe.
class TimeCodeGenerator {
public:
    /// Later than every moment.
    static constexpr std::int64_t Never = std::numeric_limits<std::int64_t>::max();

    /// A TimeCodeOrder whose moment is counted in units.
    struct Order {
        std::int64_t at = 0;                     ///< in the generator's units
        FrameRate frameRate = FrameRate::Fps30;  ///< of all messages that the order brings
        std::int64_t positionNs = 0;             ///< time of day at `at`; it may lie beyond a day
        bool rolls = false;                      ///< quarter frames follow
    };

    /// Of the clock whose units are counted: a sample rate, or a thousand million for nanoseconds. Above 0.
    explicit TimeCodeGenerator(std::int64_t unitsPerSecond) : unitsPerSecond_(unitsPerSecond) {}

    /// Units in a span of time, to the nearest.
    [[nodiscard]] std::int64_t CountUnits(std::chrono::nanoseconds time) const;
    /// Takes back orders for later moments. Of more than sixteen that are to come the last ones count.
    void Post(const Order& order);
    /// The next message before `end`, if there is one. Now is `from`: what is late by more than a tenth of a second is
    /// left out and made good by a full frame.
    bool Next(std::int64_t from, std::int64_t end, TimeCodeMessage& message);
    /// The moment of the next message or order, or Never.
    [[nodiscard]] std::int64_t GetNextAt() const;
    /// Orders whose moment is at or before `now` and whose full frame has not been given out yet.
    [[nodiscard]] std::size_t CountDue(std::int64_t now) const;

private:
    [[nodiscard]] std::int64_t GetQuarterAt_() const;
    void BeginAt_(std::int64_t at, TimeCodeMessage& message);

    const std::int64_t unitsPerSecond_;
    std::array<Order, 16> pending_{};
    std::size_t pendingCount_ = 0;
    Order current_{};
    std::int64_t nextQuarter_ = 0;  ///< counted from position 0 of the day
    bool rolls_ = false;
};

}  // namespace tavo_midi
