// The music as MIDI: what leaves for the groups with a port, at which frames, and that no note is left on.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "tests/support/show_builder.h"

using stage::MidiOutEvent;
using test_support::TestShow;

namespace {

struct Sent {
    std::vector<MidiOutEvent> events;
    std::vector<stage::SynthMessage> messages;
    std::vector<std::string> ports;
    std::vector<float> left;
};

Sent PlayAsMidi(const char* settings, const std::string& script, unsigned int bars = 3, const char* edits = "") {
    TestShow show;
    show.Song("1", bars).Edits(edits);
    show.settings = settings;
    Sent sent;
    stage::ShowSession* opened = nullptr;
    const auto performance = show.Perform([&](stage::ShowSession& session) {
        opened = &session;
        session.GetMidiOut().SetSink([&](const MidiOutEvent& event) { sent.events.push_back(event); });
        sent.ports = session.GetMidiOut().GetPorts();
        return show.MakeOptions(script.c_str());
    });
    EXPECT_NE(nullptr, opened);
    sent.messages = performance.messages;
    sent.left = performance.left;
    return sent;
}

constexpr const char* Keys = R"({"groups": [{"name": "piano", "channels": [1], "midiPort": "keys"}]})";

std::vector<std::pair<std::int64_t, int>> NotesOf(const std::vector<MidiOutEvent>& events, std::uint8_t status) {
    std::vector<std::pair<std::int64_t, int>> notes;
    for (const MidiOutEvent& event : events)
        if ((event.bytes[0] & 0xF0U) == status) notes.emplace_back(event.frame, event.bytes[1]);
    return notes;
}

/// Notes that were begun and not ended, port, channel and key.
std::set<std::tuple<int, int, int>> FindNotesLeftOn(const std::vector<MidiOutEvent>& events) {
    std::map<std::tuple<int, int, int>, int> on;
    for (const MidiOutEvent& event : events) {
        const int channel = event.bytes[0] & 0x0F;
        const int kind = event.bytes[0] & 0xF0;
        if (kind == 0x90) ++on[{event.port, channel, event.bytes[1]}];
        if (kind == 0x80) --on[{event.port, channel, event.bytes[1]}];
    }
    std::set<std::tuple<int, int, int>> left;
    for (const auto& [note, count] : on)
        if (count > 0) left.insert(note);
    return left;
}

TEST(MidiOut, Notes_LeaveAtTheFramesAtWhichTheyArePlayed) {
    const Sent sent = PlayAsMidi(Keys, "");
    EXPECT_EQ(std::vector<std::string>{"keys"}, sent.ports);
    std::vector<std::pair<std::int64_t, int>> expected;
    for (int beat = 0; beat < 12; ++beat)
        expected.emplace_back(24'000 * beat, TestShow::KeyBeforeFirstBar + 1 + beat / 4);
    EXPECT_EQ(expected, NotesOf(sent.events, 0x90));
    EXPECT_EQ(12U, NotesOf(sent.events, 0x80).size());
    EXPECT_TRUE(FindNotesLeftOn(sent.events).empty());
}

TEST(MidiOut, GroupWithoutAPortOrWithoutTheNotes_SendsNone) {
    EXPECT_TRUE(PlayAsMidi(R"({"groups": [{"name": "piano", "channels": [1]}]})", "").events.empty());
    const Sent other = PlayAsMidi(R"({"groups": [{"name": "piano", "channels": [2], "midiPort": "keys"}]})", "");
    EXPECT_TRUE(NotesOf(other.events, 0x90).empty());
}

TEST(MidiOut, MutedGroup_LeavesAsMidiAllTheSame) {
    const Sent sent = PlayAsMidi(Keys, "at 1 mute piano");
    EXPECT_EQ(12U, NotesOf(sent.events, 0x90).size());
    for (std::size_t i = 4096; i < sent.left.size(); ++i)
        ASSERT_EQ(0.0F, sent.left[i]);
}

TEST(MidiOut, Transposed_SendsTheKeysThatSound) {
    const auto notes = NotesOf(PlayAsMidi(Keys, "", 2, "transpose 1 2 5").events, 0x90);
    ASSERT_EQ(8U, notes.size());
    EXPECT_EQ(TestShow::KeyBeforeFirstBar + 6, notes.front().second);
}

TEST(MidiOut, SongPutIn_TellsProgramAndControllersBeforeItsNotes) {
    const Sent sent = PlayAsMidi(Keys, "");
    const auto isProgram = [](const MidiOutEvent& event) { return event.bytes[0] == 0xC0; };
    const auto isVolume = [](const MidiOutEvent& event) { return event.bytes[0] == 0xB0 && event.bytes[1] == 7; };
    const auto isNote = [](const MidiOutEvent& event) { return event.bytes[0] == 0x90; };
    const auto note = std::ranges::find_if(sent.events, isNote);
    EXPECT_LT(std::ranges::find_if(sent.events, isProgram), note);
    EXPECT_LT(std::ranges::find_if(sent.events, isVolume), note);
}

TEST(MidiOut, Panic_EndsNotesAndSilencesTheChannel) {
    const Sent sent = PlayAsMidi(Keys, "at 2:2 panic\n+0.1s quit");
    EXPECT_TRUE(FindNotesLeftOn(sent.events).empty());
    EXPECT_NE(sent.events.end(), std::ranges::find_if(sent.events, [](const MidiOutEvent& event) {
                  return event.bytes[0] == 0xB0 && event.bytes[1] == 120;
              }));
}

TEST(MidiOut, FiveHundredRandomJumps_NoNoteIsLeftOnAndFramesNeverGoBack) {
    std::mt19937 random(11);
    std::string script = "+0s play\n";
    for (int jump = 0; jump < 500; ++jump) {
        const unsigned int wait = 5 + static_cast<unsigned int>(random()) % 400;
        script += "+0." +
                  std::string(wait < 10    ? "00"
                              : wait < 100 ? "0"
                                           : "") +
                  std::to_string(wait) + "s seek " + std::to_string(1 + static_cast<unsigned int>(random()) % 40) +
                  ":" + std::to_string(1 + static_cast<unsigned int>(random()) % 4) + "\n";
    }
    script += "+0.3s stop\n+0.1s quit\n";
    const Sent sent = PlayAsMidi(Keys, script, 40);
    EXPECT_GT(NotesOf(sent.events, 0x90).size(), 500U);
    EXPECT_TRUE(FindNotesLeftOn(sent.events).empty());
    EXPECT_TRUE(std::ranges::is_sorted(sent.events, {}, &MidiOutEvent::frame));
    std::size_t played = 0;
    for (const stage::SynthMessage& message : sent.messages)
        if (message.status == 0x90) ++played;
    EXPECT_EQ(played, NotesOf(sent.events, 0x90).size());
}

}  // namespace
