#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/musicxml/song_text.h"

namespace {

namespace mx = stage::musicxml;
using mx::BarOrder;
using mx::GraceKind;
using mx::WrittenNote;
using test_support::BuildSongOf;
using test_support::MakeScore;
using test_support::PrintNotes;
using test_support::Quarter;
using testing::ElementsAre;

class NotesOfSong : public testing::Test {
protected:
    /// A note of the part with bar, key, and position and length in quarters.
    WrittenNote& Note(std::uint32_t bar, std::uint8_t key, double position, double quarters) {
        WrittenNote& note = score_.notes.emplace_back();
        note.bar = bar;
        note.key = key;
        note.position = static_cast<mx::Units>(position * Quarter);
        note.length = static_cast<mx::Units>(quarters * Quarter);
        return note;
    }
    WrittenNote& Grace(std::uint32_t bar, std::uint8_t key, double position, GraceKind kind) {
        WrittenNote& note = Note(bar, key, position, 0);
        note.grace = kind;
        return note;
    }
    [[nodiscard]] tavo_midi::SongData Play() const { return BuildSongOf(MakeScoreSong(score_, BarOrder::AsPlayed)); }
    /// Controllers and programs: "176:64=127@0", status, two data bytes, tick.
    [[nodiscard]] std::string PrintControllers() const {
        std::string text;
        const tavo_midi::SongData song = Play();
        for (const tavo_midi::MidiEvent& event : song.GetEvents()) {
            if (event.status >> 4 == 8 || event.status >> 4 == 9) continue;
            text += (text.empty() ? "" : " ") + std::to_string(event.status) + ":" + std::to_string(event.data1) + "=" +
                    std::to_string(event.data2) + "@" + std::to_string(event.tick);
        }
        return text;
    }

