#include "stage/engine/synth.h"

#include <gtest/gtest.h>

#include <set>

#include <algorithm>
#include <cmath>

#include "stage/engine/sound_font.h"

namespace {

using stage::ChannelHistory;
using stage::ChannelState;
using stage::Synth;
using stage::SynthMessage;
using tavo_midi::MidiEvent;

class SynthTest : public testing::Test {
protected:
    SynthTest() {
        synth.SetObserver([this](const SynthMessage& message) { messages.push_back(message); });
    }

    float PeakOfNext(std::uint32_t frames) {
        std::vector<float> left(frames);
        std::vector<float> right(frames);
        synth.Render(left.data(), right.data(), frames);
        synth.FinishRendering();
        float peak = 0;
        for (const float sample : left)
            peak = std::max(peak, std::fabs(sample));
        return peak;
    }
    std::vector<int> KeysOf(std::uint8_t status) const {
        std::vector<int> keys;
        for (const SynthMessage& message : messages)
            if (message.status == status) keys.push_back(message.data1);
        return keys;
    }

    std::vector<SynthMessage> messages;
    Synth synth{stage::FindDefaultSoundFont(), 48000, 20};
};

using Keys = std::vector<int>;

TEST_F(SynthTest, ChannelsAreWholePorts) {
    EXPECT_EQ(32U, synth.CountChannels());
}

TEST_F(SynthTest, TransposedNote_EndsWithThePitchItWasStruckAt) {
    synth.PlayNote(0, 60, 100, 5);
    synth.EndNote(0, 60);
    EXPECT_EQ((Keys{65}), KeysOf(0x90));
    EXPECT_EQ((Keys{65}), KeysOf(0x80));
    EXPECT_EQ(0U, synth.CountSoundingNotes());
}

TEST_F(SynthTest, StruckAgainAtAnotherTransposition_EndsTheFirstPitch) {
    synth.PlayNote(0, 60, 100, 0);
    synth.PlayNote(0, 60, 100, 2);
    synth.EndNote(0, 60);
    EXPECT_EQ((Keys{60, 62}), KeysOf(0x80));
    EXPECT_EQ(0U, synth.CountSoundingNotes());
}

TEST_F(SynthTest, PercussionOfEveryPort_IsNotTransposed) {
    synth.PlayNote(9, 36, 100, 3);
    synth.PlayNote(25, 36, 100, 3);
    EXPECT_EQ((Keys{36, 36}), KeysOf(0x90));
}

TEST_F(SynthTest, EndOfANoteThatDoesNotSound_IsNotSent) {
    synth.EndNote(0, 60);
    EXPECT_TRUE(messages.empty());
}

TEST_F(SynthTest, ChannelBeyondTheLast_IsIgnored) {
    synth.PlayNote(200, 60, 100, 0);
    EXPECT_TRUE(messages.empty());
}

TEST_F(SynthTest, EndAllNotes_WithThePedalDown_FallsSilent) {
    synth.PlayMessage({0, 0xB0, stage::controller::Sustain, 127, 0});
    synth.PlayNote(0, 60, 110, 0);
    EXPECT_GT(PeakOfNext(9600), 0.001F);
    synth.EndAllNotes();
    EXPECT_EQ(0U, synth.CountSoundingNotes());
    PeakOfNext(3 * 48000);
    EXPECT_LT(PeakOfNext(4800), 1e-4F);
}

TEST_F(SynthTest, AllNotesOffMessage_ForgetsTheNotes) {
    synth.PlayNote(0, 60, 100, 0);
    synth.PlayMessage({0, 0xB0, stage::controller::AllNotesOff, 0, 0});
    EXPECT_EQ(0U, synth.CountSoundingNotes());
}

TEST_F(SynthTest, ApplyStates_SendsOnlyWhatDiffers) {
    std::vector<ChannelState> states(synth.CountChannels());
    synth.ApplyStates(states);
    EXPECT_TRUE(messages.empty());
    states[3].controllers[7] = 90;
    states[3].program = 40;
    states[3].pitchBend = 9000;
    synth.ApplyStates(states);
    EXPECT_EQ((Keys{0, 32, 7}), KeysOf(0xB0));
    EXPECT_EQ((Keys{40}), KeysOf(0xC0));
    EXPECT_EQ(1U, KeysOf(0xE0).size());
    messages.clear();
    synth.ApplyStates(states);
    EXPECT_TRUE(messages.empty());
}

TEST(Synth, FileThatIsNoSoundFont_IsRefusedWithASentence) {
    try {
        const Synth synth("/dev/null", 48000, 16);
        FAIL();
    } catch (const std::runtime_error& problem) {
        EXPECT_STREQ("the file \"/dev/null\" cannot be read as a SoundFont", problem.what());
    }
}

TEST(TransposeKey, FoldsBackByOctaves) {
    EXPECT_EQ(60, stage::TransposeKey(60, 0));
    EXPECT_EQ(127, stage::TransposeKey(127, 0));
    EXPECT_EQ(116, stage::TransposeKey(127, 1));
    EXPECT_EQ(11, stage::TransposeKey(0, -1));
    EXPECT_EQ(127, stage::TransposeKey(127, 24));
    EXPECT_EQ(0, stage::TransposeKey(12, -24));
}

TEST(ChannelHistory, AnyTick_IsWhatPlayingThereLeaves) {
    std::vector<MidiEvent> events;
    std::uint32_t seed = 7;
    const auto next = [&seed]() { return (seed = seed * 1103515245U + 12345U) >> 16U & 0x7FFFU; };
    for (std::uint32_t tick = 0; tick < 3000; tick += next() % 5) {
        const auto channel = static_cast<std::uint8_t>(next() % 3);
        const auto number = static_cast<std::uint8_t>(next() % 128);
        const auto value = static_cast<std::uint8_t>(next() % 128);
        const std::uint8_t kinds[] = {0xB0, 0xB0, 0xB0, 0xC0, 0xD0, 0xE0, 0x90};
        events.push_back({tick, static_cast<std::uint8_t>(kinds[next() % 7] | channel), number, value, 0});
    }
    const ChannelHistory history(events);
    std::vector<ChannelState> found(16);
    for (std::uint32_t tick = 0; tick <= 3001; tick += 11) {
        std::vector<ChannelState> played(16);
        for (const MidiEvent& event : events)
            if (event.tick < tick) stage::ApplyMessage(played[stage::ChannelOf(event)], event);
        history.FindStateBefore(tick, found);
        ASSERT_EQ(played, found) << tick;
    }
}

TEST(ChannelHistory, PitchBendRange_IsKeptAsAParameter) {
    const ChannelHistory history({{0, 0xB0, 101, 0, 0}, {0, 0xB0, 100, 0, 0}, {0, 0xB0, 6, 12, 0}});
    std::vector<ChannelState> found(1);
    history.FindStateBefore(1, found);
    EXPECT_EQ(12 << 7, found[0].parameters[0]);
}

// General MIDI's own numbers: bank, volume, pan, the ten sound controllers and the five effect levels.
TEST(ChannelState, ResetOfTheControllers_LeavesExactlyTheSettingsOfTheSound) {
    const std::set<int> kept{0, 7, 10, 32, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79, 91, 92, 93, 94, 95};
    ChannelState state;
    for (std::uint8_t number = 0; number < 120; ++number)
        stage::ApplyMessage(state, {0, 0xB0, number, 33, 0});
    stage::ApplyMessage(state, {0, 0xB0, 121, 0, 0});
    for (int number = 0; number < 120; ++number)
        EXPECT_EQ(kept.contains(number), state.controllers[static_cast<std::size_t>(number)] == 33) << number;
}

TEST(ChannelState, Initially_HasTheMiddleForEachSoundController) {
    const ChannelState state;
    for (std::size_t number = 68; number <= 81; ++number)
        EXPECT_EQ(number >= 70 && number <= 79 ? 64 : 0, state.controllers[number]) << number;
}

}  // namespace
