#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tavo_core/change_log.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::ProgramResult;
using test_support::RunStage;
using testing::HasSubstr;
using testing::StartsWith;

class StageEdit : public test_support::SmallShow {
protected:
    /// The only song log line of an edit in the newest version, or its absence.
    [[nodiscard]] CL::ChangeLog LoadVersion(const std::string& version) const {
        return CL::ChangeLog::Load(Show() + "/show-" + version + ".logdata");
    }
};

struct KindRow {
    std::string line;
    std::string listed;
};

class StageEditKinds : public StageEdit, public testing::WithParamInterface<KindRow> {};

TEST_P(StageEditKinds, AddSavesAVersion_ListShowsIt_RemoveTakesItAway) {
    const ProgramResult added = Edit("add " + GetParam().line);
    ASSERT_EQ(0, added.exitCode) << added.err;
    // No sound lies in the show, and its settings have no target.
    EXPECT_TRUE(added.err.empty() || added.err.starts_with("note: song 2: the ")) << added.err;
    EXPECT_THAT(added.out, HasSubstr("saved version 1.1 as " + Show() + "/show-1.1.logdata"));
    const ProgramResult listed = Edit("list --song 2");
    EXPECT_THAT(listed.out, HasSubstr(GetParam().listed));
    ASSERT_EQ(0, Edit("remove --song 2 1").exitCode);
    EXPECT_EQ(LoadVersion("1.0").GetSongLog("2").GetVamps().size(), 0U);
    EXPECT_EQ("version 1.2\nsong 2: Second, normal\n", Edit("list --song 2").out);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, StageEditKinds,
    testing::Values(
        KindRow{"vamp --song 2 --from 3 --to 4", "   1  vamp  bars 3 to 4\n"},
        KindRow{"vamp --song 2 --from 3 --to 4 --max 7", "   1  vamp  bars 3 to 4  at most 7 times\n"},
        KindRow{"repeat --song 2 --from 3 --to 3 --times 3", "   1  repeat  bar 3  3 times\n"},
        KindRow{"cut --song 2 --from 3:3 --to 4:2", "   1  cut   3:3 up to 4:2\n"},
        KindRow{"fermata --song 2 --from 3:3 --to 3:4", "   1  fermata  3:3 up to 3:4\n"},
        KindRow{"caesura --song 2 --at 5 --text wait", "   1  caesura  5      \"wait\"\n"},
        KindRow{"tempo-scale --song 2 --from 1 --to end --percent 92.5", "   1  tempo scale  bars 1 to 8  92.5%\n"},
        KindRow{"transposition --song 2 --from 1 --to 2 --semitones -3",
                "   1  transposition  bars 1 to 2  down 3 semitones\n"},
        KindRow{"click --song 2 --from 1 --to 2 --every 1/8", "   1  click  bars 1 to 2  every 1/8\n"},
        KindRow{"sfx --song 2 --at 2:4 --sound door.wav --gain -6", "   1  sfx   2:4    \"door.wav\", -6 dB\n"},
        KindRow{"ambient --song 2 --from start --to 2 --sound rain.wav",
                "   1  ambient sfx  bars 1 to 2  \"rain.wav\"\n"},
        KindRow{"osc --song 2 --at t480 --address /go --arg i:-1 --arg f:0.5 --arg s:x --target lights",
                "   1  OSC   1:2    /go -1 0.5 x to lights\n"},
        KindRow{"marker --song 2 --at 2:1+120 --text Dance", "   1  marker  2:1+120  \"Dance\"\n"}));

TEST_F(StageEdit, RangesInBars_IncludeTheLastBar) {
    ASSERT_EQ(0, Edit("add vamp --song 1 --from 12 --to 15").exitCode);
    ASSERT_EQ(0, Edit("add vamp --song 1 --from 17 --to 18:1").exitCode);
    const CL::ChangeLog log = LoadVersion("1.2");
    const auto& vamps = log.GetSongLog("1").GetVamps();
    ASSERT_EQ(2U, vamps.size());
    EXPECT_EQ(11U * 1920, vamps[0].start());
    EXPECT_EQ(15U * 1920, vamps[0].end());
    EXPECT_EQ(16U * 1920, vamps[1].start());
    EXPECT_EQ(17U * 1920, vamps[1].end());
}

