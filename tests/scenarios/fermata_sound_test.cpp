// What is heard while a fermata holds, and when it is released, stopped or edited away.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/support/note_song.h"
#include "tests/support/show_builder.h"

using test_support::MakeNoteSong;
using test_support::Performance;
using test_support::TestShow;

namespace {

constexpr int Organ = 19;
constexpr int Piano = 0;
constexpr std::size_t SecondOfFrames = 48000;

/// The level of a tenth of a second, root mean square in dB.
double LevelAt(const Performance& played, double seconds) {
    const auto first = static_cast<std::size_t>(seconds * SecondOfFrames);
    double sum = 0;
    for (std::size_t i = first; i < first + SecondOfFrames / 10; ++i)
        sum += static_cast<double>(played.left.at(i)) * played.left.at(i);
    return 10 * std::log10(sum / (SecondOfFrames / 10.0) + 1e-12);
}

int CountHanging(const Performance& played) {
    int sounding = 0;
    for (const stage::SynthMessage& message : played.messages)
        sounding += message.status == 0x90 ? 1 : message.status == 0x80 ? -1 : 0;
    return sounding;
}

// A quarter note on each beat, each sounding for 95 % of it; the last of bar 1 is under the fermata and ends, as it is
// held, 2 seconds from the beginning.
constexpr const char* Melody =
    "60@0-456 62@480-936 64@960-1416 65@1440-1896 67@1920-2376 69@2400-2856 71@2880-3336 72@3360-3816";

TEST(HeldFermata, SoundsAtItsLevelForAsLongAsItIsHeld) {
    TestShow show;
    show.Song(MakeNoteSong("1", 2, Melody, {Organ})).Edits("fermata 1:4 1");
    const Performance played = show.Perform("at 2 tempo 100%\n+9s exit");
    const double before = LevelAt(played, 1.8);
    EXPECT_GT(before, -40);
    for (const double held : {1.0, 3.0, 8.0})
        EXPECT_NEAR(before, LevelAt(played, 2 + held), 3) << held;
    EXPECT_EQ(0, CountHanging(played));
}

// The same as if the note had been written as long as it is held, sample for sample: nothing is struck twice.
TEST(HeldFermata, SoundsLikeOneLongNote) {
    for (const int program : {Organ, Piano}) {
        TestShow show;
        show.Song(MakeNoteSong("1", 2, Melody, {program})).Edits("fermata 1:4 1");
        show.Song(MakeNoteSong("2", 4,
                               "60@0-456 62@480-936 64@960-1416 65@1440-5760 67@5760-6216 69@6240-6696 71@6720-7176 "
                               "72@7200-7656",
                               {program}));
        const Performance played = show.Perform("at 2 tempo 100%\n+4s exit");
        const Performance writtenOut = show.Perform("", "2", "2");
        const std::size_t frames = 8 * SecondOfFrames;
        ASSERT_GE(played.left.size(), frames);
        const auto difference = std::mismatch(played.left.begin(), played.left.begin() + static_cast<long>(frames),
                                              writtenOut.left.begin());
        EXPECT_EQ(static_cast<long>(frames), difference.first - played.left.begin()) << "program " << program;
    }
}

TEST(HeldFermata, EndsAllItsNotesTogetherWhenItIsReleased) {
    TestShow show;
    show.Song(MakeNoteSong("1", 2, "60@1440-1896 2:64@1440-1919 3:67@1440-1896 72@1920-2376", {Organ, Organ, Organ}))
        .Edits("fermata 1:4 1");
    const Performance played = show.Perform("at 2 tempo 100%\n+3s exit");
    std::vector<std::int64_t> ends;
    std::int64_t next = 0;
    for (const stage::SynthMessage& message : played.messages) {
        if (message.status == 0x80 && message.data1 < 72) ends.push_back(message.frame);
        if (message.status == 0x90 && message.data1 == 72) next = message.frame;
    }
    EXPECT_EQ((std::vector<std::int64_t>(3, 5 * static_cast<std::int64_t>(SecondOfFrames))), ends);
    EXPECT_EQ(ends.front(), next);
}

// The pedal is down while bar 1 is played; the notes themselves are short, and it is lifted a little before the bar's
// end.
TEST(HeldFermata, KeepsThePedalDown) {
    TestShow show;
    show.Song(MakeNoteSong("1", 2, "pedal@0-1900 60@0-240 2:72@1440-1896 62@1920-2376", {Organ, Organ}))
        .Edits("fermata 1:4 1");
    const Performance played = show.Perform("at 2 tempo 100%\n+3s exit");
    std::vector<std::int64_t> lifted;
    for (const stage::SynthMessage& message : played.messages)
        if (message.status == 0xB0 && message.data1 == 64 && message.data2 == 0) lifted.push_back(message.frame);
    EXPECT_EQ((std::vector<std::int64_t>{5 * static_cast<std::int64_t>(SecondOfFrames)}), lifted);
}

TEST(HeldFermata, OverARest_IsSilent) {
    TestShow show;
    show.Song(MakeNoteSong("1", 2, "60@0-456 67@1920-2376", {Organ})).Edits("fermata 1:4 1");
    const Performance played = show.Perform("at 2 tempo 100%\n+3s exit");
    EXPECT_LT(LevelAt(played, 3), -100);
}

// A press while the fermata's note is still played leads on at once, and no note stays behind.
TEST(Fermata, ReleasedBeforeItHolds_EndsItsNote) {
    TestShow show;
    show.Song(MakeNoteSong("1", 2, Melody, {Organ})).Edits("fermata 1:4 1");
    const Performance played = show.Perform("at 1:4+240 exit");
    EXPECT_EQ(0, CountHanging(played));
    EXPECT_EQ((std::vector<int>{60, 62, 64, 65, 67, 69, 71, 72}), played.Keys());
    EXPECT_LT(played.result.frames, static_cast<std::int64_t>(7 * SecondOfFrames));
}

struct Leaving {
    const char* script;
};

void PrintTo(const Leaving& leaving, std::ostream* os) {
    *os << leaving.script;
}

class LeavingAHeldFermata : public testing::TestWithParam<Leaving> {};

TEST_P(LeavingAHeldFermata, EndsWhatItHeld) {
    TestShow show;
    show.Song(MakeNoteSong("1", 2, "pedal@0-1900 " + std::string(Melody), {Organ})).Edits("fermata 1:4 1");
    show.Song(MakeNoteSong("2", 1, "", {}));
    bool isSilent = false;
    const Performance played = show.Perform([&](stage::ShowSession& session) {
        stage::OfflineOptions options = show.MakeOptions(GetParam().script);
        options.press = [&](const stage::Command& command) {
            if (command.verb == stage::Verb::Quit) isSilent = session.GetSynth().CountSoundingNotes() == 0;
            session.GetDesk().Execute(command);
        };
        return options;
    });
    EXPECT_TRUE(isSilent);
    EXPECT_EQ(0, CountHanging(played));
    EXPECT_LT(LevelAt(played, static_cast<double>(played.left.size()) / SecondOfFrames - 0.1), -60);
}

INSTANTIATE_TEST_SUITE_P(Ways, LeavingAHeldFermata,
                         testing::Values(Leaving{"at 2 tempo 100%\n+1s stop\n+2s quit"},
                                         Leaving{"at 2 tempo 100%\n+1s panic\n+2s quit"},
                                         Leaving{"at 2 tempo 100%\n+1s pause\n+2s quit"},
                                         Leaving{"at 2 tempo 100%\n+1s load 2\n+2s quit"},
                                         Leaving{"at 2 tempo 100%\n+1s transpose 2\n+0s seek 2:4\n+2s quit"},
                                         Leaving{"at 2 tempo 100%\n+1s fade 0.5\n+2s quit"}));

/// Edits are made while the music plays: the fermata is taken away, moved, or put over the notes that sound.
struct EditWhilePlaying {
    const char* what;
    double seconds;
    bool removes;
    bool adds;
    std::uint32_t newEnd;
};

void PrintTo(const EditWhilePlaying& row, std::ostream* os) {
    *os << row.what;
}

class EditingAFermata : public testing::TestWithParam<EditWhilePlaying> {};

TEST_P(EditingAFermata, LeavesNoNoteBehind) {
    const EditWhilePlaying& row = GetParam();
    TestShow show;
    // The drum comes between the note's written end and the hold.
    show.Song(MakeNoteSong("1", 8, std::string(Melody) + " 10:38@1900-1905", {Organ}));
    if (row.removes) show.Edits("fermata 1:4 1");
    show.sessionOptions.editing = stage::ShowSession::Options::Editing::InMemory;
    const test_support::TemporaryDirectory directory;
    show.WriteTo(directory);
    stage::ShowSession session(directory.Path(), directory.Path(), show.sessionOptions);
    session.LoadSong("1");
    session.Play();
    std::vector<float> left(SecondOfFrames / 100);
    std::vector<float> right(left.size());
    const auto render = [&](double seconds) {
        for (int i = 0; i < static_cast<int>(seconds * 100); ++i) {
            session.GetStagePlayer().GetEngine().Render(left.data(), right.data(),
                                                        static_cast<std::uint32_t>(left.size()));
            session.GetSteppedFeed().MakePass();
        }
    };
    render(row.seconds);
    if (row.removes) session.RemoveEdits("1", {CL::Fermata(1440, 1920)});
    if (row.adds) session.AddEdit("1", CL::Fermata(1440, row.newEnd));
    render(3);
    session.FlowControlExit();
    render(3.5);
    EXPECT_EQ(0U, session.GetSynth().CountSoundingNotes());
}

INSTANTIATE_TEST_SUITE_P(
    Edits, EditingAFermata,
    testing::Values(EditWhilePlaying{"taken away while the note is played", 1.7, true, false, 0},
                    EditWhilePlaying{"taken away after the note's written end", 1.99, true, false, 0},
                    EditWhilePlaying{"taken away while it holds", 3, true, false, 0},
                    EditWhilePlaying{"made longer while the note is played", 1.7, true, true, 2400},
                    EditWhilePlaying{"made longer after the note's written end", 1.99, true, true, 2400},
                    EditWhilePlaying{"made longer while it holds", 3, true, true, 2400},
                    EditWhilePlaying{"put over a note that is played", 1.7, false, true, 1920},
                    EditWhilePlaying{"put over a note that has ended", 1.99, false, true, 1920}));

}  // namespace
