// The façade's queries of real music, song by song, against the tables that lie beside it.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "stage/import/show_import.h"
#include "tests/player_core/support/test_interface.h"
#include "tests/support/show_table.h"

namespace {

using test_support::ShowTableRow;
using test_support::TestInterface;

struct Bar {
    std::string label;
    unsigned int start = 0;
    unsigned int end = 0;
    std::size_t beats = 0;
};

std::vector<Bar> BarsOf(const TL::TimelineSequence<TL::BarsBeats>& beats, unsigned int songEnd) {
    std::vector<Bar> bars;
    for (const TL::BarsBeats& beat : beats) {
        if (bars.empty() || beat.bar_number() != bars.back().label) {
            if (!bars.empty()) bars.back().end = beat.abs_time();
            bars.push_back({beat.bar_number(), beat.abs_time(), songEnd, 0});
        }
        ++bars.back().beats;
    }
    return bars;
}

const TL::Meter& MeterAt(const TL::Timeline& timeline, unsigned int tick) {
    const TL::Meter* found = &timeline.GetMeters()[0];
    for (const TL::Meter& meter : timeline.GetMeters())
        if (meter.abs_time() <= tick) found = &meter;
    return *found;
}

std::string KindsOfMeters(const TL::Timeline& timeline) {
    std::string kinds;
    std::set<std::string> seen;
    for (const TL::Meter& meter : timeline.GetMeters()) {
        const std::string kind = std::to_string(meter.numerator()) + "/" + std::to_string(meter.denominator());
        if (seen.insert(kind).second) kinds += (kinds.empty() ? "" : " ") + kind;
    }
    return kinds;
}

double SecondsOf(const TL::Timeline& timeline, unsigned int end, int division) {
    double microseconds = 0;
    const auto& tempos = timeline.GetTempos();
    for (std::size_t i = 0; i < tempos.size() && tempos[i].abs_time() < end; ++i) {
        const unsigned int next = i + 1 < tempos.size() ? std::min(tempos[i + 1].abs_time(), end) : end;
        microseconds += static_cast<double>(next - tempos[i].abs_time()) * tempos[i].microseconds_per_quarter();
    }
    return microseconds / division / 1e6;
}

class FacadeOnRealWork : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        SKIP_WITHOUT_CORPUS();
        rows_ = test_support::ReadShowTable(GetParam());
        stage::ImportRequest request;
        request.paths = {test_support::CorpusPath() / GetParam()};
        request.showPath = files_.Show();
        request.title = "Evening";
        for (const ShowTableRow& row : rows_) {
            const double denominator = std::stod(row.meters.substr(row.meters.find('/') + 1));
            if (row.pickupWholes > 0) request.pickupBeats[row.number] = row.pickupWholes * denominator;
        }
        (void)stage::ImportShow(request);
        facade_ = std::make_unique<TestInterface>(files_);
    }

    [[nodiscard]] const TL::Timeline& Written(const std::string& song) {
        return facade_->GetShowData().GetSongData(song).GetTimeline();
    }
    [[nodiscard]] std::vector<Bar> BarsAsPerformed(const std::string& song) {
        return BarsOf(facade_->GetBarsBeats(song), facade_->GetSongStartTickIndex(song) + facade_->GetSongLength(song));
    }
    void ExpectBarsToBeFound(const std::vector<Bar>& bars);
    void ExpectThinnedTempos(const std::string& song, const std::vector<Bar>& bars);
    void ExpectClicksToDivideTheirBarsOnly(const std::string& song, const std::vector<Bar>& bars);

    test_support::ShowFiles files_;
    std::vector<ShowTableRow> rows_;
    std::unique_ptr<TestInterface> facade_;
};

void FacadeOnRealWork::ExpectBarsToBeFound(const std::vector<Bar>& bars) {
    for (const Bar& bar : bars) {
        facade_->player->calls.Take();
        EXPECT_TRUE(facade_->SeekToBar(bar.label));
        EXPECT_EQ((std::vector<std::string>{"Seek " + std::to_string(bar.start)}), facade_->player->calls.Take());
        EXPECT_EQ(bar.label, facade_->GetBarString(bar.start));
        EXPECT_EQ(bar.label, facade_->GetBarString(bar.end - 1));
    }
    EXPECT_FALSE(facade_->SeekToBar("none"));
}

