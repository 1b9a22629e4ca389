#include "tavo_midi/smf_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/smf_bytes.h"

namespace {

using tavo_midi::MidiEvent;
using tavo_midi::ReadSmf;
using tavo_midi::Smf;
using test_support::BigEndian;
using test_support::Chunk;
using test_support::Hex;
using test_support::SmfFile;
using test_support::SmfHeader;
using test_support::SmfTrackChunk;

/// "tick:status data1 data2" of every event, in the file's order.
std::string Print(const Smf& smf) {
    std::string text;
    for (const MidiEvent& event : smf.events) {
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%s%u:%02X %02X %02X", text.empty() ? "" : ", ", event.tick, event.status,
                      event.data1, event.data2);
        text += buffer;
    }
    return text;
}

std::string Read(const std::string& bytes) {
    return Print(ReadSmf(bytes, "a.mid"));
}

std::string Refuse(const std::string& bytes) {
    try {
        return "read: " + Read(bytes);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(SmfReader, EventForms) {
    struct Row {
        const char* what;
        const char* events;
        const char* expected;
    };
    const Row rows[] = {
        {"every channel message", "00 91 3C 40 01 A1 3C 10 01 B1 07 64 01 C1 05 01 D1 20 01 E1 00 40 01 81 3C 30",
         "0:91 3C 40, 1:A1 3C 10, 2:B1 07 64, 3:C1 05 00, 4:D1 20 00, 5:E1 00 40, 6:81 3C 30"},
        {"note-on of velocity 0 is a note-off", "00 90 3C 40 10 90 3C 00", "0:90 3C 40, 16:80 3C 00"},
        {"running status", "00 90 3C 40 10 3C 00 00 3E 40 10 3E 00",
         "0:90 3C 40, 16:80 3C 00, 16:90 3E 40, 32:80 3E 00"},
        {"running status goes on over a meta event", "00 90 3C 40 08 FF 01 01 41 08 3C 00", "0:90 3C 40, 16:80 3C 00"},
        {"running status goes on over a system-exclusive message", "00 90 3C 40 08 F0 02 7D F7 08 3C 00",
         "0:90 3C 40, 8:F0 00 00, 16:80 3C 00"},
        {"numbers of two, three and four bytes", "81 00 C0 01 81 80 00 C0 02 81 80 80 00 C0 03",
         "128:C0 01 00, 16512:C0 02 00, 2113664:C0 03 00"},
        {"stray system messages are stepped over", "00 F1 10 00 F2 10 10 00 F3 01 00 F4 00 F6 00 F8 00 FE 05 C0 01",
         "5:C0 01 00"},
        {"raw bytes outside a system-exclusive message are left out", "00 F7 02 F8 F8 05 C0 01", "5:C0 01 00"},
        {"a note of no length ends one tick later", "05 90 3C 40 00 80 3C 00 03 C0 01",
         "5:90 3C 40, 6:80 3C 00, 8:C0 01 00"},
        {"the end of the note before is no such end", "00 90 3C 40 05 90 3C 41 00 80 3C 00 05 80 3C 00",
         "0:90 3C 40, 5:90 3C 41, 5:80 3C 00, 10:80 3C 00"},
        {"a note behind one of no length is not cut off", "05 90 3C 40 00 80 3C 00 00 90 3C 41 05 80 3C 00",
         "5:90 3C 40, 5:90 3C 41, 10:80 3C 00"},
        {"nothing is read behind the end of the track", "05 C0 01 00 FF 2F 00 05 C0 02", "5:C0 01 00"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.expected, Read(SmfFile(0, {row.events}))) << row.what;
}

TEST(SmfReader, MetaEvents) {
    const Smf smf = ReadSmf(SmfFile(1, {"00 FF 03 03 41 62 61 00 FF 51 03 07 A1 20 00 FF 58 04 06 03 24 08 "
                                        "10 FF 59 02 FD 01 00 FF 06 02 20 41 10 FF 07 01 42 20 FF 51 03 0F 42 40",
                                        "00 FF 03 01 E9 00 FF 21 01 02 00 C0 01"}),
                            "a.mid");
    ASSERT_EQ(2U, smf.tracks.size());
    const tavo_midi::SmfTrack& track = smf.tracks[0];
    EXPECT_EQ("Aba", track.name);
    EXPECT_EQ((std::vector<TL::Tempo>{{0, 500000}, {64, 1000000}}), track.tempos);
    EXPECT_EQ((std::vector<TL::Meter>{{0, 6, 8, 36, 8}}), track.meters);
    EXPECT_EQ((std::vector<TL::Key>{{16, -3, true}}), track.keys);
    ASSERT_EQ(2U, track.markers.size());
    EXPECT_EQ(16U, track.markers[0].abs_time());
    EXPECT_EQ("A", track.markers[0].value());
    EXPECT_EQ("B", track.markers[1].value());
    EXPECT_EQ(64U, track.endTick);
    EXPECT_EQ("\xC3\xA9", smf.tracks[1].name) << "a text that is not UTF-8 is Latin-1";
    ASSERT_EQ(1U, smf.tracks[1].eventCount);
    EXPECT_EQ(2, smf.events[smf.tracks[1].firstEvent].port);
    EXPECT_THAT(smf.warnings, testing::IsEmpty());
}

TEST(SmfReader, ImpossibleMetaValues_AreLeftOutWithAWarning) {
    for (const char* event : {"00 FF 51 03 00 00 00", "00 FF 51 01 07", "00 FF 58 04 00 02 18 08",
                              "00 FF 58 04 04 08 18 08", "00 FF 59 02 08 00", "00 FF 59 02 00 02", "00 FF 21 01 10"}) {
        const Smf smf = ReadSmf(SmfFile(0, {event}), "a.mid");
        EXPECT_TRUE(smf.tracks.at(0).tempos.empty() && smf.tracks[0].meters.empty() && smf.tracks[0].keys.empty());
        EXPECT_THAT(smf.warnings, testing::ElementsAre(testing::StartsWith("\"a.mid\", track 1, byte 2"))) << event;
    }
}

TEST(SmfReader, MeterWithoutClockFields_ClicksItsBeats) {
    const Smf smf = ReadSmf(SmfFile(0, {"00 FF 58 02 03 03 00 FF 58 04 03 07 00 00"}), "a.mid");
    EXPECT_EQ((std::vector<TL::Meter>{{0, 3, 8, 12, 8}, {0, 3, 128, 1, 8}}), smf.tracks.at(0).meters);
}

TEST(SmfReader, SysexWholeAndSplit_IsOneMessageWhereItEnds) {
    const Smf smf = ReadSmf(SmfFile(0, {"00 F0 03 7E 7F F7 10 F0 02 43 12 10 90 3C 40 10 F7 01 43 10 F7 02 00 F7 "
                                        "10 F0 02 01 02"}),
                            "a.mid");
    EXPECT_EQ("0:F0 00 00, 32:90 3C 40, 64:F0 01 00", Print(smf));
    EXPECT_EQ((std::vector<std::vector<std::uint8_t>>{{0xF0, 0x7E, 0x7F, 0xF7}, {0xF0, 0x43, 0x12, 0x43, 0x00, 0xF7}}),
              smf.sysex);
    EXPECT_THAT(smf.warnings, testing::ElementsAre(testing::HasSubstr("has no end and is left out")));
}

TEST(SmfReader, OddFiles_AreRead) {
    const std::string track = SmfTrackChunk("00 C0 01");
    struct Row {
        const char* what;
        std::string bytes;
        std::size_t tracks;
        std::size_t events;
        std::size_t warnings;
    };
    const Row rows[] = {
        {"format 0 with two tracks", SmfHeader(0, 2) + track + track, 2, 2, 0},
        {"more tracks than announced", SmfHeader(1, 1) + track + track, 2, 2, 1},
        {"fewer tracks than announced", SmfHeader(1, 9) + track, 1, 1, 1},
        {"a longer header", Chunk("MThd", Hex("00 00 00 01 00 60 FF FF")) + track, 1, 1, 0},
        {"alien chunks before, between and behind",
         SmfHeader(1, 2) + Chunk("XFIH", "abc") + track + Chunk("    ", "") + track + Chunk("TAIL", "x"), 2, 2, 0},
        {"bytes behind that are no chunk", SmfHeader(0, 1) + track + "*", 1, 1, 0},
        {"an alien chunk that is cut off", SmfHeader(0, 1) + track + "JunkZZZZ", 1, 1, 0},
        {"no end of track", SmfHeader(0, 1) + Chunk("MTrk", Hex("00 C0 01")), 1, 1, 1},
        {"a chunk that claims too much around a whole track",
         SmfHeader(0, 1) + "MTrk" + BigEndian(0xFFFFFFFF, 4) + Hex("00 C0 01 00 FF 2F 00"), 1, 1, 0},
        {"an end of track without its length", SmfHeader(0, 1) + Chunk("MTrk", Hex("00 C0 01 00 FF 2F")), 1, 1, 0},
        {"an uncounted track of other data", SmfHeader(1, 1) + track + Chunk("MTrk", Hex("00 C0 02 00 11 22")), 1, 1,
         2},
        {"no tracks at all", SmfHeader(1, 0), 0, 0, 0},
    };
    for (const Row& row : rows) {
        const Smf smf = ReadSmf(row.bytes, "a.mid");
        EXPECT_EQ(row.tracks, smf.tracks.size()) << row.what;
        EXPECT_EQ(row.events, smf.events.size()) << row.what;
        EXPECT_EQ(row.warnings, smf.warnings.size()) << row.what << testing::PrintToString(smf.warnings);
    }
}

TEST(SmfReader, FilesThatCannotBeMeant_AreRefusedWithPlaceAndReason) {
    const auto track = [](const char* events) { return SmfHeader(0, 1) + Chunk("MTrk", Hex(events)); };
    struct Row {
        std::string bytes;
        const char* sentence;
    };
    const Row rows[] = {
        {"", "\"a.mid\" is empty"},
        {"RIFF....", "\"a.mid\" is not a Standard MIDI File: it does not begin with MThd"},
        {"MThd", "\"a.mid\" breaks off inside its header"},
        {Chunk("MThd", Hex("00 00 00 01 00 60")).substr(0, 13), "\"a.mid\" breaks off inside its header"},
        {"MThd" + BigEndian(5, 4) + "......", "\"a.mid\" has a header of 5 bytes, where 6 is the least"},
        {"MThd" + BigEndian(0xFFFFFFFF, 4) + Hex("00 00 00 01 00 60"), "\"a.mid\" breaks off inside its header"},
        {SmfHeader(3, 1), "\"a.mid\" has format 3, but only the formats 0, 1 and 2 exist"},
        {SmfHeader(0, 1, 0), "\"a.mid\" has a division of 0 ticks per quarter note"},
        {SmfHeader(0, 1, 0xE728),
         "\"a.mid\" cannot be used: its division counts SMPTE frames, but every position here is a tick per quarter "
         "note"},
        {SmfHeader(0, 1), "\"a.mid\" announces 1 tracks and has none"},
        {track("00 11 22"), "\"a.mid\", track 1, byte 23: the data byte 0x11 stands where a status byte must"},
        {track("00 90 3C 80"), "\"a.mid\", track 1, byte 25: 0x80 stands where a data byte below 0x80 must"},
        {track("81 80 80 80 00 C0 01"),
         "\"a.mid\", track 1, byte 22: a variable-length number has more than four bytes"},
        {track("00 90 3C"), "\"a.mid\", track 1, byte 25: the track ends in the middle of an event"},
        {track("00 C0 01 00"), "\"a.mid\", track 1, byte 26: the track ends in the middle of an event"},
        {track("00 FF 01 7F 41"),
         "\"a.mid\", track 1, byte 25: a meta event of 127 bytes runs past the end of its track"},
        {track("00 F0 FF FF FF 7F 41"),
         "\"a.mid\", track 1, byte 24: a system-exclusive message of 268435455 bytes runs past the end of its track"},
        {SmfHeader(0, 1) + "MTrk" + BigEndian(99, 4) + Hex("00 C0 01"),
         "\"a.mid\", track 1, byte 25: the file ends here, before the track does"},
        {SmfHeader(1, 2) + SmfTrackChunk("00 C0 01") + Chunk("MTrk", Hex("00 11")),
         "\"a.mid\", track 2, byte 38: the data byte 0x11 stands where a status byte must"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.sentence, Refuse(row.bytes));
    std::string late;
    for (int count = 0; count < 17; ++count)
        late += "FF FF FF 7F C0 01 ";
    EXPECT_THAT(Refuse(SmfFile(0, {late})), testing::HasSubstr("the track runs past tick 4294967295"));
}

TEST(SmfReader, Format2_IsOneSongATrack) {
    EXPECT_EQ(2U, CountSequences(ReadSmf(SmfFile(2, {"00 C0 01", "00 C0 02"}), "a.mid")));
    EXPECT_EQ(1U, CountSequences(ReadSmf(SmfFile(1, {"00 C0 01", "00 C0 02"}), "a.mid")));
}

TEST(SmfReader, EndlessFaults_GiveTwentyWarningsOnly) {
    std::string events;
    for (int count = 0; count < 1000; ++count)
        events += "00 F8 ";
    EXPECT_EQ(tavo_midi::MaxSmfWarnings, ReadSmf(SmfFile(0, {events}), "a.mid").warnings.size());
}

}  // namespace
