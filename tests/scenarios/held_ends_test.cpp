// Which ends of notes wait for the release of a fermata. Quarter notes last 480 ticks; the fermata is over 480 to 960
// unless a row says otherwise.

#include "stage/engine/held_ends.h"

#include <gtest/gtest.h>

#include "tests/support/note_song.h"

namespace {

struct HeldCase {
    const char* what;
    const char* notes;
    const char* held;  // "key" or "pedal", in the order of the file
    std::uint32_t from = 480;
    std::uint32_t to = 960;
};

void PrintTo(const HeldCase& row, std::ostream* os) {
    *os << row.what;
}

class HeldEnds : public testing::TestWithParam<HeldCase> {};

TEST_P(HeldEnds, AreThoseOfTheMusicUnderTheFermata) {
    const std::vector<tavo_midi::MidiEvent> events = test_support::ReadNotes(GetParam().notes);
    CL::ChangeLogSequence<CL::Fermata> fermatas;
    fermatas.Add(CL::Fermata(GetParam().from, GetParam().to));
    std::string held;
    for (const stage::HeldEnd& end : stage::FindHeldEnds(events, fermatas)) {
        const tavo_midi::MidiEvent& event = events[end.index];
        EXPECT_EQ(event.tick, end.tick);
        EXPECT_EQ(GetParam().to, end.until);
        const bool isPedal = event.status >= 0xB0 && event.data1 == 64;
        held += (held.empty() ? "" : " ") + (isPedal                ? "pedal"
                                             : event.status >= 0xB0 ? "quiet"
                                                                    : std::to_string(event.data1));
    }
    EXPECT_EQ(GetParam().held, held);
}

INSTANTIATE_TEST_SUITE_P(
    Music, HeldEnds,
    testing::Values(
        HeldCase{"a chord that sounds for 95 % of its length", "60@480-936 64@480-936 67@480-936", "60 64 67"},
        HeldCase{"a note that ends a tick early", "60@480-959", "60"},
        HeldCase{"a note that is tied over the bar line sounds on by itself", "60@480-1920 64@480-936", "64"},
        HeldCase{"a note that is tied into the fermata", "60@0-936", "60"},
        HeldCase{"notes of the beat before", "60@0-456 2:62@0-479 64@480-936", "64"},
        HeldCase{"a moving voice under a held chord", "72@480-936 60@480-708 62@720-948", "72 62"},
        HeldCase{"a long note that moves on shortly before the end", "60@0-1767 62@1860-1919", "62", 960, 1920},
        HeldCase{"the same a tick early", "60@0-1859 62@1860-1919", "62", 960, 1920},
        HeldCase{"a voice that rests on the second half", "72@480-936 2:60@480-708", "72"},
        HeldCase{"a short note alone", "60@480-720", "60"},
        HeldCase{"a short note beside one that sounds on", "60@480-720 2:72@480-1440", ""},
        HeldCase{"a chord let go at two thirds alone", "60@480-800 64@480-800 67@480-800", "60 64 67"},
        HeldCase{"the same beside a voice that goes on to the end", "60@480-800 64@480-800 2:72@480-936", "72"},
        HeldCase{"two voices that are let go early at different ticks", "60@480-800 2:72@480-720", "72 60"},
        HeldCase{"a longer note with a fermata of its own sounds on by itself", "60@480-936 2:72@480-1416", "60"},
        HeldCase{"short notes one after another alone", "60@480-540 62@600-660 64@600-660", "62 64"},
        HeldCase{"a rest after a note", "60@0-456", ""},
        HeldCase{"a key that is struck again", "60@480-930 60@940-959", "60"},
        HeldCase{"a note so long that its end lies before the fermata", "60@0-7296", "60", 7440, 7680},
        HeldCase{"a note that just ends before the fermata", "2:60@0-1799 72@1800-1914", "72", 1800, 1920},
        HeldCase{"a note that rests before the fermata below a long one", "60@0-1760 2:72@480-4000", "", 1800, 1920},
        HeldCase{"a drum roll", "10:38@480-500 10:38@540-560 10:38@600-620", "38"},
        HeldCase{"the end of a note that began at once with the fermata's end", "60@480-960 62@960-1416", ""},
        HeldCase{"the pedal is lifted with the notes", "pedal@480-950 60@480-600 2:64@480-936", "64 pedal"},
        HeldCase{"the pedal is changed under the fermata", "pedal@0-930 pedal@940-1400 2:64@480-936", "64"},
        HeldCase{"the pedal is lifted in the middle of the fermata", "pedal@0-720 2:64@480-936", "64"},
        HeldCase{"a message that ends all notes", "60@480-1920 quiet@959", "quiet"},
        HeldCase{"a message that ends all notes before others begin", "60@480-900 quiet@950 62@955-1400", ""}));

TEST(HeldEndsOfSeveralFermatas, EachWaitsForItsOwn) {
    const std::vector<tavo_midi::MidiEvent> events =
        test_support::ReadNotes("60@0-456 62@480-936 64@960-1416 2:72@0-912 2:74@960-1824");
    CL::ChangeLogSequence<CL::Fermata> fermatas;
    fermatas.Add(CL::Fermata(480, 960));
    fermatas.Add(CL::Fermata(1440, 1920));
    const std::vector<stage::HeldEnd> ends = stage::FindHeldEnds(events, fermatas);
    ASSERT_EQ(3U, ends.size());
    EXPECT_EQ(912U, ends[0].tick);
    EXPECT_EQ(936U, ends[1].tick);
    EXPECT_EQ(1824U, ends[2].tick);
    EXPECT_EQ(1920U, ends[2].until);
}

TEST(HeldEndsThatAreMoved, ComeBeforeWhatBeginsAtTheFermatasEnd) {
    const std::vector<tavo_midi::MidiEvent> events = test_support::ReadNotes("60@480-936 60@960-1416 pedal@0-950");
    CL::ChangeLogSequence<CL::Fermata> fermatas;
    fermatas.Add(CL::Fermata(480, 960));
    std::string order;
    for (const tavo_midi::MidiEvent& event : stage::MoveHeldEnds(events, stage::FindHeldEnds(events, fermatas)))
        order += std::to_string(event.tick) + (event.status == 0x90   ? " on, "
                                               : event.status == 0x80 ? " off, "
                                               : event.data2 > 0      ? " pedal down, "
                                                                      : " pedal up, ");
    EXPECT_EQ("0 pedal down, 480 on, 960 off, 960 pedal up, 960 on, 1416 off, ", order);
}

TEST(HeldEndsWithoutFermatas, AreNone) {
    EXPECT_TRUE(stage::FindHeldEnds(test_support::ReadNotes("60@0-456"), {}).empty());
}

}  // namespace