struct RefusalRow {
    std::string line;
    std::string sentence;
};

class StageEditRefuses : public StageEdit, public testing::WithParamInterface<RefusalRow> {};

TEST_P(StageEditRefuses, InOneSentence_AndSavesNothing) {
    ASSERT_EQ(0, Edit("add vamp --song 1 --from 5 --to 8").exitCode);
    ASSERT_EQ(0, Edit("add cut --song 1 --from 10 --to 12").exitCode);
    ASSERT_EQ(0, Edit("add caesura --song 1 --at 15").exitCode);
    const ProgramResult refused = Edit(GetParam().line);
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_EQ("stage: " + GetParam().sentence + "\n", refused.err);
    EXPECT_EQ("", refused.out);
    EXPECT_FALSE(std::filesystem::exists(Show() + "/show-1.4.logdata"));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, StageEditRefuses,
    testing::Values(
        RefusalRow{"add vamp --song 1 --from 12 --to 99", "song 1: there is no bar 99, the song's bars are 1 to 20"},
        RefusalRow{"add vamp --song 1 --from 12:5 --to 13", "song 1: bar 12 has no beat 5, it has the beats 1 to 4"},
        RefusalRow{"add vamp --song 1 --from soon --to 13",
                   "song 1: \"soon\" names no place: write a bar (17), bar and beat (17:3), a tick (t9600), start or "
                   "end"},
        RefusalRow{"add vamp --song 7 --from 12 --to 13", "the show has no song \"7\""},
        RefusalRow{"add cut --song 1 --from 3 --to 3:1", "song 1: the cut's end, 3, does not lie after its start, 3"},
        RefusalRow{"add cut --song 1 --from 5 --to 3:2", "song 1: the cut's end, 3:2, does not lie after its start, 5"},
        RefusalRow{"add cut --song 1 --from 5 --to t38401",
                   "song 1: the cut from 5 to tick 38401 ends after the song, whose end is tick 38400"},
        RefusalRow{"add osc --song 1 --at end --address /x",
                   "song 1: the OSC at tick 38400 lies outside the song, whose ticks are 0 to 38400"},
        RefusalRow{"add vamp --song 1 --from 5 --to 8", "song 1: the vamp over bars 5 to 8 is there already"},
        RefusalRow{"add repeat --song 1 --from 7 --to 9 --times 2",
                   "song 1: the repeat over bars 7 to 9 crosses the vamp over bars 5 to 8"},
        RefusalRow{"add cut --song 1 --from 12:4 --to 13",
                   "song 1: the cut over 12:4 up to 14 overlaps the cut over bars 10 to 12"},
        RefusalRow{"add caesura --song 1 --at 15:1", "song 1: the caesura at 15 is there already"},
        RefusalRow{"add marker --song 1 --at 5 --text Verse", "song 1: the marker at 5 is there already"},
        RefusalRow{"add repeat --song 1 --from 1 --to 2 --times 1",
                   "song 1: a repeat of 1 passes is not from 2 to 9999"},
        RefusalRow{"add tempo-scale --song 1 --from 1 --to 2 --percent 49",
                   "song 1: a tempo scale of 49% is not from 50% to 200%"},
        RefusalRow{"add transposition --song 1 --from 1 --to 2 --semitones 25",
                   "song 1: a transposition of 25 semitones is not from -24 to 24"},
        RefusalRow{"add click --song 1 --from 1 --to 2 --every 3/8",
                   "song 1: a click every 3/8 does not divide the bar, 1/32, 1/16, 1/8, 1/4, 1/2, 1/1 do"},
        RefusalRow{"add click --song 1 --from 1 --to 2 --every fast",
                   "\"fast\" is not the length of a note: write 1/4, 1/8 or 3/8"},
        RefusalRow{"add sfx --song 1 --at 1 --sound ../x.wav",
                   "song 1: the sound \"../x.wav\" does not lie in the show directory"},
        RefusalRow{"add osc --song 1 --at 1 --address go",
                   "song 1: \"go\" is not an OSC address: it must begin with / and hold no blank and no #"},
        RefusalRow{"add osc --song 1 --at 1 --address /go --arg 7",
                   "\"7\" is not an OSC argument: write i:1, f:0.5 or s:text"},
        RefusalRow{"remove --song 1 9", "song 1 has no edit 9, its edits are 1 to 4"},
        RefusalRow{"remove --song 2 1", "song 2 has no edits"}));

