// Music as MIDI through a real JACK server: each message on its sample, and nothing that a reader does holds up the
// sound.

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <jack/jack.h>
#include <jack/midiport.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "kit/file.h"
#include "kit/spsc_queue.h"
#include "stage/live/audio_output.h"
#include "stage/live/output_feed.h"
#include "tests/live/live_program.h"
#include "tests/stage/small_show.h"

namespace {

using namespace std::chrono_literals;

TEST(OutputFeedMidi, MessagesAreTakenInThePeriodsOfTheirFrames) {
    stage::OutputFeed feed;
    std::chrono::nanoseconds moment{0};
    std::array<float, 128> left{};
    std::array<float, 128> right{};
    const std::vector<float> sound(128, 0.1F);
    const auto take = [&] {
        feed.TakeFrames(left.data(), right.data(), 128, moment += 2667us);
        std::string taken;
        for (stage::MidiMessage message; feed.TakeMidi(message);)
            taken += fmt::format("{}@{} ", message.bytes[1], message.offset);
        return taken;
    };
    const auto push = [&](std::uint64_t frame, std::uint8_t key) {
        EXPECT_TRUE(feed.PushMidi(frame, {0, 0, 3, {0x90, key, 90}}));
    };
    EXPECT_EQ("", take());  // the silent period with which each device begins
    push(0, 60);
    push(127, 61);
    push(128, 62);
    push(130, 63);
    feed.GetRing().Write(sound.data(), sound.data(), 128);
    EXPECT_EQ("60@0 61@127 ", take());
    // The next frames are late, and so is what leaves with them.
    EXPECT_EQ("", take());
    feed.GetRing().Write(sound.data(), sound.data(), 128);
    EXPECT_EQ("62@0 63@2 ", take());
}

TEST(OutputFeedMidi, NobodyTakesThem_TheyAreDroppedWithTheirFrames) {
    stage::OutputFeed feed;
    std::chrono::nanoseconds moment{0};
    std::array<float, 128> left{};
    std::array<float, 128> right{};
    const std::vector<float> sound(128, 0.1F);
    feed.TakeFrames(left.data(), right.data(), 128, moment += 2667us);
    for (std::uint64_t period = 0; period < 1000; ++period) {
        for (std::uint64_t i = 0; i < 100; ++i)
            ASSERT_TRUE(feed.PushMidi(128 * period + i, {0, 0, 3, {0x90, 60, 90}})) << period;
        feed.GetRing().Write(sound.data(), sound.data(), 128);
        feed.TakeFrames(left.data(), right.data(), 128, moment += 2667us);
    }
}

/// A client that hears the main output's left side and a MIDI port: the frames at which the sound is above a half, and
/// the messages with theirs, both on its own count.
class MidiListener {
public:
    struct Heard {
        std::uint64_t frame = 0;
        bool isSound = false;
        std::array<std::uint8_t, 3> bytes{};
    };

