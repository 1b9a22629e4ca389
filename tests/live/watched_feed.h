#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "stage/live/audio_output.h"
#include "stage/live/output_feed.h"

namespace test_support {

/// Watches the feed while the device takes frames from it. `Watch` begins before it and ends after, on the device's
/// thread.
template <class Watch>
class WatchedFeed final : public stage::FrameSource {
public:
    using FrameSource::TakeFrames;
    void TakeFrames(std::span<const stage::StereoBuffer> pairs, std::uint32_t frames,
                    std::chrono::nanoseconds moment) noexcept override {
        Watch::PrepareThread();
        {
            const typename Watch::Scope watch;
            feed.TakeFrames(pairs, frames, moment);
        }
        ++calls;
    }
    void NoteFormat(const stage::OutputFormat& format) noexcept override { feed.NoteFormat(format); }

    stage::OutputFeed feed{3};
    std::atomic<int> calls{0};
};

inline void WaitForCalls(const std::atomic<int>& calls, int wanted) {
    using namespace std::chrono_literals;
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (calls < wanted && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(2ms);
    ASSERT_GE(calls, wanted) << "the device does not call";
}

/// Whole periods, then none, then whole ones again: fading out and in is part of the callback.
template <class Watch>
void PlayWholeLateAndReturningPeriods(WatchedFeed<Watch>& source) {
    stage::OutputChoice choice;
    choice.kind = stage::OutputChoice::Kind::Jack;
    choice.furtherPairs = {{"click", ""}, {"band", ""}};
    const auto output = stage::OpenOutput(choice, source);
    const std::vector<float> sound(128, 0.25F);
    for (int round = 0; round < 3; ++round) {
        for (int period = 0; period < 20; ++period)
            source.feed.GetRing().Write(sound.data(), sound.data(), 128);
        WaitForCalls(source.calls, source.calls + 40);
    }
}

}  // namespace test_support
