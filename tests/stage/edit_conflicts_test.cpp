#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stage/show/edit_conflicts.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::ProgramResult;
using test_support::RunStage;
using testing::HasSubstr;

struct ConflictRow {
    std::vector<std::string> edits;
    std::string sentence;  ///< empty where the edits go together
};

class EditConflicts : public test_support::SmallShow, public testing::WithParamInterface<ConflictRow> {};

TEST_P(EditConflicts, AreNamedByCheck) {
    for (const std::string& line : GetParam().edits)
        ASSERT_EQ(0, Edit(line).exitCode) << line;
    const ProgramResult result = RunStage({"check", Show()});
    const std::string version = "show-1." + std::to_string(GetParam().edits.size()) + ".logdata";
    EXPECT_EQ(GetParam().sentence.empty() ? "nothing is wrong\n" : version + ": song 2: " + GetParam().sentence + '\n',
              result.out);
    EXPECT_EQ(GetParam().sentence.empty() ? 0 : 1, result.exitCode);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, EditConflicts,
    testing::Values(
        ConflictRow{{"add caesura --song 2 --at 1:1+479"},
                    "the caesura at 1:1+479 is never met: it stands before the song's second beat"},
        ConflictRow{{"add caesura --song 2 --at 1:2"}, ""},
        ConflictRow{{"add vamp --song 2 --from 3 --to 4", "add caesura --song 2 --at 3:2"},
                    "the vamp over bars 3 to 4 goes around the caesura at 3:2, which stops it in every pass"},
        ConflictRow{{"add vamp --song 2 --from 3 --to 4", "add caesura --song 2 --at 3"}, ""},
        ConflictRow{{"add vamp --song 2 --from 3 --to 4", "add caesura --song 2 --at 5"}, ""},
        ConflictRow{{"add cut --song 2 --from 3 --to 4", "add caesura --song 2 --at 4:2"},
                    "the caesura at 4:2 is never met: the cut over bars 3 to 4 leaves it out"},
        ConflictRow{{"add cut --song 2 --from 3 --to 4", "add caesura --song 2 --at 3"},
                    "the caesura at 3 stands where the cut over bars 3 to 4 begins: it stops before the jump"},
        ConflictRow{{"add cut --song 2 --from 3 --to 4", "add caesura --song 2 --at 5"},
                    "the caesura at 5 is never met: the cut over bars 3 to 4 leaves out the beginning of its "
                    "countdown"},
        ConflictRow{{"add cut --song 2 --from 3 --to 4", "add caesura --song 2 --at 6"}, ""},
        ConflictRow{{"add cut --song 2 --from 4 --to 4", "add caesura --song 2 --at 5"}, ""},
        ConflictRow{{"add vamp --song 2 --from 3 --to 4", "add cut --song 2 --from 4 --to 5"},
                    "the vamp over bars 3 to 4 never goes back: the cut over bars 4 to 5 leaves out its end"},
        ConflictRow{{"add vamp --song 2 --from 3 --to 4", "add cut --song 2 --from 4 --to 4"}, ""},
        ConflictRow{{"add vamp --song 2 --from 3 --to 4", "add cut --song 2 --from 5 --to 5"}, ""},
        ConflictRow{{"add repeat --song 2 --from 3 --to 4 --times 2", "add cut --song 2 --from 2 --to 3"},
                    "the repeat over bars 3 to 4 is never entered: the cut over bars 2 to 3 leaves out its beginning"},
        ConflictRow{{"add vamp --song 2 --from 3 --to 4 --max 1"},
                    "the vamp over bars 3 to 4 has at most one pass and never goes back"},
        ConflictRow{{"add vamp --song 2 --from 3 --to 4 --max 2"}, ""},
        ConflictRow{{"attacca --song 2 attacca"}, "attacca, but no song follows"},
        ConflictRow{{"attacca --song 1 attacca"}, ""}));

class EditConflictsOfMarkers : public test_support::SmallShow {};

TEST_F(EditConflictsOfMarkers, TwoOnOneTick_AreNamed) {
    const tavo_midi::ShowData show(Show() + "/show.showdata");
    CL::SongLog log;
    log.GetMarkers().Add(CL::Marker(480, "C"));
    log.GetMarkers().Add(CL::Marker(480, "Vamp"));
    EXPECT_EQ((std::vector<std::string>{"the markers \"C\" and \"Vamp\" stand at one place, 1:2"}),
              stage::FindConflicts(log, show.GetSongData("2")));
}

// What the table says is what is played: a caesura that is never met does not stop.
TEST_P(EditConflicts, CaesurasThatAreNeverMet_AreNotPlayed) {
    bool hasCaesura = false;
    for (const std::string& line : GetParam().edits) {
        hasCaesura = hasCaesura || line.find("caesura") != std::string::npos;
        ASSERT_EQ(0, Edit(line).exitCode) << line;
    }
    const bool hasVamp = GetParam().edits.front().find("vamp") != std::string::npos;
    if (!hasCaesura || hasVamp) return;
    const ProgramResult render = RunStage({"render", Show(), "--song", "2", "--out", "none", "--trace", "-"});
    const bool isMet = GetParam().sentence.find("never met") == std::string::npos;
    EXPECT_EQ(isMet, render.out.find("\tcaesura\t") != std::string::npos) << render.out;
}

}  // namespace