    explicit MidiListener(const std::string& midiPort) {
        client_ = jack_client_open("midi-listener", JackNoStartServer, nullptr);
        sound_ = jack_port_register(client_, "sound", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
        midi_ = jack_port_register(client_, "midi", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
        jack_set_process_callback(client_, &MidiListener::OnProcess_, this);
        jack_activate(client_);
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (!Connect_(midiPort) && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(5ms);
        EXPECT_TRUE(Connect_(midiPort));
    }
    ~MidiListener() { jack_client_close(client_); }
    MidiListener(const MidiListener&) = delete;
    MidiListener& operator=(const MidiListener&) = delete;

    [[nodiscard]] bool Take(Heard& heard) { return heard_.Pop(heard); }

private:
    bool Connect_(const std::string& midiPort) {
        const auto connect = [this](const std::string& from, jack_port_t* to) {
            const int result = jack_connect(client_, from.c_str(), jack_port_name(to));
            return result == 0 || result == EEXIST;
        };
        return connect("tavo-sound:main_left", sound_) && connect("tavo-sound:" + midiPort, midi_);
    }
    static int OnProcess_(jack_nframes_t frames, void* self) {
        auto& listener = *static_cast<MidiListener*>(self);
        const auto* const sound = static_cast<const float*>(jack_port_get_buffer(listener.sound_, frames));
        for (jack_nframes_t i = 0; i < frames; ++i)
            if (sound[i] > 0.5F) (void)listener.heard_.Push({listener.frame_ + i, true, {}});
        void* const midi = jack_port_get_buffer(listener.midi_, frames);
        for (jack_nframes_t i = 0; i < jack_midi_get_event_count(midi); ++i) {
            jack_midi_event_t event{};
            jack_midi_event_get(&event, midi, i);
            Heard heard{listener.frame_ + event.time, false, {}};
            std::copy_n(event.buffer, std::min<std::size_t>(event.size, 3), heard.bytes.begin());
            (void)listener.heard_.Push(heard);
        }
        listener.frame_ += frames;
        return 0;
    }

    jack_client_t* client_ = nullptr;
    jack_port_t* sound_ = nullptr;
    jack_port_t* midi_ = nullptr;
    std::uint64_t frame_ = 0;  // used by the callback
    kit::SpscQueue<Heard, 65536> heard_;
};

class MidiOutJack : public test_support::SmallShow {
protected:
    void SetUp() override {
        // The listener shares libjack's memory with the output, ordered by a server that a sanitizer does not see.
        if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
        if (!test_support::EnterOwnSharedMemory())
            GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
        server_ = test_support::StartJackServer();
        if (server_ == nullptr) GTEST_SKIP() << "No JACK server with the dummy driver can be started here.";
    }

    std::unique_ptr<test_support::Child> server_;
};

struct HeardTogether {
    std::vector<std::pair<std::uint64_t, int>> sounds;
    std::vector<std::pair<std::uint64_t, int>> messages;
    std::uint64_t latePeriods = 0;
};

/// Plays so many messages and, at the same frames, samples that are loud.
HeardTogether PlayTogether(int count) {
    stage::OutputFeed feed;
    stage::OutputChoice choice;
    choice.kind = stage::OutputChoice::Kind::Jack;
    choice.midiPorts = {"other", "keys"};
    const auto output = stage::OpenOutput(choice, feed);
    MidiListener listener("keys");
    std::mt19937 random(5);
    std::map<std::uint64_t, int> frames;
    std::uint64_t frame = 1000;
    for (int i = 0; i < count; ++i)
        frames[frame += 1 + static_cast<unsigned int>(random()) % 300] = i;
    HeardTogether all;
    const std::size_t wanted = frames.size();
    const auto end = std::chrono::steady_clock::now() + 60s;
    std::uint64_t written = 0;
    while ((all.sounds.size() < wanted || all.messages.size() < wanted) && feed.CountLatePeriods() == 0 &&
           std::chrono::steady_clock::now() < end) {
        if (feed.GetRing().CountWaiting() < 4096) {
            std::array<float, 64> block{};
            for (auto next = frames.lower_bound(written); next != frames.end() && next->first < written + 64; ++next) {
                block.at(next->first - written) = 0.9F;
                const auto number = static_cast<unsigned int>(next->second);
                EXPECT_TRUE(feed.PushMidi(next->first, {0,
                                                        1,
                                                        3,
                                                        {0x90, static_cast<std::uint8_t>(number % 128),
                                                         static_cast<std::uint8_t>(1 + number / 128)}}));
            }
            feed.GetRing().Write(block.data(), block.data(), 64);
            written += 64;
        } else {
            std::this_thread::sleep_for(1ms);
        }
        for (MidiListener::Heard heard; listener.Take(heard);) {
            if (heard.isSound) {
                all.sounds.emplace_back(heard.frame, static_cast<int>(all.sounds.size()));
            } else if (heard.bytes[0] == 0x90) {
                all.messages.emplace_back(heard.frame, heard.bytes[1] + 128 * (heard.bytes[2] - 1));
            }
        }
    }
    all.latePeriods = feed.CountLatePeriods();
    return all;
}

TEST_F(MidiOutJack, EveryMessage_IsOnTheSampleOfItsFrame) {
    constexpr int Messages = 400;
    constexpr int MostAttempts = 10;
    HeardTogether heard = PlayTogether(Messages);
    // What comes too late on a busy machine is faded out and in, and no loud sample any more.
    for (int attempt = 1; heard.latePeriods > 0 && attempt < MostAttempts; ++attempt)
        heard = PlayTogether(Messages);
    ASSERT_EQ(0U, heard.latePeriods);
    ASSERT_EQ(static_cast<std::size_t>(Messages), heard.messages.size());
    EXPECT_EQ(heard.sounds, heard.messages);
}

TEST_F(MidiOutJack, ShowJumpsAtRandom_NoNoteIsLeftOnAtTheReader) {
    if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
    const char* const count = std::getenv("TAVO_MIDI_JUMPS");
    const int jumps = count != nullptr ? std::atoi(count) : 60;
    kit::ReplaceFileDurably(Show() + "/settings.json",
                            R"({"groups": [{"name": "piano", "parts": ["*"], "midiPort": "keys"}]})");
    test_support::LiveProgram play({Show(), "--output", "jack"});
    play.WaitFor("song", {{"song", "1"}});
    MidiListener listener("keys");
    play.Press("play");
    play.WaitFor("started");
    std::mt19937 random(17);
    for (int jump = 0; jump < jumps; ++jump) {
        play.Press(fmt::format("seek {}:{}", 1 + static_cast<unsigned int>(random()) % 18,
                               1 + static_cast<unsigned int>(random()) % 4));
        play.WaitFor("jump");
    }
    play.Press("stop");
    play.WaitFor("stopped");
    // What was pressed last has been heard when the next press is.
    play.Press("play");
    play.WaitFor("started");
    play.Press("panic");
    play.WaitFor("stopped");
    std::map<std::pair<int, int>, int> on;
    int notes = 0;
    bool isSilenced = false;
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!isSilenced && std::chrono::steady_clock::now() < end) {
        for (MidiListener::Heard heard; listener.Take(heard);) {
            if (heard.isSound) continue;
            const int kind = heard.bytes[0] & 0xF0;
            const std::pair<int, int> note{heard.bytes[0] & 0x0F, heard.bytes[1]};
            if (kind == 0x90) {
                ++on[note];
                ++notes;
            }
            if (kind == 0x80) --on[note];
            isSilenced = isSilenced || (kind == 0xB0 && heard.bytes[1] == 120);
        }
    }
    EXPECT_TRUE(isSilenced);
    EXPECT_GT(notes, jumps / 4);
    for (const auto& [note, left] : on)
        EXPECT_LE(left, 0) << "key " << note.second << " of channel " << note.first;
    play.Quit();
}

}  // namespace
