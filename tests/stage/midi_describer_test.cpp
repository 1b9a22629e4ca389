#include "stage/cli/midi_describer.h"

#include <gtest/gtest.h>

#include "tavo_midi/time_code.h"
#include "tests/support/smf_bytes.h"

namespace {

std::string DescribeHex(MidiDescriber& describer, const std::string& hex) {
    const std::string bytes = test_support::Hex(hex.c_str());
    return describer.Describe({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
}

TEST(MidiDescriber, EachMessage_IsSaidInWords) {
    const struct {
        const char* hex;
        const char* words;
    } rows[] = {
        {"90 3C 40", ""},
        {"F0 43 12 F7", ""},
        {"F0 7F 7F 01 01 21 02 03 04 F7", "time code 01:02:03:04 at 25 frames a second, full frame"},
        {"F0 7F 7F 01 01 41 02 03 04 F7", "time code 01:02:03;04 at 29.97 drop frames a second, full frame"},
        {"F0 7F 7F 01 01 21 02 03 19 F7", "time code 01:02:03:25, which 25 frames a second do not have, full frame"},
        {"F0 7F 05 02 10 01 31 32 2E 35 F7", "show control to device 5, sound: GO cue 12.5"},
        {"F0 7F 7F 02 7F 01 37 00 31 00 32 F7", "show control to all devices, all types: GO cue 7 of list 1 of path 2"},
        {"F0 7F 05 02 01 02 F7", "show control to device 5, lighting: STOP"},
        {"F0 7F 05 02 10 04 20 00 02 00 00 33 F7",
         "show control to device 5, sound: TIMED_GO cue 3 in 00:00:02:00 at 25 frames a second"},
        {"F0 7F 05 02 10 04 20 F7", "show control to device 5, sound: TIMED_GO, cut off"},
        {"F0 7F 05 02 10 07 03 F7", "show control to device 5, sound: FIRE macro 3"},
        {"F0 7F 05 02 10 06 01 02 F7", "show control to device 5, sound: SET data 01 02"},
        {"F0 7F 05 02 10 01 41 F7", "show control to device 5, sound: GO data 41"},
        {"F0 7F 05 02 70 6E F7", "show control to device 5, type 70: command 6E"},
        {"F0 7F 05 02 10 F7", "show control to device 5, cut off"},
        {"F0 7F 7F 06 02 F7", "machine control to all devices: play"},
        {"F0 7F 05 06 01 44 06 01 60 00 0A 00 00 03 F7",
         "machine control to device 5: stop; locate to 00:00:10:00 at 30 frames a second; deferred play"},
        {"F0 7F 05 06 41 03 4F 01 02 F7", "machine control to device 5: masked write 4F 01 02"},
        {"F0 7F 05 06 02 44 06 01 60 F7", "machine control to device 5: play; the rest is cut off"},
        {"F0 7F 05 06 F7", "machine control to device 5: cut off"},
        {"F0 7F 05 06 00 02 F7", "machine control to device 5: a further command 00 02"},
        {"F0 7F 05 07 01 F7", "machine control, a response of device 5"},
    };
    MidiDescriber describer;
    for (const auto& row : rows)
        EXPECT_EQ(DescribeHex(describer, row.hex), row.words) << row.hex;
}

/// The quarter frames of the two frames from `timeCode` on, in this order of pieces; what is said of each.
std::string DescribeQuarters(MidiDescriber& describer, const tavo_midi::TimeCode& timeCode, int first, int last) {
    std::string said;
    const int step = first <= last ? 1 : -1;
    for (int piece = first; piece != last + step; piece += step) {
        const unsigned char bytes[] = {0xF1, tavo_midi::MakeQuarterFrame(timeCode, FrameRate::Fps24, piece)};
        const std::string words = describer.Describe(bytes);
        if (!words.empty()) said += std::to_string(piece) + ": " + words + "\n";
    }
    return said;
}

TEST(MidiDescriber, QuarterFrames_AreSaidOnceForEachAddress) {
    MidiDescriber describer;
    EXPECT_EQ(DescribeQuarters(describer, {23, 59, 58, 20}, 0, 7), "7: time code 23:59:58:20 at 24 frames a second\n");
    EXPECT_EQ(DescribeQuarters(describer, {23, 59, 58, 22}, 0, 7), "7: time code 23:59:58:22 at 24 frames a second\n");
}

TEST(MidiDescriber, QuarterFramesFromTheMiddleOn_TheFirstWholeAddressIsSaid) {
    MidiDescriber describer;
    EXPECT_EQ(DescribeQuarters(describer, {1, 2, 3, 4}, 3, 7), "");
    EXPECT_EQ(DescribeQuarters(describer, {1, 2, 3, 6}, 0, 7), "7: time code 01:02:03:06 at 24 frames a second\n");
    EXPECT_EQ(DescribeQuarters(describer, {1, 2, 3, 8}, 0, 4), "");
    EXPECT_EQ(DescribeQuarters(describer, {5, 0, 0, 0}, 0, 7), "7: time code 05:00:00:00 at 24 frames a second\n")
        << "after a gap";
}

TEST(MidiDescriber, QuarterFramesRunningBackwards_AreSaidTo) {
    MidiDescriber describer;
    EXPECT_EQ(DescribeQuarters(describer, {1, 2, 3, 4}, 7, 0),
              "0: time code 01:02:03:04 at 24 frames a second, running backwards\n");
}

}  // namespace
