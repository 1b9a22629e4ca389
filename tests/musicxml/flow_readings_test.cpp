// How musicians read repeats and jumps that are written by halves, or twice in one song.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/musicxml/flow_text.h"

namespace {

using stage::musicxml::FindPlayedOrder;
using stage::musicxml::PlayedOrder;
using stage::musicxml::WrittenBar;
using test_support::ParseFlow;
using test_support::PrintOrder;
using testing::ElementsAreArray;
using testing::HasSubstr;

struct ReadingRow {
    const char* name;
    const char* flow;
    const char* order;
    /// What the import says, and which bars it says are not played.
    std::vector<std::string> notes;
    std::vector<std::string> unplayed;
};

void PrintTo(const ReadingRow& row, std::ostream* stream) {
    *stream << row.flow;
}

class FlowReading : public testing::TestWithParam<ReadingRow> {};

TEST_P(FlowReading, IsAMusiciansAndIsTold) {
    const std::vector<WrittenBar> bars = ParseFlow(GetParam().flow);
    const PlayedOrder order = FindPlayedOrder(bars, 1000);
    EXPECT_EQ(GetParam().order, PrintOrder(bars, order));
    std::vector<testing::Matcher<std::string>> notes;
    for (const std::string& note : GetParam().notes)
        notes.emplace_back(HasSubstr(note));
    EXPECT_THAT(order.notes, ElementsAreArray(notes));
    EXPECT_EQ(GetParam().unplayed, order.unplayed);
}

const ReadingRow Sections[] = {
    {"TwoSections_EachWithItsOwnSigns",
     "segno=1 1 2 ToCoda=1 3 DS=1 \"D.S._al_Coda\" coda=1 4 segno=2 5 6 ToCoda=2 7 DS=2 \"D.S._al_Coda\" coda=2 8",
     "1 2 3 1 2 4 5 6 7 5 6 8",
     {},
     {}},
    {"TwoSections_AllOfTheSameName",
     "segno=s 1 2 ToCoda=c 3 DS=s coda=c 4 segno=s 5 6 ToCoda=c 7 DS=s coda=c 8",
     "1 2 3 1 2 4 5 6 7 5 6 8",
     {},
     {}},
    {"TwoSections_WithoutNames",
     "segno 1 2 ToCoda 3 DS coda 4 segno 5 6 ToCoda 7 DS coda 8",
     "1 2 3 1 2 4 5 6 7 5 6 8",
     {},
     {}},
    {"CodaThenFine", "segno 1 ToCoda 2 3 DS coda 4 segno 5 6 Fine 7 8 DS", "1 2 3 1 4 5 6 7 8 5 6", {}, {}},
    {"PlainJumpThenCoda", "segno 1 2 3 DS 4 segno 5 ToCoda 6 7 DS coda 8", "1 2 3 1 2 3 4 5 6 7 5 8", {}, {}},
    {"OneToCodaForTwoJumps_GoesToTheCodaBehindEach",
     "1 2 segno 3 4 ToCoda 5 6 DS coda 7 8 9 DS coda 10 11",
     "1 2 3 4 5 6 3 4 7 8 9 3 4 10 11",
     {},
     {}},
    {"TwoToCodasForTwoJumps_AreUsedOneAfterTheOther",
     "segno 1 ToCoda 2 ToCoda 3 4 DS coda 5 6 DS coda 7",
     "1 2 3 4 1 5 6 1 2 7",
     {},
     {}},
    {"ToCodaAfterTheJump_IsPassedOver", "segno 1 2 DS 3 ToCoda 4 DC coda 5", "1 2 1 2 3 4 1 2 3 5", {}, {}},
    {"MinuetWithTwoTrios",
     "1 2 Fine 3 DC \"D.C._al_Fine\" 4 DC \"D.C._al_Fine\"",
     "1 2 3 1 2 4 1 2",
     {"after the Fine in bar 2 the music goes on with bar 4"},
     {}},
    {"FineAndThenTheCoda", "1 Fine 2 DC \"al_Fine_e_poi_la_Coda\" coda 3", "1 2 1 3", {}, {}},
    {"NestedRepeatAfterAJump_IsRepeatedInEachPass", "1 DC 2 |: 3 |: 4 :| 5 :|", "1 1 2 3 4 4 5 3 4 4 5", {}, {}},
    {"JumpIntoAFirstEnding_GoesBackOnceMore",
     "1 [1 2 segno 3 4 :| ] [2 5 ] ToCoda 6 7 DS coda 8",
     "1 2 3 4 1 5 6 7 3 4 1 5 8",
     {},
     {}},
    {"OneJumpWrittenAsWordsAndAsSound_IsTakenOnce", "1 segno=s 2 DS DS=s 3", "1 2 2 3", {}, {}},
};

const ReadingRow Brackets[] = {
    {"ImplicitOuterRepeatWithANestedOne", "1 [1 2 |: 3 :| 4 :| ] [2 5 ] 6", "1 2 3 3 4 1 5 6", {}, {}},
    {"SignUnderTheLastEnding", "|: 1 [1 2 :| ] [2 3 :| ] 4", "1 2 1 3 1 4", {}, {}},
    {"SignUnderTheLastEndingOfTheSong",
     "|: 1 [1 2 :| ] [2 3 :| ]",
     "1 2 1 3",
     {"the repeat sign under the last ending, after bar 3, has no music behind it"},
     {}},
    {"SignUnderTheLastEnding_OfAnOuterRepeat", "|: 1 |: 2 [1 3 :| ] [2 4 :| ] 5", "1 2 3 2 4 1 2 3 2 4 5", {}, {}},
    {"FirstEndingWithoutSign",
     "|: 1 [1 2 ] [2 3 :| ] 4",
     "1 2 1 3 1 4",
     {"the ending over bar 2 has no repeat sign; it goes back to bar 1 all the same"},
     {}},
    {"EndingsWithoutAnySign",
     "1 |: 2 [1 3 ] [2 4 ] 5",
     "1 2 3 2 4 5",
     {"the ending over bar 3 has no repeat sign; it goes back to bar 2 all the same"},
     {}},
    {"EndingsWithoutAnySign_NorAForwardSign",
     "1 [1 2 ] [2 3 ] 4",
     "1 2 1 3 4",
     {"the ending over bar 2 has no repeat sign"},
     {}},
    {"OpenLastEnding", "|: 1 [1 2 :| ] [2 3 4", "1 2 1 3 4", {"the end of the ending over bar 3 is not written"}, {}},
    {"OpenLastEndingWithItsSign",
     "1 [1 2 :| ] [2 3 4 :| 5",
     "1 2 1 3 4 1 5",
     {"the end of the ending over bar 3 is not written"},
     {}},
    {"ThirdEndingBehindAnOpenOne",
     "|: 1 [1 2 :| ] [2 3 4 [3 5 ] 6",
     "1 2 1 3 4 1 5 6",
     {"the end of the ending over bar 3 is not written", "the ending over bars 3 to 4 has no repeat sign"},
     {}},
    {"ThirdEndingBehindAClosedOneWithoutSign",
     "|: 1 [1 2 :| ] [2 3 ] [3 4 ] 5",
     "1 2 1 3 1 4 5",
     {"the ending over bar 3 has no repeat sign"},
     {}},
    {"ThirdEnding_SignBehindAll",
     "1 [1 2 :| ] [2 3 [3 4 ] 5 :|",
     "1 2 1 3 5 1 4 5",
     {"the end of the ending over bar 3 is not written", "the repeat sign after bar 5 has no sign to go back to"},
     {}},
    {"OpenEndingWithoutNumberBeforeOneWithANumber",
     "|: 1 [ 2 [1 3 :| ] [2 4 ] 5",
     "1 2 3 1 2 4 5",
     {"the ending over bar 2 has no number and is played in every pass",
      "the end of the ending over bar 2 is not written"},
     {}},
    {"FirstEndingTwice", "1 |: 2 [1 3 :| ] [1 4 :| ] [2 5 ] 6", "1 2 3 2 5 6", {}, {"bar 4 is never played"}},
    {"EndingThatIsARepeatOfItsOwn", "1 |: 2 [1 3 4 :| ] [2 |: 5 6 7 :| ] 8", "1 2 3 4 2 5 6 7 5 6 7 8", {}, {}},
    {"ListsAndASignUnderTheLast", "1 [1,2,4 2 :| ] [3 3 :| ] [5 4 :| ] 5", "1 2 1 2 1 3 1 2 1 4 1 5", {}, {}},
};

const ReadingRow Signs[] = {
    {"SecondSignWithoutForwardSign",
     "1 |: 2 3 :| 4 :| 5 6",
     "1 2 3 2 3 4 2 3 4 5 6",
     {"the repeat sign after bar 4 has no sign to go back to: it goes back to bar 2, as the one before it"},
     {}},
    {"SecondSignWithoutForwardSign_FirstThreeTimes",
     "1 |: 2 3 :|3 4 :| 5",
     "1 2 3 2 3 2 3 4 2 3 4 5",
     {"the repeat sign after bar 4"},
     {}},
    {"NoForwardSignAtAll", "1 :| 2 :| 3", "1 1 2 1 2 3", {"it goes back to bar 1"}, {}},
    {"ThreeSignsOneForwardSign",
     "|: 1 :| 2 :| 3 :| 4",
     "1 1 2 1 2 3 1 2 3 4",
     {"the repeat sign after bar 2", "the repeat sign after bar 3"},
     {}},
    {"SignAfterEndings_TakesTheLastEndingAgain",
     "|: 1 [1 2 :| ] [2 3 ] 4 :| 5",
     "1 2 1 3 4 1 3 4 5",
     {"the repeat sign after bar 4"},
     {}},
    {"EndingsAfterARepeatWithoutForwardSign",
     "|: 1 :| 2 [1 3 :| ] [2 4 ]",
     "1 1 2 3 1 2 4",
     {"the repeat sign after bar 3"},
     {}},
    {"JumpWhereARepeatEnds",
     "1 |: 2 :| DC",
     "1 2 2 1 2",
     {"the jump in bar 2, where a repeat ends, is taken when the repeat is done"},
     {}},
    {"JumpWhereARepeatEnds_GoesOnAfterwards",
     "|: A B :| DC C",
     "A B A B A B C",
     {"the jump in bar B, where a repeat ends"},
     {}},
};

std::string NameReading(const testing::TestParamInfo<ReadingRow>& row) {
    return row.param.name;
}
INSTANTIATE_TEST_SUITE_P(Sections, FlowReading, testing::ValuesIn(Sections), NameReading);
INSTANTIATE_TEST_SUITE_P(Brackets, FlowReading, testing::ValuesIn(Brackets), NameReading);
INSTANTIATE_TEST_SUITE_P(Signs, FlowReading, testing::ValuesIn(Signs), NameReading);

}  // namespace