TEST_F(StageEdit, LoopsInsideOneAnother_AreTaken) {
    EXPECT_EQ(0, Edit("add vamp --song 1 --from 5 --to 8").exitCode);
    EXPECT_EQ(0, Edit("add repeat --song 1 --from 5 --to 6 --times 2").exitCode);
    EXPECT_EQ(0, Edit("add vamp --song 1 --from 1 --to 8").exitCode);
}

TEST_F(StageEdit, WrongWords_EndWithTwo) {
    for (const std::string line : {"add", "add dance --song 1", "add vamp --song 1 --from 1", "frobnicate",
                                   "add vamp --song 1 --from 1 --to 2 --max many", "attacca --song 1 perhaps"}) {
        const ProgramResult result = Edit(line);
        EXPECT_EQ(2, result.exitCode) << line;
        EXPECT_THAT(result.err, StartsWith("stage: ")) << line;
        EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n')) << result.err;
    }
}

TEST_F(StageEdit, MajorVersion_BeginsAtZeroAgain) {
    ASSERT_EQ(0, Edit("attacca --song 1 attacca").exitCode);
    ASSERT_EQ(0, Edit("--major attacca --song 2 skip").exitCode);
    const CL::ChangeLog log = LoadVersion("2.0");
    EXPECT_EQ(CL::AttaccaNext, log.GetSongLog("1").GetAttacca());
    EXPECT_EQ(CL::AttaccaSkip, log.GetSongLog("2").GetAttacca());
    EXPECT_EQ(CL::AttaccaNormal, LoadVersion("1.1").GetSongLog("2").GetAttacca());
}

TEST_F(StageEdit, AFileOfEdits_MakesOneVersion) {
    const std::string file = directory_ / "rehearsal.edits";
    test_support::WriteAll(file,
                           "# after the second rehearsal\n\n"
                           "add vamp --song 1 --from 1 --to 2\r\n"
                           "  add marker --song 2 --at 3 --text \"Second verse\"\n"
                           "remove --song 1 1\n");
    const ProgramResult applied = Edit("apply " + file);
    ASSERT_EQ(0, applied.exitCode) << applied.err;
    EXPECT_EQ(
        "song 1: added vamp bars 1 to 2\nsong 2: added marker 3, \"Second verse\"\n"
        "song 1: removed marker 5, \"Verse\"\nsaved version 1.1 as " +
            Show() + "/show-1.1.logdata\n",
        applied.out);
}

TEST_F(StageEdit, AFileWithABadLine_ChangesNothing) {
    const std::string file = directory_ / "bad.edits";
    test_support::WriteAll(file, "add vamp --song 1 --from 1 --to 2\nadd vamp --song 1 --from 2 --to 3\n");
    const ProgramResult applied = Edit("apply " + file);
    EXPECT_EQ(1, applied.exitCode);
    EXPECT_EQ("stage: " + file + ", line 2: song 1: the vamp over bars 2 to 3 crosses the vamp over bars 1 to 2\n",
              applied.err);
    EXPECT_FALSE(std::filesystem::exists(Show() + "/show-1.1.logdata"));
}

TEST_F(StageEdit, HelpOfAKind_ShowsPlacesAndAnExample) {
    const ProgramResult help = Edit("add vamp --help");
    EXPECT_EQ(0, help.exitCode);
    EXPECT_THAT(help.out, HasSubstr("--from PLACE"));
    EXPECT_THAT(help.out, HasSubstr("17:3 its third beat"));
    EXPECT_THAT(help.out, HasSubstr("stage edit myshow add vamp --song 3 --from 12 --to 15"));
}

}  // namespace
