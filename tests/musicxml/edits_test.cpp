#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tavo_core/edit_rules.h"
#include "tavo_core/edit_text.h"
#include "tests/musicxml/song_text.h"

namespace {

namespace mx = stage::musicxml;
using mx::BarOrder;
using mx::MarkKind;
using test_support::BuildSongOf;
using test_support::MakeScore;
using test_support::Quarter;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// "repeat B-C 2, fermata 1440-1920": the edits but markers, ranges of whole bars by their labels.
std::string PrintEdits(const stage::ImportedSong& song) {
    const tavo_midi::SongData built = BuildSongOf(song);
    const TL::BarPositions positions(built.GetTimeline());
    std::string text;
    song.firstEdits.ForEachSequence([&](const auto& sequence) {
        for (const auto& edit : sequence) {
            if (!text.empty()) text += ", ";
            text += CL::DescribeKind(edit) + " " + CL::DescribePlace(edit, positions);
            if (!CL::DescribeValue(edit).empty()) text += " " + CL::DescribeValue(edit);
        }
    });
    return text;
}

struct EditsRow {
    const char* name;
    const char* flow;
    const char* edits;
    std::vector<std::string> notes;
};

void PrintTo(const EditsRow& row, std::ostream* stream) {
    *stream << row.flow;
}

class EditsAsWritten : public testing::TestWithParam<EditsRow> {};

TEST_P(EditsAsWritten, SayWhatTheyCanAndNameTheRest) {
    const stage::ImportedSong song = MakeScoreSong(MakeScore(GetParam().flow), BarOrder::AsWritten);
    EXPECT_EQ(GetParam().edits, PrintEdits(song));
    std::vector<testing::Matcher<std::string>> notes;
    for (const std::string& note : GetParam().notes)
        notes.emplace_back(HasSubstr(note));
    EXPECT_THAT(song.notes, testing::ElementsAreArray(notes));
    EXPECT_THAT(CL::CheckSongLog(song.firstEdits, BuildSongOf(song).GetTimeline()), IsEmpty());
}

const EditsRow Rows[] = {
    {"NoSigns", "1 2 3", "", {}},
    {"Repeat", "1 |: 2 3 :| 4", "repeat bars 2 to 3 2 times", {}},
    {"RepeatWithItsCount", "|: 1 2 :|5 3", "repeat bars 1 to 2 5 times", {}},
    {"RepeatPlayedOnce", "|: 1 2 :|1 3", "", {}},
    {"RepeatsInsideOneAnother", "|: 1 |: 2 :|3 3 :|", "repeat bars 1 to 3 2 times, repeat bar 2 3 times", {}},
    {"SignWithoutForwardSign_IsWrittenOut",
     "1 |: 2 :| 3 :| 4",
     "repeat bars 2 (2) to 3 2 times",
     {"the repeat sign after bar 3 has no sign to go back to"}},
    {"SignWithoutForwardSign_AfterThreeTimes",
     "|: 1 :|3 2 :| 3",
     "repeat bar 1 2 times, repeat bars 1 (2) to 2 2 times",
     {"the repeat sign after bar 2 has no sign to go back to"}},
    {"SignWithoutForwardSign_AfterAVamp",
     "|: 1 \"Vamp\" :| 2 :| 3",
     "vamp bar 1",
     {"the repeat sign after bar 2 has no sign to go back to",
      "the repeat of bars 1 to 2 takes the one inside it only once, which no edit can say: it is left out"}},
    {"VampOverARepeat", "1 |: 2 \"Vamp_till_ready\" 3 :| 4", "vamp bars 2 to 3", {}},
    {"VampInsideARepeat", "|: 1 |: 2 \"VAMP\" :| 3 :|", "vamp bar 2, repeat bars 1 to 3 2 times", {}},
    {"VampOverNoRepeat", "1 2 \"Vamp\" 3", "", {"\"Vamp\" in bar 2 stands over no repeat and is a marker only"}},
    {"Endings",
     "1 |: 2 [1 3 :| ] [2 4 ] 5",
     "",
     {"the repeat of bars 2 to 4 has endings, which no edit can say: each of its bars is played once"}},
    {"RepeatInsideOneWithEndings",
     "|: 1 |: 2 :| [1 3 :| ] [2 4 ]",
     "repeat bar 2 2 times",
     {"the repeat of bars 1 to 4 has endings"}},
    {"DaCapoAlFine",
     "1 Fine 2 DC",
     "",
     {"the D.C. in bar 2 is not an edit: playback goes on there", "the Fine in bar 1"}},
    {"DalSegnoAlCoda",
     "1 segno 2 ToCoda 3 DS coda 4",
     "",
     {"the D.S. in bar 3 is not an edit", "the To Coda in bar 2 is not an edit"}},
    {"FineWithoutAJump", "1 2 Fine", "", {}},
    {"EndingsOfAJump",
     "1 [1 2 DC ] [2 3 ]",
     "",
     {"the ending over bar 2 is for a jump", "the ending over bar 3 is for a jump", "the D.C. in bar 2"}},
    {"RepeatThatEndsNowhere", "1 |: 2 3", "", {"the repeat that begins with bar 2 ends nowhere"}},
    {"AttaccaAtTheEnd", "1 2 3 \"attacca\"", "", {}},
    {"AttaccaInTheMiddle", "1 \"attacca\" 2 3 4", "", {"does not stand at the end and is a marker only"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, EditsAsWritten, testing::ValuesIn(Rows), [](const auto& row) { return row.param.name; });

class EditsOfMarks : public testing::Test {
protected:
    void Mark(std::size_t bar, MarkKind kind, double position, double length = 0) {
        score_.bars[bar].marks.push_back(
            {kind, static_cast<mx::Units>(position * Quarter), static_cast<mx::Units>(length * Quarter), 0, "", {}});
    }
    [[nodiscard]] stage::ImportedSong Make() const { return MakeScoreSong(score_, BarOrder::AsWritten); }

    mx::WrittenScore score_ = MakeScore("1 2 3");
};

TEST_F(EditsOfMarks, FermataHoldsItsNote) {
    Mark(1, MarkKind::Fermata, 2, 1);
    EXPECT_EQ("fermata 2:3 up to 2:4", PrintEdits(Make()));
}

TEST_F(EditsOfMarks, FermataOverABarLine_HoldsTheBeatBefore) {
    Mark(1, MarkKind::Fermata, 4);
    EXPECT_EQ("fermata 2:4 up to 3", PrintEdits(Make()));
}

TEST_F(EditsOfMarks, FermatasThatOverlap_HoldTheShortest) {
    Mark(1, MarkKind::Fermata, 0, 4);
    Mark(1, MarkKind::Fermata, 2, 1);
    Mark(2, MarkKind::Fermata, 0, 4);
    EXPECT_EQ("fermata 2:3 up to 2:4, fermata bar 3", PrintEdits(Make()));
    EXPECT_THAT(Make().notes, IsEmpty());
}

TEST_F(EditsOfMarks, FermataWhereALoopEnds_EndsATickBeforeSoThatItsReleaseDoesNotLeaveTheLoop) {
    score_ = MakeScore("|: 1 2 :| 3");
    Mark(1, MarkKind::Fermata, 3, 1);
    EXPECT_EQ("repeat bars 1 to 2 2 times, fermata 2:4 up to 2:4+479", PrintEdits(Make()));
}

TEST_F(EditsOfMarks, FermataBehindTheEnd_HoldsUpToTheEnd) {
    Mark(2, MarkKind::Fermata, 3, 8);
    EXPECT_EQ("fermata 3:4 up to end", PrintEdits(Make()));
}

TEST_F(EditsOfMarks, CaesurasAreCaesuras_BreathsOnlyWhereTheyStop) {
    Mark(0, MarkKind::Breath, 2);
    Mark(1, MarkKind::Caesura, 4);
    Mark(1, MarkKind::Breath, 4);
    EXPECT_EQ("caesura 3 \"caesura\"", PrintEdits(Make()));
    EXPECT_EQ("caesura 3 \"caesura\"", PrintEdits(MakeScoreSong(score_, BarOrder::AsWritten, stage::Breaths::Ignore)));
    EXPECT_EQ("caesura 1:3 \"breath\", caesura 3 \"caesura\"",
              PrintEdits(MakeScoreSong(score_, BarOrder::AsWritten, stage::Breaths::Stop)))
        << "one at a place";
}

TEST_F(EditsOfMarks, AsPlayed_ThereAreNone) {
    score_ = MakeScore("|: 1 \"Vamp\" :| 2 \"attacca\"");
    Mark(1, MarkKind::Fermata, 0, 4);
    const stage::ImportedSong song = MakeScoreSong(score_, BarOrder::AsPlayed);
    EXPECT_EQ("", PrintEdits(song));
    EXPECT_EQ(CL::AttaccaNormal, song.firstEdits.GetAttacca());
}

TEST_F(EditsOfMarks, AttaccaAtTheEnd_MakesTheNextSongFollow) {
    score_ = MakeScore("1 2 3 \"attacca\"");
    EXPECT_EQ(CL::AttaccaNext, Make().firstEdits.GetAttacca());
    score_ = MakeScore("1 \"attacca\" 2 3");
    EXPECT_EQ(CL::AttaccaNormal, Make().firstEdits.GetAttacca());
}

}  // namespace
