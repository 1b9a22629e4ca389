// More than one stereo pair on its way to the device: the ring, the feed, and the ports of a real JACK server.

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <jack/jack.h>

#include <array>
#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>
#include <vector>

#include "stage/live/audio_output.h"
#include "stage/live/frame_ring.h"
#include "stage/live/output_feed.h"
#include "stage/live/rate_converter.h"
#include "tests/midi_ports/jack_server.h"

namespace {

using namespace std::chrono_literals;

/// Stereo pairs with memory.
struct PairSamples {
    PairSamples(std::size_t pairs, std::size_t frames) : samples(2 * pairs, std::vector<float>(frames, -1.0F)) {
        for (std::size_t pair = 0; pair < pairs; ++pair)
            buffers.push_back({samples[2 * pair].data(), samples[2 * pair + 1].data()});
    }
    void FillUp() {
        for (std::size_t i = 0; i < samples.size(); ++i)
            std::iota(samples[i].begin(), samples[i].end(), static_cast<float>(1000 * i));
    }

    std::vector<std::vector<float>> samples;
    std::vector<stage::StereoBuffer> buffers;
};

TEST(FrameRing, SeveralPairsAcrossItsEnd_ComeOutAsTheyWentIn) {
    stage::FrameRing ring(3);
    PairSamples in(3, 100);
    in.FillUp();
    for (int round = 0; round < 200; ++round) {
        ring.Write(in.buffers, 100);
        PairSamples out(3, 100);
        ASSERT_EQ(60U, ring.Take(out.buffers, 60));
        for (stage::StereoBuffer& pair : out.buffers)
            pair = {pair.left + 60, pair.right + 60};
        ASSERT_EQ(40U, ring.Take(out.buffers, 40));
        ASSERT_EQ(in.samples, out.samples) << "round " << round;
    }
}

TEST(FrameRing, OtherNumberOfPairsGiven_MissingOnesAreSilentAndOthersLeftOut) {
    stage::FrameRing ring(2);
    PairSamples in(3, 10);
    in.FillUp();
    ring.Write(in.buffers, 10);
    PairSamples out(3, 10);
    ASSERT_EQ(10U, ring.Take(out.buffers, 10));
    for (std::size_t channel = 0; channel < 4; ++channel)
        EXPECT_EQ(in.samples[channel], out.samples[channel]);
    EXPECT_EQ(std::vector<float>(10), out.samples[4]);

    ring.Write(in.samples[0].data(), in.samples[1].data(), 10);
    ring.Take(out.buffers, 10);
    EXPECT_EQ(in.samples[1], out.samples[1]);
    EXPECT_EQ(std::vector<float>(10), out.samples[2]) << "nothing of the round before is left";
}

TEST(RateConverter, SeveralPairs_AreConvertedAsEachAlone) {
    constexpr std::uint32_t Block = 64;
    stage::RateConverter together(48000, 44100, Block, 3);
    std::array<stage::RateConverter, 3> alone{stage::RateConverter(48000, 44100, Block, 1),
                                              stage::RateConverter(48000, 44100, Block, 1),
                                              stage::RateConverter(48000, 44100, Block, 1)};
    PairSamples in(3, Block);
    for (int round = 0; round < 50; ++round) {
        for (std::size_t channel = 0; channel < 6; ++channel)
            for (std::size_t i = 0; i < Block; ++i)
                in.samples[channel][i] = static_cast<float>((i * (channel + 3) + static_cast<unsigned>(round)) % 17);
        const std::uint32_t frames = together.Convert(in.buffers, Block);
        for (std::size_t pair = 0; pair < 3; ++pair) {
            ASSERT_EQ(frames, alone[pair].Convert({&in.buffers[pair], 1}, Block));
            for (std::uint32_t i = 0; i < frames; ++i) {
                ASSERT_FLOAT_EQ(alone[pair].GetPairs()[0].left[i], together.GetPairs()[pair].left[i]);
                ASSERT_FLOAT_EQ(alone[pair].GetPairs()[0].right[i], together.GetPairs()[pair].right[i]);
            }
        }
    }
}

TEST(OutputFeedPairs, FramesMissing_EachPairDiesAwayFromItsOwnLastValue) {
    stage::OutputFeed feed(2);
    PairSamples out(2, 128);
    std::chrono::nanoseconds moment{0};
    const auto take = [&] { feed.TakeFrames(out.buffers, 128, moment += 2667us); };
    take();
    PairSamples in(2, 128);
    for (std::size_t channel = 0; channel < 4; ++channel)
        std::fill(in.samples[channel].begin(), in.samples[channel].end(), 0.2F * static_cast<float>(channel));
    feed.GetRing().Write(in.buffers, 128);
    take();
    EXPECT_EQ(in.samples, out.samples);
    take();
    for (std::size_t channel = 0; channel < 4; ++channel) {
        EXPECT_NEAR(0.2F * static_cast<float>(channel), out.samples[channel].front(), 0.02F);
        EXPECT_NEAR(0, out.samples[channel].back(), 0.1F * static_cast<float>(channel));
    }
}

/// Each pair plays a value of its own on each side.
class ConstantPairs final : public stage::FrameSource {
public:
    void TakeFrames(std::span<const stage::StereoBuffer> pairs, std::uint32_t frames,
                    std::chrono::nanoseconds) noexcept override {
        for (std::size_t pair = 0; pair < pairs.size(); ++pair) {
            std::fill_n(pairs[pair].left, frames, ValueOf(2 * pair));
            std::fill_n(pairs[pair].right, frames, ValueOf(2 * pair + 1));
        }
    }
    void NoteFormat(const stage::OutputFormat&) noexcept override {}
    [[nodiscard]] static float ValueOf(std::size_t channel) { return 0.01F * static_cast<float>(channel + 1); }
};

/// A client that hears one value from each of several ports.
class Listener {
public:
    explicit Listener(const std::vector<std::string>& ports) : heard_(ports.size()) {
        client_ = jack_client_open("listener", JackNoStartServer, nullptr);
        for (std::size_t i = 0; i < ports.size(); ++i)
            ports_.push_back(jack_port_register(client_, fmt::format("in_{}", i).c_str(), JACK_DEFAULT_AUDIO_TYPE,
                                                JackPortIsInput, 0));
        jack_set_process_callback(client_, &Listener::OnProcess_, this);
        jack_activate(client_);
        for (std::size_t i = 0; i < ports.size(); ++i)
            EXPECT_EQ(0, jack_connect(client_, ports[i].c_str(), jack_port_name(ports_[i]))) << ports[i];
    }
    ~Listener() { jack_client_close(client_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    [[nodiscard]] float WaitForValue(std::size_t port) const {
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (heard_[port] == 0.0F && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(1ms);
        return heard_[port];
    }
    [[nodiscard]] std::vector<std::string> ListConnections(const std::string& port) const {
        std::vector<std::string> names;
        const char** const found = jack_port_get_all_connections(client_, jack_port_by_name(client_, port.c_str()));
        for (std::size_t i = 0; found != nullptr && found[i] != nullptr; ++i)
            if (!std::string(found[i]).starts_with("listener:")) names.emplace_back(found[i]);
        jack_free(static_cast<void*>(found));
        return names;
    }

private:
    static int OnProcess_(jack_nframes_t frames, void* self) {
        auto& listener = *static_cast<Listener*>(self);
        for (std::size_t i = 0; i < listener.ports_.size(); ++i)
            listener.heard_[i] = static_cast<const float*>(jack_port_get_buffer(listener.ports_[i], frames))[0];
        return 0;
    }

    jack_client_t* client_ = nullptr;
    std::vector<jack_port_t*> ports_;
    std::vector<std::atomic<float>> heard_;
};

TEST(JackPairs, EachPairHasItsPortsAndIsConnectedWhereItIsAskedTo) {
    // The listener shares libjack's memory with the output, ordered by a server that a sanitizer does not see.
    if (test_support::IsSanitized) GTEST_SKIP() << "Two clients of one process are too many for a sanitizer.";
    if (!test_support::EnterOwnSharedMemory())
        GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
    const auto server = test_support::StartJackServer();
    if (server == nullptr) GTEST_SKIP() << "No JACK server with the dummy driver can be started here.";
    stage::OutputChoice choice;
    choice.kind = stage::OutputChoice::Kind::Jack;
    choice.furtherPairs = {{"click", ""}, {"band", "system:playback_1"}, {"singers", "sys"}};
    ConstantPairs source;
    const auto output = stage::OpenOutput(choice, source);
    std::vector<std::string> ports;
    for (const char* name : {"main", "click", "band", "singers"})
        for (const char* side : {"left", "right"})
            ports.push_back(fmt::format("tavo-sound:{}_{}", name, side));
    const Listener listener(ports);
    for (std::size_t i = 0; i < ports.size(); ++i)
        EXPECT_EQ(ConstantPairs::ValueOf(i), listener.WaitForValue(i)) << ports[i];

    using Names = std::vector<std::string>;
    EXPECT_EQ(Names{"system:playback_1"}, listener.ListConnections("tavo-sound:main_left"));
    EXPECT_EQ(Names{"system:playback_2"}, listener.ListConnections("tavo-sound:main_right"));
    EXPECT_EQ(Names(), listener.ListConnections("tavo-sound:click_left"));
    EXPECT_EQ(Names(), listener.ListConnections("tavo-sound:click_right"));
    EXPECT_EQ(Names{"system:playback_1"}, listener.ListConnections("tavo-sound:band_left"));
    EXPECT_EQ(Names{"system:playback_2"}, listener.ListConnections("tavo-sound:band_right"));
    EXPECT_EQ(Names{"system:playback_1"}, listener.ListConnections("tavo-sound:singers_left"));
    EXPECT_EQ("", output->TakeRemark());
}

}  // namespace
