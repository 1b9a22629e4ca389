#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "stage/import/musicxml/song_layout.h"
#include "tests/musicxml/song_text.h"

namespace {

namespace mx = stage::musicxml;
using mx::BarOrder;
using mx::MarkKind;
using mx::WrittenMeter;
using test_support::BuildSongOf;
using test_support::MakeScore;
using test_support::PrintBars;
using test_support::PrintMeters;
using test_support::Quarter;
using testing::ElementsAre;
using testing::IsEmpty;

struct MeterRow {
    const char* name;
    WrittenMeter meter;
    /// Lengths of the bars in quarter notes.
    std::vector<double> quarters;
    const char* meters;
    const char* bars;
};

void PrintTo(const MeterRow& row, std::ostream* stream) {
    *stream << row.name;
}

class MetersOfBars : public testing::TestWithParam<MeterRow> {};

TEST_P(MetersOfBars, MakeTheBarLinesOfTheScore) {
    mx::WrittenScore score = MakeScore("");
    for (const double quarters : GetParam().quarters) {
        mx::WrittenBar& bar = score.bars.emplace_back();
        bar.length = static_cast<mx::Units>(quarters * Quarter);
        if (score.bars.size() == 1) bar.meter = GetParam().meter;
        bar.label = std::to_string(score.bars.size());
    }
    const stage::ImportedSong song = MakeScoreSong(score, BarOrder::AsPlayed);
    const tavo_midi::SongData built = BuildSongOf(song);
    EXPECT_EQ(GetParam().meters, PrintMeters(built));
    EXPECT_EQ(GetParam().bars, PrintBars(built));
    EXPECT_EQ(mx::SongGrid(score, OrderBars(score, BarOrder::AsPlayed)).GetEndTick(),
              built.GetTimeline().GetEndTickIndex());
    EXPECT_THAT(song.notes, IsEmpty());
}

const MeterRow MeterRows[] = {
    {"WholeBars", {{4}, 4}, {4, 4}, "4/4@0", "1=0 2=1920"},
    {"PickUp", {{3}, 4}, {1, 3, 3}, "1/4@0 3/4@480", "1=0 2=480 3=1920"},
    {"PickUpOfAnEighth", {{2}, 4}, {0.5, 2}, "1/8@0 2/4@240", "1=0 2=240"},
    {"PickUpOfAQuarterInCutTime", {{2}, 2}, {1, 4}, "1/4@0 2/2@480", "1=0 2=480"},
    {"SplitBar", {{6}, 8}, {3, 2.5, 0.5, 3}, "6/8@0 5/8@1440 1/8@2640 6/8@2880", "1=0 2=1440 3=2640 4=2880"},
    {"Additive", {{3, 2}, 8}, {2.5, 2.5}, "5/8@0", "1=0 2=1200"},
    {"SenzaMisura", {{}, 4}, {7}, "7/4@0", "1=0"},
    {"SenzaMisura_Long", {{}, 4}, {300}, "150/2@0", "1=0"},
    {"LongerThanTheMeter", {{4}, 4}, {5, 4}, "5/4@0 4/4@2400", "1=0 2=2400"},
    {"SixtyFourth", {{4}, 4}, {0.0625, 4}, "1/64@0 4/4@30", "1=0 2=30"},
};

INSTANTIATE_TEST_SUITE_P(Rows, MetersOfBars, testing::ValuesIn(MeterRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(MeterOfABar, ThatNoMeterSays_EndsEarlyWithANote) {
    mx::WrittenScore score = MakeScore("A B C");
    score.bars[1].length = Quarter / 3;
    const stage::ImportedSong song = MakeScoreSong(score, BarOrder::AsPlayed);
    EXPECT_EQ("A=0 B=1920 C=2080", PrintBars(BuildSongOf(song)));
    EXPECT_EQ("4/4@0 1/4@1920 4/4@2080", PrintMeters(BuildSongOf(song)));
    EXPECT_THAT(song.notes,
                ElementsAre("no meter is as long as bar B, which is 0.33333 quarter notes: it is counted as "
                            "1/4 and ends early"));
}

TEST(MeterOfABar, LongerThanAnyMeter_IsRefused) {
    mx::WrittenScore score = MakeScore("A");
    score.bars[0].length = 1100 * Quarter;
    EXPECT_THAT([&] { (void)MakeScoreSong(score, BarOrder::AsPlayed); },
                testing::ThrowsMessage<std::runtime_error>("bar A is longer than 255 whole notes"));
}

TEST(SongWithoutBars, IsRefused) {
    EXPECT_THAT([] { (void)MakeScoreSong(MakeScore(""), BarOrder::AsPlayed); },
                testing::ThrowsMessage<std::runtime_error>("the score has no bars"));
}

TEST(SongOfEndlessTexts, IsRefused) {
    mx::WrittenScore score = MakeScore("A :|1000000");
    score.bars[0].label = std::string(1000, 'x');
    EXPECT_THAT([&] { (void)MakeScoreSong(score, BarOrder::AsPlayed); },
                testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("bar labels and markers")));
}

TEST(SongOfEndlessMarks, EndsWithANote) {
    mx::WrittenScore score = MakeScore("A :|1000000");
    score.bars[0].marks.assign(100000, {MarkKind::Breath, 0, 0, 0, "", {}});
    const mx::PlayedOrder order = OrderBars(score, BarOrder::AsPlayed);
    EXPECT_EQ(7U, order.bars.size());
    EXPECT_THAT(order.notes, ElementsAre(testing::HasSubstr("the repeats ask for more than")));
}

TEST(TicksOfOddDivisions, DoNotDrift) {
    mx::WrittenScore score = MakeScore("");
    score.unitsPerQuarter = 7;
    mx::PlayedOrder order;
    for (std::uint32_t bar = 0; bar < 7000; ++bar) {
        score.bars.emplace_back().length = 2;
        order.bars.push_back({bar});
    }
    const mx::SongGrid grid(score, order);
    for (std::uint32_t bar = 0; bar <= 7000; ++bar)
        ASSERT_NEAR(bar * 480 * 2 / 7.0, grid.GetBarTick(bar), 0.5);
    EXPECT_EQ(960000U, grid.GetEndTick());
}

struct LabelRow {
    const char* name;
    /// Labels of the written bars; "-" none, a * in front: not counted.
    std::vector<std::string> written;
    const char* played;
};

void PrintTo(const LabelRow& row, std::ostream* stream) {
    *stream << row.name;
}

class LabelsOfBars : public testing::TestWithParam<LabelRow> {};

TEST_P(LabelsOfBars, AreAsPrinted) {
    mx::WrittenScore score = MakeScore("");
    for (std::string label : GetParam().written) {
        mx::WrittenBar& bar = score.bars.emplace_back();
        bar.length = 4 * Quarter;
        bar.isImplicit = label[0] == '*';
        bar.endsRepeat = label.back() == '!';
        std::erase_if(label, [](char c) { return c == '*' || c == '-' || c == '!'; });
        bar.label = label;
    }
    std::string labels;
    const TL::BarPositions positions(BuildSongOf(MakeScoreSong(score, BarOrder::AsPlayed)).GetTimeline());
    for (const auto& bar : positions.GetBars())
        labels += (labels.empty() ? "" : ", ") + bar.label;
    EXPECT_EQ(GetParam().played, labels);
}

const LabelRow LabelRows[] = {
    {"Counting", {"1", "2", "3"}, "1, 2, 3"},
    {"PickUp", {"*0", "1", "2"}, "0, 1, 2"},
    {"PickUpThatIsCounted", {"1", "2"}, "1, 2"},
    {"Texts", {"12", "12a", "X1", "13"}, "12, 12a, X1, 13"},
    {"RestartingNumbers", {"1", "2", "1", "2"}, "1, 2, 1, 2"},
    {"LeadingZeros", {"001", "002"}, "001, 002"},
    {"GapInTheNumbers", {"1", "5", "6"}, "1, 5, 6"},
    {"NoLabels", {"-", "-"}, "1, 2"},
    {"NoLabels_PickUp", {"*-", "1"}, "0, 1"},
    {"NoLabel_SplitBar", {"11", "12", "*-", "*-", "13"}, "11, 12, 12b, 12c, 13"},
    {"NoLabel_BehindANumberWithALetter", {"12a", "-"}, "12a, 13"},
    {"SecondTime", {"1", "2!", "3"}, "1, 2, 1 (2), 2 (2), 3"},
};

INSTANTIATE_TEST_SUITE_P(Rows, LabelsOfBars, testing::ValuesIn(LabelRows),
                         [](const auto& row) { return std::string(row.param.name); });

class LayoutOfAJump : public testing::Test {
protected:
    void Mark(std::size_t bar, MarkKind kind, double value, const std::string& text = "", mx::Units position = 0,
              const std::vector<int>& passes = {}) {
        score_.bars[bar].marks.push_back({kind, position, 0, value, text, passes});
    }
    [[nodiscard]] tavo_midi::SongData Play() const { return BuildSongOf(MakeScoreSong(score_, BarOrder::AsPlayed)); }
    [[nodiscard]] std::string PrintTempos() const {
        std::string text;
        const tavo_midi::SongData song = Play();
        for (const TL::Tempo& tempo : song.GetTimeline().GetTempos())
            text += (text.empty() ? "" : " ") + std::to_string(std::lround(tempo.quarters_per_minute())) + "@" +
                    std::to_string(tempo.abs_time());
        return text;
    }

    mx::WrittenScore score_ = MakeScore("|: A B :| C");
};

TEST_F(LayoutOfAJump, TempoMeterAndKeyAreThoseWrittenThere) {
    Mark(0, MarkKind::Tempo, 100);
    Mark(1, MarkKind::Tempo, 60, "", 2 * Quarter);
    score_.bars[1].meter = WrittenMeter{{3}, 4};
    score_.bars[1].length = 3 * Quarter;
    score_.bars[2].length = 3 * Quarter;
    score_.bars[1].key = mx::WrittenKey{-3, true};
    EXPECT_EQ("100@0 60@2880 100@3360 60@6240", PrintTempos());
    EXPECT_EQ("4/4@0 3/4@1920 4/4@3360 3/4@5280", PrintMeters(Play()));
    std::string keys;
    const tavo_midi::SongData song = Play();
    for (const TL::Key& key : song.GetTimeline().GetKeys())
        keys += std::to_string(key.sharps()) + (key.minor() ? "m" : "") + "@" + std::to_string(key.abs_time()) + " ";
    EXPECT_EQ("0@0 -3m@1920 0@3360 -3m@5280 ", keys);
}

TEST_F(LayoutOfAJump, TempoOfOnePassHoldsInThatPass) {
    Mark(0, MarkKind::Tempo, 100);
    Mark(0, MarkKind::Tempo, 120, "", 0, {2});
    EXPECT_EQ("100@0 120@3840", PrintTempos());
}

TEST_F(LayoutOfAJump, FirstTempoInTheMiddle_BeginsAtTheUsualOne) {
    Mark(1, MarkKind::Tempo, 90);
    EXPECT_EQ("120@0 90@1920", PrintTempos());
}

TEST_F(LayoutOfAJump, MarkersTellTheTime) {
    Mark(1, MarkKind::Rehearsal, 0, "A");
    Mark(2, MarkKind::Words, 0, "Vamp till ready");
    Mark(2, MarkKind::Words, 0, "cresc.");
    std::string markers;
    const tavo_midi::SongData song = Play();
    for (const CL::Marker& marker : song.GetScoreMarkers())
        markers += marker.value() + "@" + std::to_string(marker.abs_time()) + " ";
    EXPECT_EQ("A@1920 A (2)@5760 Vamp till ready@7680 ", markers);
}

TEST_F(LayoutOfAJump, TurnsPagesBackAndForth) {
    score_.bars[0].startsPage = score_.bars[1].startsPage = true;
    const auto pages = [this] { return MakeScoreSong(score_, BarOrder::AsPlayed).packed.options.pages; };
    EXPECT_THAT(pages(),
                ElementsAre(TL::PageNum(0, 1), TL::PageNum(1920, 2), TL::PageNum(3840, 1), TL::PageNum(5760, 2)));
    score_.bars[0].pageNumber = "17";
    EXPECT_THAT(pages(),
                ElementsAre(TL::PageNum(0, 17), TL::PageNum(1920, 18), TL::PageNum(3840, 17), TL::PageNum(5760, 18)));
    EXPECT_TRUE(MakeScoreSong(score_, BarOrder::AsPlayed).printsPageNumbers);
}

TEST_F(LayoutOfAJump, AsWritten_HasEveryBarOnce) {
    EXPECT_EQ("A=0 B=1920 C=3840", PrintBars(BuildSongOf(MakeScoreSong(score_, BarOrder::AsWritten))));
}

}  // namespace