    mx::WrittenScore score_ = MakeScore("A B");
};

TEST_F(NotesOfSong, SoundAsLongAsTheirStyleSays) {
    Note(0, 60, 0, 1);
    Note(0, 62, 1, 1).soundingPercent = 50;
    EXPECT_EQ("60@0-480 62@480-720", PrintNotes(Play()));
}

TEST_F(NotesOfSong, BeforeABreath_EndALittleEarly) {
    Note(0, 60, 0, 2).hasBreath = true;
    Note(0, 62, 2, 0.5).hasBreath = true;
    Note(0, 64, 3, 1).tieStart = true;
    Note(1, 64, 0, 1).tieStop = true;
    score_.notes.back().hasBreath = true;
    Note(1, 65, 1, 1).soundingPercent = 50;
    score_.notes.back().hasBreath = true;
    EXPECT_EQ("60@0-840 62@960-1120 64@1440-2280 65@2400-2640", PrintNotes(Play()));
    EXPECT_EQ("60@0-960 62@960-1200 64@1440-2400 65@2400-2640",
              PrintNotes(BuildSongOf(MakeScoreSong(score_, BarOrder::AsPlayed, stage::Breaths::Ignore))));
}

TEST_F(NotesOfSong, TieAcrossTheBarLine_IsOneNote) {
    Note(0, 60, 3, 1).tieStart = true;
    Note(1, 60, 0, 2).tieStop = true;
    EXPECT_EQ("60@1440-2880", PrintNotes(Play()));
}

TEST_F(NotesOfSong, TieOverThreeNotes_EndsWithTheStyleOfTheLast) {
    Note(0, 60, 2, 2).tieStart = true;
    WrittenNote& middle = Note(1, 60, 0, 1);
    middle.tieStart = middle.tieStop = true;
    WrittenNote& last = Note(1, 60, 1, 1);
    last.tieStop = true;
    last.soundingPercent = 50;
    EXPECT_EQ("60@960-2640", PrintNotes(Play()));
}

TEST_F(NotesOfSong, TieIntoBothEndings_SoundsOnInEach) {
    score_.bars = test_support::ParseFlow("|: A [1 B :| ] [2 C ]");
    Note(0, 60, 3, 1).tieStart = true;
    Note(1, 60, 0, 1).tieStop = true;
    Note(2, 60, 0, 2).tieStop = true;
    EXPECT_EQ("60@1440-2400 60@5280-6720", PrintNotes(Play()));
}

TEST_F(NotesOfSong, TieThatTheJumpBreaks_EndsWithItsNoteAndBeginsAnew) {
    score_.bars = test_support::ParseFlow("A |: B :|");
    Note(0, 60, 3, 1).tieStart = true;
    Note(1, 60, 0, 1).tieStop = true;
    EXPECT_EQ("60@1440-2400 60@3840-4320", PrintNotes(Play()));
}

TEST_F(NotesOfSong, KeyStruckAgainByAnotherVoice_EndsAndSoundsOn) {
    Note(0, 60, 0, 4);
    Note(0, 60, 1, 1).voice = 2;
    EXPECT_EQ("60@0-480 60@480-1920", PrintNotes(Play()));
}

TEST_F(NotesOfSong, UnisonOfTwoVoices_IsTheLongerNote) {
    Note(0, 60, 0, 1);
    Note(0, 60, 0, 2).voice = 2;
    EXPECT_EQ("60@0-960", PrintNotes(Play()));
}

TEST_F(NotesOfSong, GraceNotesBeforeTheBeat_SoundBeforeIt) {
    Grace(0, 71, 1, GraceKind::BeforeBeat);
    Grace(0, 72, 1, GraceKind::BeforeBeat);
    Note(0, 74, 1, 1);
    EXPECT_EQ("71@360-420 72@420-480 74@480-960", PrintNotes(Play()));
}

TEST_F(NotesOfSong, GraceNoteBeforeTheFirstBeat_HasNoRoomAndSoundsAtOnce) {
    Grace(0, 71, 0, GraceKind::BeforeBeat);
    Note(0, 74, 0, 1);
    EXPECT_EQ("71@0-1 74@0-480", PrintNotes(Play()));
}

TEST_F(NotesOfSong, GraceNotesOnTheBeat_TakeHalf) {
    Grace(0, 72, 1, GraceKind::OnBeat);
    Note(0, 74, 1, 1);
    EXPECT_EQ("72@480-720 74@720-960", PrintNotes(Play()));
}

TEST_F(NotesOfSong, GraceNotesOnTheBeatOfADottedNote_TakeTwoThirds) {
    Grace(0, 72, 0, GraceKind::OnBeat);
    Grace(0, 71, 0, GraceKind::OnBeat);
    Note(0, 74, 0, 1.5);
    EXPECT_EQ("72@0-240 71@240-480 74@480-720", PrintNotes(Play()));
}

TEST_F(NotesOfSong, GraceChord_SoundsTogether) {
    Grace(0, 67, 1, GraceKind::BeforeBeat);
    Grace(0, 71, 1, GraceKind::BeforeBeat).joinsGrace = true;
    Note(0, 74, 1, 1);
    EXPECT_EQ("67@420-480 71@420-480 74@480-960", PrintNotes(Play()));
}

TEST_F(NotesOfSong, OddDivisions_AreRoundedFromTheBeginning) {
    score_.unitsPerQuarter = 7;
    for (mx::WrittenBar& bar : score_.bars)
        bar.length = 28;
    for (std::uint8_t i = 0; i < 3; ++i) {
        WrittenNote& note = Note(1, static_cast<std::uint8_t>(60 + i), 0, 0);
        note.position = i;
        note.length = 1;
    }
    EXPECT_EQ("60@1920-1989 61@1989-2057 62@2057-2126", PrintNotes(Play()));
}

TEST_F(NotesOfSong, InstrumentsHaveChannelsProgramsVolumesAndPans) {
    score_.parts = {{"P1", "Flute", {{"Flute", 73, false, 4, 90, 30}}},
                    {"P2", "Drums", {{"Snare", 0, true, 9, 100, -1}, {"Bass drum", 0, true, 9, 100, -1}}},
                    {"P3", "Piano", {{"Piano", 0, false, -1, -1, -1}}},
                    {"P4", "Clash", {{"Oboe", 68, false, 4, -1, -1}}}};
    EXPECT_EQ("196:73=0@0 180:7=90@0 180:10=30@0 201:0=0@0 185:7=100@0 192:0=0@0 193:68=0@0", PrintControllers());
}

TEST_F(NotesOfSong, TheSixteenthInstrument_PlaysOnTheNextPort) {
    score_.parts.assign(16, {"P", "Violin", {{"Violin", 40}}});
    Note(0, 60, 0, 1).part = 14;
    Note(0, 60, 0, 1).part = 15;
    EXPECT_EQ(" ch16 60@0-480 ch17 60@0-480", PrintNotes(Play()));
}

TEST_F(NotesOfSong, MoreInstrumentsThanChannels_ShareWithANote) {
    score_.parts.assign(241, {"P", "Violin", {{"Violin", 40}}});
    EXPECT_THAT(MakeScoreSong(score_, BarOrder::AsPlayed).notes,
                ElementsAre("1 instruments share channels with others: there are 240 channels only"));
}

TEST_F(NotesOfSong, MoreNotesThanAShowHolds_AreRefused) {
    score_.bars = test_support::ParseFlow("A :|1000000");
    for (int i = 0; i < 100; ++i)
        Note(0, 60, 0, 1);
    EXPECT_THAT([this] { (void)Play(); },
                testing::ThrowsMessage<std::runtime_error>("the music has 5000000 notes and pedals when its repeats "
                                                           "are played, more than 2097152"));
}

TEST_F(NotesOfSong, PedalsOfMoreInstrumentsThanAShowHolds_AreRefused) {
    score_.parts.front().instruments.resize(4000);
    for (mx::Units at = 0; at < 1100; ++at)
        score_.pedals.push_back({0, 0, at, at % 2 == 0});
    EXPECT_THAT([this] { (void)Play(); }, testing::ThrowsMessage<std::runtime_error>(
                                              "the pedals of all instruments need more than 4194304 MIDI events"));
}

TEST_F(NotesOfSong, PedalIsLiftedByAJumpToWhereItIsUp) {
    score_.bars = test_support::ParseFlow("|: A B :|");
    score_.pedals = {{1, 0, 0, true}};
    EXPECT_EQ("192:0=0@0 176:64=127@1920 176:64=0@3840 176:64=127@5760 176:64=0@7680", PrintControllers());
}

TEST_F(NotesOfSong, PedalPressedAgainAtOnce_IsLiftedBetween) {
    score_.pedals = {{0, 0, 0, true}, {0, 0, 960, true}, {0, 0, 1440, false}};
    EXPECT_EQ("192:0=0@0 176:64=127@0 176:64=0@960 176:64=127@960 176:64=0@1440", PrintControllers());
}

}  // namespace
