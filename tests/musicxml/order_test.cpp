#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stage/import/musicxml/repeat_plan.h"
#include "stage/import/musicxml/score_song.h"
#include "tests/musicxml/flow_text.h"

namespace {

using stage::musicxml::FindPlayedOrder;
using stage::musicxml::PlanRepeats;
using stage::musicxml::PlayedOrder;
using stage::musicxml::RepeatedPassage;
using stage::musicxml::RepeatPlan;
using stage::musicxml::WrittenBar;
using test_support::ParseFlow;
using test_support::PrintOrder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

struct OrderRow {
    const char* name;
    const char* flow;
    const char* order;
};

void PrintTo(const OrderRow& row, std::ostream* stream) {
    *stream << row.flow;
}

class Order : public testing::TestWithParam<OrderRow> {};

TEST_P(Order, IsAsMusiciansReadIt) {
    const std::vector<WrittenBar> bars = ParseFlow(GetParam().flow);
    const PlayedOrder order = FindPlayedOrder(bars, 1000);
    EXPECT_EQ(GetParam().order, PrintOrder(bars, order));
    EXPECT_THAT(order.notes, IsEmpty());
}

const OrderRow Repeats[] = {
    {"NoSigns", "A B C", "A B C"},
    {"BetweenSigns", "A |: B C :| D", "A B C B C D"},
    {"OneBar", "A |: B :| C", "A B B C"},
    {"NoForwardSign_FromTheBeginning", "A B :| C", "A B A B C"},
    {"ThreeTimes", "A |: B :|3 C", "A B B B C"},
    {"OnceOnly", "A |: B :|1 C", "A B C"},
    {"SideBySide", "|: A :| |: B :|", "A A B B"},
    {"Nested", "|: A |: B :| C :| D", "A B B C A B B C D"},
    {"NestedThreeDeep", "|: A |: B |: C :| D :|3 E :|", "A B C C D B C C D B C C D E A B C C D B C C D B C C D E"},
    {"WholeSong", "|: A B :|", "A B A B"},
};

const OrderRow Endings[] = {
    {"TwoEndings", "|: A [1 B :| ] [2 C ] D", "A B A C D"},
    {"NoForwardSign", "A [1 B :| ] [2 C ] D", "A B A C D"},
    {"ThreeEndings", "|: A [1 B :| ] [2 C :| ] [3 D ] E", "A B A C A D E"},
    {"Lists", "|: A [1,3 B :| ] [2,4 C :| ] [5 D ] E", "A B A C A B A C A D E"},
    {"ListAndLast_AsInStrophes", "A |: B [1,2,3 C :|4 ] [4 D ]", "A B C B C B C B D"},
    {"NumbersDecideWithoutACount", "|: A [1,2,3 B :| ] [4 C ] D", "A B A B A B A C D"},
    {"OneEnding_LastPassGoesOn", "|: A [1 B :| ] C", "A B A C"},
    {"OneEndingOfTwo_LastPassGoesOn", "|: A [1,2 B :| ] C", "A B A B A C"},
    {"OneEndingForEveryPassOfTheCount", "|: A [1,2,3 B :|3 ] C", "A B A B A B C"},
    {"SecondEndingOnly", "|: A :| [2 B ] C", "A A B C"},
    {"LastEndingGoesBackToo_OnePassMore", "|: A [1 B :| ] [2 C :| ] D", "A B A C A D"},
    {"InsideThePassage", "|: A [1 B ] [2 C ] D :| E", "A B D A C D E"},
    {"LongEndings", "|: A [1 B C :| ] [2 D E ] F", "A B C A D E F"},
    {"RepeatInsideAnEnding", "|: A [1 B :| ] [2 |: C :| D ] E", "A B A C C D E"},
    {"NestedWithEndings", "|: A |: B [1 C :| ] [2 D ] E :| F", "A B C B D E A B C B D E F"},
    {"OuterEndingsAroundInnerRepeat", "|: A |: B :| [1 C :| ] [2 D ] E", "A B B C A B B D E"},
    {"NextRepeatBeginsAtOnce", "|: A [1 B :| ] [2 C ] |: D :|", "A B A C D D"},
};

const OrderRow Jumps[] = {
    {"DaCapo", "A B DC", "A B A B"},
    {"DaCapoInTheMiddle_GoesOnAfterwards", "A B DC C", "A B A B C"},
    {"DaCapoAlFine", "A Fine B DC", "A B A"},
    {"FineBeforeAJump_IsPassedOver", "A Fine B", "A B"},
    {"DalSegno", "A segno B C DS", "A B C B C"},
    {"DalSegnoAlFine", "A segno B Fine C DS", "A B C B"},
    {"DaCapoAlCoda", "A B ToCoda C DC coda D", "A B C A B D"},
    {"DalSegnoAlCoda", "A segno B ToCoda C DS coda D E", "A B C B D E"},
    {"ToCodaBeforeAJump_IsPassedOver", "A ToCoda B coda C", "A B C"},
    {"TwoSegnosByLabel", "segno=x A segno=y B C DS=x", "A B C A B C"},
    {"TwoSegnosWithoutLabel_TheLastOne", "segno=x A segno=y B C DS", "A B C B C"},
    {"TwoCodasByLabel", "A ToCoda=2 B DC coda=1 C coda=2 D", "A B A D"},
    {"TwoJumps", "A segno B DS C DC D", "A B B C A B C D"},
    {"AlFineLeavesTheCodaOut", "A ToCoda B Fine C DC \"D.C._al_Fine\" coda D", "A B C A B"},
    {"AlCodaLeavesFineOut", "A Fine B ToCoda C DC \"D.C._al_Coda\" coda D", "A B C A B D"},
    {"FineInTheCoda", "A ToCoda B DC \"al_Coda\" coda C Fine D", "A B A C"},
    {"RepeatsAreNotTakenAgain", "|: A :| B DC", "A A B A B"},
    {"AfterJump_RepeatsAreTakenAgain", "|: A :|a B DC", "A A B A A B"},
    {"RepeatInTheCoda_IsNew", "A ToCoda B DC coda |: C :| D", "A B A C C D"},
    {"LastEndingAfterTheJump", "|: A [1 B :| ] [2 C ] D DC", "A B A C D A C D"},
    {"EndingsOfTheJump", "A [1 B DC ] [2 C ]", "A B A C"},
    {"SegnoInsideARepeat", "|: A segno B :| C DS", "A B A B C B C"},
    {"JumpInThePassesItNames", "|: A DC@1 B :|", "A A B"},
    {"JumpInSecondEnding", "|: A [1 B :| ] [2 C DC ] D", "A B A C A C D"},
    {"FineInThePassItNames", "|: A Fine@2 B :| C", "A B A"},
    {"FineWithRepeats_AfterTheLastPass", "|: A Fine :|a B DC", "A A B A A"},
    {"ToCodaOutOfARepeat", "|: A ToCoda B :| C DC coda D", "A B A B C A D"},
};

std::string NameOf(const testing::TestParamInfo<OrderRow>& row) {
    return row.param.name;
}
INSTANTIATE_TEST_SUITE_P(Repeats, Order, testing::ValuesIn(Repeats), NameOf);
INSTANTIATE_TEST_SUITE_P(Endings, Order, testing::ValuesIn(Endings), NameOf);
INSTANTIATE_TEST_SUITE_P(Jumps, Order, testing::ValuesIn(Jumps), NameOf);

struct OddRow {
    const char* name;
    const char* flow;
    const char* order;
    const char* note;
};

void PrintTo(const OddRow& row, std::ostream* stream) {
    *stream << row.flow;
}

class OddOrder : public testing::TestWithParam<OddRow> {};

TEST_P(OddOrder, IsSensibleAndNamesTheBar) {
    const std::vector<WrittenBar> bars = ParseFlow(GetParam().flow);
    const PlayedOrder order = FindPlayedOrder(bars, 100);
    EXPECT_EQ(GetParam().order, PrintOrder(bars, order));
    EXPECT_THAT(order.notes, ElementsAre(HasSubstr(GetParam().note)));
}

const OddRow OddRows[] = {
    {"EndingWithoutRepeat", "A [1 B ] C", "A B C", "the ending over bar B belongs to no repeat"},
    {"SecondEndingWithoutRepeat", "A [2 B ] C", "A B C", "the ending over bar B belongs to no repeat"},
    {"RepeatThatEndsNowhere", "A |: B C", "A B C", "the repeat that begins with bar B ends nowhere"},
    {"EndingWithoutStop", "|: A [1 B :| [2 C ] D", "A B A C D", "the end of the ending over bar B is not written"},
    {"StopWithoutEnding", "A B ] C", "A B C", "an ending stops after bar B"},
    {"GapInTheNumbers", "|: A [1 B :| ] [3 C ] D", "A B A B A C D", "no ending is written for pass 2"},
    {"NoSegno", "A B DS C", "A B C", "the D.S. in bar B is passed over: there is no segno"},
    {"NoCoda", "A ToCoda B DC", "A B A B", "the To Coda in bar A is passed over: there is no coda"},
    {"SegnoOfAnotherName", "segno=x A B DS=y", "A B A B",
     "asks for the segno \"y\", which is not there; it goes to bar A"},
};

INSTANTIATE_TEST_SUITE_P(Rows, OddOrder, testing::ValuesIn(OddRows), [](const auto& row) { return row.param.name; });

TEST(OrderOfEndlessRepeats, EndsAtTheMostBars) {
    for (const char* flow : {"A |: B :|1000000", "|: V |: W |: X |: Y |: A :|99 B :|99 C :|99 D :|99 E :|99"}) {
        const PlayedOrder order = FindPlayedOrder(ParseFlow(flow), 100);
        EXPECT_THAT(order.bars, SizeIs(100));
        EXPECT_THAT(order.notes, ElementsAre(HasSubstr("more than 100 bars")));
    }
}

TEST(OrderOfDeepRepeats, LeavesOutWhatLiesTooDeep) {
    std::string flow;
    for (std::size_t i = 0; i < 2 * stage::musicxml::MaxRepeatDepth; ++i)
        flow += "|: A" + std::to_string(i) + ' ';
    const PlayedOrder order = FindPlayedOrder(ParseFlow(flow + ":|1"), 1000);
    EXPECT_THAT(order.bars, SizeIs(2 * stage::musicxml::MaxRepeatDepth));
    EXPECT_THAT(order.notes.front(), HasSubstr("more than 64 deep"));
}

TEST(OrderOfManySigns, WithoutForwardSigns_IsNotDeeperThanThat) {
    std::string flow;
    for (int bar = 0; bar < 2000; ++bar)
        flow += "A" + std::to_string(bar) + " :| ";
    const PlayedOrder order = FindPlayedOrder(ParseFlow(flow), 100000);
    EXPECT_THAT(order.notes, testing::Contains(HasSubstr("more than 64 deep")));
    EXPECT_THAT(order.unplayed, IsEmpty());
}

TEST(OrderOfManyRepeats, OfAFewBars_EndsAfterADayOfMusic) {
    stage::musicxml::WrittenScore score;
    score.bars = ParseFlow("|: A |: B |: C |: D :|99 E :|99 F :|99 G :|99");
    for (const stage::musicxml::BarOrder order :
         {stage::musicxml::BarOrder::AsPlayed, stage::musicxml::BarOrder::AsWritten})
        EXPECT_LE(OrderBars(score, order).bars.size(), stage::musicxml::AlwaysPlayedBars);
    const PlayedOrder played = OrderBars(score, stage::musicxml::BarOrder::AsPlayed);
    EXPECT_THAT(played.bars, SizeIs(50'000));
    EXPECT_THAT(played.notes, testing::Contains(HasSubstr("the repeats ask for more than 50000 bars")));
    EXPECT_EQ(120'000U, stage::musicxml::FindMostPlayedBars(60'000));
    EXPECT_EQ(tavo_midi::MaxSongBeats, stage::musicxml::FindMostPlayedBars(200'000));
}

TEST(OrderOfPasses, CountsTimesAndPassesOfTheInnermostRepeat) {
    const auto bars = ParseFlow("|: A |: B :| C :|");
    std::string text;
    for (const auto& played : FindPlayedOrder(bars, 100).bars)
        text += bars[played.bar].label + std::to_string(played.time) + '/' + std::to_string(played.pass) + ' ';
    EXPECT_EQ("A1/1 B1/1 B2/2 C1/1 A2/2 B3/1 B4/2 C2/2 ", text);
}

TEST(RepeatPlan, OfTwoEndings_IsTheOneOfThePictureInItsHeader) {
    const RepeatPlan plan = PlanRepeats(ParseFlow("A |: B C D [1 E :| ] [2 F ] G"));
    ASSERT_EQ(1U, plan.passages.size());
    const RepeatedPassage& passage = plan.passages.front();
    EXPECT_EQ(1U, passage.begin);
    EXPECT_EQ(6U, passage.end);
    EXPECT_THAT(passage.repeatBars, ElementsAre(4U));
    EXPECT_EQ(2, passage.times);
    EXPECT_TRUE(passage.hasEndings);
    EXPECT_EQ(std::nullopt, passage.parent);
    ASSERT_EQ(2U, plan.endings.size());
    for (const auto& ending : plan.endings) {
        EXPECT_EQ(std::optional<std::size_t>(0), ending.passage);
        EXPECT_EQ(0U, ending.chain);
    }
    EXPECT_EQ(std::optional<std::size_t>(1), plan.endingAt[5]);
    EXPECT_EQ(std::nullopt, plan.endingAt[3]);
    EXPECT_THAT(plan.goesBack[5], IsEmpty());
}

TEST(RepeatPlan, OfNestedRepeats_HasTheOuterOneAsParent) {
    const RepeatPlan plan = PlanRepeats(ParseFlow("|: A |: B :| C :|"));
    ASSERT_EQ(2U, plan.passages.size());
    EXPECT_EQ(std::optional<std::size_t>(1), plan.passages[0].parent);
    EXPECT_EQ(std::nullopt, plan.passages[1].parent);
    EXPECT_EQ(std::optional<std::size_t>(0), plan.innermost[1]);
    EXPECT_EQ(std::optional<std::size_t>(1), plan.innermost[2]);
}

}  // namespace