void FacadeOnRealWork::ExpectThinnedTempos(const std::string& song, const std::vector<Bar>& bars) {
    std::vector<unsigned int> left;
    const TL::Timeline thinned = facade_->GetTimeline();
    for (const TL::Tempo& tempo : thinned.GetTempos())
        left.push_back(tempo.abs_time());
    std::size_t expected = 0;
    unsigned int lastOfSong = 0;
    for (const TL::Tempo& tempo : Written(song).GetTempos())
        lastOfSong = tempo.abs_time();
    for (std::size_t i = 0; i < bars.size(); ++i) {
        std::vector<unsigned int> inBar;
        for (const TL::Tempo& tempo : Written(song).GetTempos())
            if (bars[i].start <= tempo.abs_time() && tempo.abs_time() < bars[i].end) inBar.push_back(tempo.abs_time());
        if (i + 1 == bars.size() || inBar.empty()) continue;
        EXPECT_TRUE(std::ranges::binary_search(left, inBar.front())) << "the first of bar " << bars[i].label;
        ++expected;
        // In the last bar but one the walk ends with the first tempo: it asks for the final bar, which nothing ends.
        if (inBar.size() > 1 && inBar.back() < lastOfSong && i + 2 < bars.size()) {
            EXPECT_TRUE(std::ranges::binary_search(left, inBar.back())) << "the last of bar " << bars[i].label;
            ++expected;
        }
    }
    EXPECT_EQ(expected, left.size()) << "and no others";
}

void FacadeOnRealWork::ExpectClicksToDivideTheirBarsOnly(const std::string& song, const std::vector<Bar>& bars) {
    std::vector<std::size_t> beats;
    for (std::size_t i = 0; i < bars.size(); ++i) {
        const Bar& bar = bars[i];
        beats.push_back(bar.beats);
        const int half = facade_->GetClickValueAt(bar.start) / 2;
        if (i % 3 != 1 || half == 0) continue;
        const CL::Click click(bar.start, bar.end, half);
        const TL::Meter& meter = MeterAt(Written(song), bar.start);
        const unsigned int step = click.ClocksPerClick(meter.thirty_seconds_per_quarter()) *
                                  (facade_->GetShowData().GetSongData(song).GetTicksPerQuarter() / 24U);
        if (step == 0 || (bar.end - bar.start) % step != 0) continue;
        ActiveChangeLogExclusive()->GetSongLog(song).GetClicks().Add(click);
        beats.back() = (bar.end - bar.start) / step;
    }
    const std::vector<Bar> performed = BarsAsPerformed(song);
    ASSERT_EQ(bars.size(), performed.size());
    for (std::size_t i = 0; i < bars.size(); ++i) {
        EXPECT_EQ(bars[i].label, performed[i].label);
        EXPECT_EQ(bars[i].start, performed[i].start);
        EXPECT_EQ(beats[i], performed[i].beats) << "bar " << bars[i].label;
    }
    EXPECT_EQ(bars.size(), BarsOf(facade_->GetBarsBeats(song, false), 0).size());
}

TEST_P(FacadeOnRealWork, EverySong_AgreesWithTheTableBesideIt) {
    for (const ShowTableRow& row : rows_) {
        SCOPED_TRACE(row.number + " " + row.title);
        facade_->LoadSong(row.number);
        const std::vector<Bar> bars = BarsAsPerformed(row.number);
        ASSERT_EQ(row.barsPlayed, bars.size());
        EXPECT_EQ(row.meters, KindsOfMeters(facade_->GetTimeline()));
        EXPECT_EQ(row.meterEvents, facade_->GetTimeline().GetMeters().size());
        EXPECT_EQ(row.keyEvents, facade_->GetTimeline().GetKeys().size());
        EXPECT_EQ(row.tempoEvents, Written(row.number).GetTempos().size());
        // The table's seconds end with the music, the song's length with its last bar.
        const unsigned int musicEnd = facade_->GetShowData().GetSongData(row.number).GetMusicEndTickIndex();
        EXPECT_NEAR(row.seconds, SecondsOf(Written(row.number), musicEnd, row.division), 0.06);
        EXPECT_LT(bars.back().start, musicEnd);
        EXPECT_LE(musicEnd, facade_->GetSongStartTickIndex(row.number) + facade_->GetSongLength(row.number));
        for (const Bar& bar : bars) {
            const TL::Meter& meter = MeterAt(Written(row.number), bar.start);
            EXPECT_EQ(meter.clocks_per_click() * meter.thirty_seconds_per_quarter() / 24,
                      facade_->GetClickValueAt(bar.start));
        }
        ExpectBarsToBeFound(bars);
        ExpectThinnedTempos(row.number, bars);
        ExpectClicksToDivideTheirBarsOnly(row.number, bars);
    }
}

INSTANTIATE_TEST_SUITE_P(Works, FacadeOnRealWork, testing::ValuesIn(test_support::Works()),
                         [](const auto& work) { return work.param; });

}  // namespace
