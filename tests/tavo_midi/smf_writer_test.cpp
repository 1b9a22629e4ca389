#include "tavo_midi/smf_writer.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

tavo_midi::Smf MakeSmf() {
    tavo_midi::Smf smf;
    smf.format = 1;
    smf.ticksPerQuarter = 96;
    smf.sysex = {{0xF0, 0x7E, 0x7F, 0x09, 0x01, 0xF7}};
    tavo_midi::SmfTrack conductor;
    conductor.name = "Noël";
    conductor.tempos = {TL::Tempo(0, 500000), TL::Tempo(384, 16777215)};
    conductor.meters = {TL::Meter(0, 3, 8, 12, 8), TL::Meter(144, 4, 4)};
    conductor.keys = {TL::Key(0, -3, true), TL::Key(144, 7, false)};
    conductor.markers = {CL::Marker(144, "Verse")};
    conductor.endTick = 5000;
    tavo_midi::SmfTrack part;
    part.name = "Part";
    smf.events = {{0, 0xF0, 0, 0, 0},     {0, 0xC1, 73, 0, 0},   {10, 0x91, 60, 90, 0},   {10, 0x91, 64, 90, 0},
                  {200, 0x81, 60, 64, 0}, {200, 0xE1, 0, 64, 0}, {300000, 0x81, 64, 0, 0}};
    part.eventCount = smf.events.size();
    part.endTick = 300000;
    smf.tracks = {conductor, part};
    return smf;
}

TEST(SmfWriter, WhatIsWritten_IsReadBack) {
    const tavo_midi::Smf smf = MakeSmf();
    const tavo_midi::Smf read = tavo_midi::ReadSmf(tavo_midi::WriteSmf(smf), "written");
    EXPECT_TRUE(read.warnings.empty());
    EXPECT_EQ(smf.format, read.format);
    EXPECT_EQ(smf.ticksPerQuarter, read.ticksPerQuarter);
    EXPECT_EQ(smf.events, read.events);
    EXPECT_EQ(smf.sysex, read.sysex);
    ASSERT_EQ(2U, read.tracks.size());
    EXPECT_EQ("Noël", read.tracks[0].name);
    EXPECT_EQ(smf.tracks[0].tempos, read.tracks[0].tempos);
    EXPECT_EQ(smf.tracks[0].meters, read.tracks[0].meters);
    EXPECT_EQ(smf.tracks[0].keys, read.tracks[0].keys);
    ASSERT_EQ(1U, read.tracks[0].markers.size());
    EXPECT_EQ("Verse", read.tracks[0].markers[0].value());
    EXPECT_EQ(144U, read.tracks[0].markers[0].abs_time());
    EXPECT_EQ(5000U, read.tracks[0].endTick);
    EXPECT_EQ(300000U, read.tracks[1].endTick);
}

TEST(SmfWriter, TheSmallestFile_IsByteForByteWhatTheStandardSays) {
    tavo_midi::Smf smf;
    smf.ticksPerQuarter = 480;
    smf.tracks.emplace_back();
    smf.tracks[0].endTick = 128;
    const std::string expected("MThd\0\0\0\6\0\0\0\1\1\xE0MTrk\0\0\0\5\x81\0\xFF\x2F\0", 14 + 8 + 5);
    EXPECT_EQ(expected, tavo_midi::WriteSmf(smf));
}

TEST(SmfWriter, ChannelsOfAnotherPort_AreWrittenBehindItsNumber) {
    tavo_midi::Smf smf = MakeSmf();
    for (tavo_midi::MidiEvent& event : smf.events) {
        if (event.status != 0xF0) event.port = 2;
    }
    EXPECT_EQ(smf.events, tavo_midi::ReadSmf(tavo_midi::WriteSmf(smf), "written").events);
}

TEST(SmfWriter, ContentsThatNoFileCanHold_AreRefused) {
    const auto refuses = [](auto spoil) {
        tavo_midi::Smf smf = MakeSmf();
        spoil(smf);
        try {
            static_cast<void>(tavo_midi::WriteSmf(smf));
        } catch (const std::invalid_argument&) {
            return true;
        }
        return false;
    };
    EXPECT_TRUE(refuses([](auto& smf) { smf.ticksPerQuarter = 0; }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.ticksPerQuarter = 0x8000; }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.format = 0; }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.format = 3; }));
    EXPECT_TRUE(refuses([](auto& smf) { std::swap(smf.events[2], smf.events[4]); }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.events[2].data1 = 0x80; }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.events[2].status = 0x7F; }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.tracks[1].eventCount = 8; }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.tracks[1].endTick = 10; }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.tracks[0].tempos[0] = TL::Tempo(0, 0); }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.tracks[0].meters[0] = TL::Meter(0, 4, 3); }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.tracks[0].keys[0] = TL::Key(0, 8, false); }));
    EXPECT_TRUE(refuses([](auto& smf) { smf.tracks[1].endTick = 0xFFFFFFFF; }));
    EXPECT_FALSE(refuses([](auto&) {}));
}

}  // namespace
