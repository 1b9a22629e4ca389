#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/player_core/support/test_interface.h"

namespace {

using test_support::TheFacade;
using test_support::TicksPerBar;

/// Bars of 100 ticks from tick 0, each with one beat.
TL::Timeline MakeTimeline(unsigned int bars, const std::vector<TL::Tempo>& tempos) {
    TL::Timeline timeline(0, bars * 100);
    timeline.SetSongTitle("Title");
    timeline.GetMeters().Append(TL::Meter(0, 1, 4));
    timeline.GetKeys().Append(TL::Key(0, 2, false));
    timeline.GetPageNums().Append(TL::PageNum(0, 1));
    for (unsigned int bar = 0; bar < bars; ++bar)
        timeline.GetBarsBeats().Append(TL::BarsBeats(bar * 100, 1, std::to_string(bar + 1)));
    for (const TL::Tempo& tempo : tempos)
        timeline.GetTempos().Append(tempo);
    return timeline;
}

/// Tempos at these ticks, all different.
std::vector<TL::Tempo> TemposAt(const std::vector<unsigned int>& ticks) {
    std::vector<TL::Tempo> tempos;
    for (const unsigned int tick : ticks)
        tempos.emplace_back(tick, 500000 + 1000 * static_cast<unsigned int>(tempos.size()));
    return tempos;
}

class TheTimeline : public TheFacade {
protected:
    /// The ticks of the tempos that are left.
    std::vector<unsigned int> Thinned(const TL::Timeline& timeline) {
        OpenWith(timeline);
        std::vector<unsigned int> ticks;
        const TL::Timeline thinned = facade_->GetTimeline();
        for (const TL::Tempo& tempo : thinned.GetTempos())
            ticks.push_back(tempo.abs_time());
        return ticks;
    }
};

TEST_F(TheTimeline, TemposOfABar_AreThinnedToTheFirstAndTheLast) {
    using Ticks = std::vector<unsigned int>;
    const struct {
        const char* what;
        Ticks tempos;
        Ticks left;
    } rows[] = {
        {"five tempos in three bars", {0, 120, 150, 170, 250}, {0, 120, 170, 250}},
        {"a tempo carried at the end of the list is dropped", {0, 120, 150, 170}, {0, 120}},
        {"one tempo", {0}, {0}},
        {"one in each bar", {0, 100, 200, 300}, {0, 100, 200, 300}},
        {"the last of a bar waits for a later tempo, however late", {0, 50, 350}, {0, 50, 350}},
        {"bars without a tempo are passed over", {0, 350}, {0, 350}},
        {"a tempo on a bar line belongs to the bar that begins", {0, 199, 200}, {0, 199, 200}},
        {"the final bar's tempos are dropped", {0, 120, 500, 550}, {0, 120}},
        {"so are those behind it", {0, 120, 5000}, {0, 120}},
        {"but what is carried when the walk ends is written before", {0, 120, 150, 500}, {0, 120, 150}},
        {"of the last bar but one the first is kept", {0, 400, 450}, {0, 400}},
        {"and no other, even where a later tempo follows", {0, 400, 450, 550}, {0, 400}},
        {"many in the first bar", {0, 10, 20, 30, 150}, {0, 30, 150}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.left, Thinned(MakeTimeline(6, TemposAt(row.tempos)))) << row.what;
}

TEST_F(TheTimeline, TemposOfOneValue_DifferByTheirTicks) {
    EXPECT_EQ((std::vector<unsigned int>{0, 120, 170, 250}),
              Thinned(MakeTimeline(6, {{0, 500000}, {120, 500000}, {170, 500000}, {250, 500000}})));
}

TEST_F(TheTimeline, TempoBeforeTheFirstBeat_IsCarriedAndLost) {
    TL::Timeline timeline = MakeTimeline(6, TemposAt({0, 120}));
    timeline.GetBarsBeats() = {{20, 3, "1"}, {40, 4, "1"}, {100, 1, "2"}, {200, 1, "3"}, {300, 1, "4"}};
    EXPECT_EQ((std::vector<unsigned int>{120}), Thinned(timeline));
}

TEST_F(TheTimeline, FirstBar_BeginsAtTheFirstBeatWhateverItsNumber) {
    // Two tempos before the first bar line are in one bar: the second is its last.
    TL::Timeline timeline = MakeTimeline(6, TemposAt({20, 50, 60, 150, 250}));
    timeline.GetBarsBeats() = {{20, 3, "0"}, {60, 4, "0"}, {100, 1, "1"}, {200, 1, "2"}, {300, 1, "3"}};
    EXPECT_EQ((std::vector<unsigned int>{20, 60, 150, 250}), Thinned(timeline));
}

TEST_F(TheTimeline, SongWithoutASecondBarLine_KeepsItsTempos) {
    EXPECT_EQ((std::vector<unsigned int>{0, 20, 50}), Thinned(MakeTimeline(1, TemposAt({0, 20, 50}))));
    EXPECT_EQ((std::vector<unsigned int>{0, 20, 50}), Thinned(MakeTimeline(0, TemposAt({0, 20, 50}))));
}

TEST_F(TheTimeline, SongWithoutTempos_StaysWithout) {
    EXPECT_TRUE(Thinned(MakeTimeline(6, {})).empty());
}

TEST_F(TheTimeline, Copy_CarriesTheFiveSequencesAndNothingElse) {
    const TL::Timeline written = MakeTimeline(6, TemposAt({0, 120}));
    OpenWith(written);
    const TL::Timeline copy = facade_->GetTimeline();
    EXPECT_EQ(6U, copy.GetBarsBeats().size());
    EXPECT_EQ(written.GetMeters()[0], copy.GetMeters()[0]);
    EXPECT_EQ(written.GetKeys()[0], copy.GetKeys()[0]);
    EXPECT_EQ(written.GetPageNums()[0], copy.GetPageNums()[0]);
    EXPECT_EQ("", copy.GetSongTitle());
    EXPECT_EQ(0U, copy.GetEndTickIndex());
    EXPECT_EQ(2U, facade_->GetShowData().GetSongData("1").GetTimeline().GetTempos().size()) << "not the song's own";
}

// Bars and pages.

TEST_F(TheFacade, BarString_IsThatOfTheCurrentSongsBar) {
    EXPECT_EQ("1", facade_->GetBarString(0));
    EXPECT_EQ("3", facade_->GetBarString(2 * TicksPerBar + 7));
}

TEST_F(TheFacade, SeekToBar_SeeksToItsFirstTick) {
    EXPECT_EQ("Seek 3840", CallsOf([this] { EXPECT_TRUE(facade_->SeekToBar("3")); }));
}

TEST_F(TheFacade, SeekToABarThatIsNotThere_DoesNothing) {
    PutPlayheadAt(1234);
    for (const char* bar : {"99", "", "three", "3 "})
        EXPECT_EQ("", CallsOf([&] { EXPECT_FALSE(facade_->SeekToBar(bar)); })) << bar;
    EXPECT_EQ(1234U, facade_->GetTickIndex());
}

TEST_F(TheFacade, SeekToBar_LetsTheSeeksOwnErrorsPass) {
    facade_->player->onSeek = [] { throw std::out_of_range("from the player"); };
    EXPECT_THROW(facade_->SeekToBar("3"), std::out_of_range);
}

TEST_F(TheFacade, UnknownPage_ThrowsTheSentenceThatHostsKnow_AndNoNearestOneIsSought) {
    facade_->GetShowData().GetSongData("1").GetTimeline().GetPageNums() = {{0, 1}, {480, 3}};
    facade_->LoadPageNumbers();
    EXPECT_EQ((std::pair<std::string, unsigned int>("1", 480)), facade_->LookupPage(3));
    try {
        (void)facade_->LookupPage(2);
        FAIL() << "a page";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ("invalid map<K, T> key", error.what());
    }
}

TEST_F(TheFacade, LengthAndStart_AreTheTimelines) {
    TL::Timeline timeline = MakeTimeline(6, {});
    timeline.SetStartTickIndex(100);
    OpenWith(timeline);
    EXPECT_EQ(100U, facade_->GetSongStartTickIndex("1"));
    EXPECT_EQ(500U, facade_->GetSongLength("1"));
    EXPECT_EQ(16 * TicksPerBar, facade_->GetSongLength("2"));
    EXPECT_THROW((void)facade_->GetSongLength("99"), std::out_of_range);
    EXPECT_THROW((void)facade_->GetSongStartTickIndex("99"), std::out_of_range);
}

// Markers and edits.

TEST_F(TheFacade, Markers_AreTheCurrentSongsOwnObjects) {
    Edits().GetMarkers().Add(CL::Marker(960, "B"));
    Edits().GetMarkers().Add(CL::Marker(480, "A"));
    Edits("2").GetMarkers().Add(CL::Marker(0, "Z"));
    const std::vector<cmn::TavoEvent*> markers = facade_->GetMarkers();
    ASSERT_EQ(2U, markers.size());
    EXPECT_EQ(&Edits().GetMarkers()[0], markers[0]);
    EXPECT_EQ("A", markers[0]->value());
    EXPECT_EQ("B", markers[1]->value());
}

TEST_F(TheFacade, Markers_AreTakenUnderTheExclusiveLock) {
    std::atomic<bool> hasMarkers{false};
    auto reader = std::make_unique<ActiveChangeLogShared>();
    std::thread asking([&] {
        (void)facade_->GetMarkers();
        hasMarkers = true;
    });
    // Readers go together: another shared query answers while the markers wait.
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(0, facade_->GetAttacca("1"));
    EXPECT_FALSE(hasMarkers);
    reader.reset();
    asking.join();
    EXPECT_TRUE(hasMarkers);
}

/// "480 Vamp, 480 Click": ticks and kinds.
std::string AsText(const std::vector<std::unique_ptr<cmn::TavoEvent>>& events) {
    std::string text;
    for (const auto& event : events)
        text += (text.empty() ? "" : ", ") + std::to_string(event->abs_time()) + static_cast<char>(event->code());
    return text;
}

TEST_F(TheFacade, PanelEvents_AreOrderedByTickAndThenByKind) {
    CL::SongLog& edits = Edits();
    edits.GetOscs().Add(CL::Osc(480, "", "/go"));
    edits.GetSfxAmbients().Add(CL::SfxAmbient(480, 960, "rain.wav"));
    edits.GetSfxs().Add(CL::Sfx(480, 960, "bell.wav"));
    edits.GetFermatas().Add(CL::Fermata(480, 960));
    edits.GetCaesuras().Add(CL::Caesura(480, "", 0));
    edits.GetClicks().Add(CL::Click(480, 960, 4));
    edits.GetTempoScales().Add(CL::TempoScale(480, 960, 0.9F));
    edits.GetTranspositions().Add(CL::Transposition(480, 960, 2));
    edits.GetCuts().Add(CL::Cut(480, 960));
    edits.GetRepeats().Add(CL::Repeat(480, 960, 2));
    edits.GetVamps().Add(CL::Vamp(480, 960));
    edits.GetVamps().Add(CL::Vamp(0, 240));
    edits.GetOscs().Add(CL::Osc(0, "", "/begin"));
    edits.GetMarkers().Add(CL::Marker(480, "no edit"));
    EXPECT_EQ(
        "0@, 0Q, "
        "480@, 480A, 480B, 480C, 480D, 480E, 480M, 480N, 480O, 480P, 480Q",
        AsText(facade_->GetChangeLogPanelEvents()))
        << "a fermata comes before a caesura, although it is gathered behind it";
    facade_->LoadSong("2");
    EXPECT_TRUE(facade_->GetChangeLogPanelEvents().empty()) << "the current song's";
}

TEST_F(TheFacade, PanelEvents_KeepTheOrderOfEqualOnes) {
    Edits().GetOscs().Add(CL::Osc(480, "", "/first"));
    Edits().GetOscs().Add(CL::Osc(480, "", "/second"));
    const auto events = facade_->GetChangeLogPanelEvents();
    ASSERT_EQ(2U, events.size());
    EXPECT_EQ("/first", events[0]->value());
    EXPECT_EQ("/second", events[1]->value());
}

TEST_F(TheFacade, PanelEvents_AreCopiesOfTheirOwnClass) {
    Edits().GetClicks().Add(CL::Click(480, 960, 4));
    const auto events = facade_->GetChangeLogPanelEvents();
    Edits().GetClicks() = {};
    ASSERT_EQ(1U, events.size());
    const auto* click = dynamic_cast<const CL::Click*>(events[0].get());
    ASSERT_NE(nullptr, click);
    EXPECT_EQ(12U, click->ClocksPerClick(8));
}

TEST_F(TheFacade, IgnoredCaesura_IsNeverAmongThePanelEvents) {
    Edits().GetCaesuras().Add(CL::Caesura(480, "", CL::GetCaesuraIgnoredVersionTarget()));
    EXPECT_TRUE(facade_->GetChangeLogPanelEvents().empty());
    facade_->SetVersionTarget(7);
    Edits().GetCaesuras().Add(CL::Caesura(960, "", 3));
    EXPECT_EQ("960N", AsText(facade_->GetChangeLogPanelEvents())) << "another version's caesura is shown";
    facade_->SetVersionTarget(0);
}

}  // namespace
