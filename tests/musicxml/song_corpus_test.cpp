// The timelines of two song cycles, imported from their scores alone, against the tables and the MIDI files beside
// them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <sstream>

#include "stage/import/score_beside_midi.h"
#include "tavo_core/bar_positions.h"
#include "tests/musicxml/corpus_songs.h"

namespace {

namespace mx = stage::musicxml;
using test_support::CorpusSong;
using test_support::ReadTable;
using TableRow = std::map<std::string, std::string>;

std::vector<TL::BarPositions::Bar> BarsOf(const tavo_midi::SongData& song) {
    return TL::BarPositions(song.GetTimeline()).GetBars();
}

template <class Entry>
const Entry& InForceAt(const TL::TimelineSequence<Entry>& entries, unsigned int tick) {
    const Entry* found = &entries[0];
    for (const Entry& entry : entries)
        if (entry.abs_time() <= tick) found = &entry;
    return *found;
}

std::string NameMeter(const TL::Meter& meter) {
    return std::to_string(meter.numerator()) + "/" + std::to_string(meter.denominator());
}

class SongOfCycle : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        SKIP_WITHOUT_CORPUS();
        for (const auto& row : test_support::ReadShowTable(GetParam()))
            songs_.push_back(test_support::ReadCorpusSong(row));
        ASSERT_EQ(20U, songs_.size());
    }
    [[nodiscard]] std::vector<TableRow> RowsOf(const std::string& table, const std::string& number) const {
        std::vector<TableRow> rows = ReadTable(test_support::CorpusPath() / GetParam() / table);
        std::erase_if(rows, [&](const TableRow& row) { return row.at("no") != number; });
        return rows;
    }

    std::vector<CorpusSong> songs_;
};

TEST_P(SongOfCycle, HasTheBarsOfTableAndMidiFile) {
    for (const CorpusSong& song : songs_) {
        SCOPED_TRACE(song.row.number + " " + song.row.title);
        const auto written = ReadTable(test_support::CorpusPath() / GetParam() / "show.tsv");
        EXPECT_EQ(written[std::stoul(song.row.number) - 1].at("bars_written"), std::to_string(song.score.bars.size()));
        const auto bars = BarsOf(song.played);
        const auto midiBars = BarsOf(song.midi);
        EXPECT_EQ(song.row.barsPlayed, bars.size());
        ASSERT_EQ(midiBars.size(), bars.size());
        for (std::size_t i = 0; i < bars.size(); ++i) {
            EXPECT_EQ(midiBars[i].startTick, bars[i].startTick) << "bar " << bars[i].label;
            EXPECT_EQ(midiBars[i].endTick, bars[i].endTick) << "bar " << bars[i].label;
        }
    }
}

TEST_P(SongOfCycle, PlaysEveryBarOfItsScoreOrNamesIt) {
    for (const CorpusSong& song : songs_) {
        SCOPED_TRACE(song.row.number + " " + song.row.title);
        const mx::PlayedOrder order = OrderBars(song.score, mx::BarOrder::AsPlayed);
        std::vector<bool> isPlayed(song.score.bars.size(), false);
        for (const mx::PlayedBar& played : order.bars)
            isPlayed[played.bar] = true;
        std::vector<std::string> missing;
        for (std::size_t bar = 0; bar < isPlayed.size(); ++bar)
            if (!isPlayed[bar]) missing.push_back(song.score.bars[bar].label);
        EXPECT_EQ(missing.empty(), order.unplayed.empty());
        EXPECT_TRUE(missing.empty()) << missing.front() << ": each of these songs plays all its bars";
        const mx::PlayedOrder written = OrderBars(song.score, mx::BarOrder::AsWritten);
        ASSERT_EQ(song.score.bars.size(), written.bars.size());
        for (std::size_t bar = 0; bar < written.bars.size(); ++bar)
            EXPECT_EQ(bar, written.bars[bar].bar);
    }
}

TEST_P(SongOfCycle, IsRefusedBesideTheMidiFileOfAnotherSong) {
    std::size_t refused = 0;
    for (std::size_t i = 0; i < songs_.size(); ++i) {
        const CorpusSong& song = songs_[i];
        const CorpusSong& other = songs_[(i + 1) % songs_.size()];
        stage::SongOfFile midi{other.row.midi.string(), {}};
        midi.song.packed.smf = test_support::ReadAll(other.row.midi);
        stage::SongOfFile score{"score.mxl", song.imported};
        try {
            (void)stage::JoinMidiAndScore(std::move(midi), std::move(score));
            ADD_FAILURE() << song.row.title << " beside " << other.row.title;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string::npos, std::string(error.what()).find(" disagree ")) << error.what();
            ++refused;
        }
    }
    EXPECT_EQ(20U, refused);
}

TEST_P(SongOfCycle, HasLabelsThatNameEachBarOnce) {
    for (const CorpusSong& song : songs_) {
        SCOPED_TRACE(song.row.number + " " + song.row.title);
        std::set<std::string> labels;
        for (const auto& bar : BarsOf(song.played))
            EXPECT_TRUE(labels.insert(bar.label).second) << bar.label;
        for (const TableRow& row : RowsOf("pages.tsv", song.row.number))
            EXPECT_EQ(row.at("label"), song.score.bars[std::stoul(row.at("first_written_bar")) - 1].label);
    }
}

/// The second half of a bar that the MIDI file does not mark in its later passes: it ends early under the meter before
/// it. Its bar lines are the same all the same.
bool IsUnmarkedHalf(const std::string& song, const TL::Meter& midi, const TL::BarPositions::Bar& bar) {
    return song.starts_with("Morgengru") && bar.endTick - bar.startTick == 240 && NameMeter(midi) == "2/4";
}

/// The MIDI file of the song whose voices count 12/8 says 1/1 in bars that the piano counts in 4/4.
std::string NameMidiMeter(const std::string& song, const TL::Meter& midi) {
    const std::string name = NameMeter(midi);
    return song.starts_with("Un r") && name == "1/1" ? "4/4" : name;
}

TEST_P(SongOfCycle, HasTheMetersOfTheMidiFileBarForBar) {
    for (const CorpusSong& song : songs_) {
        SCOPED_TRACE(song.row.number + " " + song.row.title);
        for (const auto& bar : BarsOf(song.played)) {
            const TL::Meter& meter = InForceAt(song.played.GetTimeline().GetMeters(), bar.startTick);
            const TL::Meter& midi = InForceAt(song.midi.GetTimeline().GetMeters(), bar.startTick);
            if (IsUnmarkedHalf(song.row.title, midi, bar)) continue;
            EXPECT_EQ(NameMidiMeter(song.row.title, midi), NameMeter(meter)) << "bar " << bar.label;
        }
    }
}

TEST_P(SongOfCycle, HasTheKeysOfTheMidiFileBarForBar) {
    for (const CorpusSong& song : songs_) {
        SCOPED_TRACE(song.row.number + " " + song.row.title);
        for (const auto& bar : BarsOf(song.played)) {
            const TL::Key& key = InForceAt(song.played.GetTimeline().GetKeys(), bar.startTick);
            const TL::Key& midi = InForceAt(song.midi.GetTimeline().GetKeys(), bar.startTick);
            EXPECT_EQ(midi.sharps(), key.sharps()) << "bar " << bar.label;
        }
    }
}

/// First tick of each written bar as it is played.
std::vector<unsigned int> FirstTicks(const CorpusSong& song) {
    const mx::PlayedOrder order = OrderBars(song.score, mx::BarOrder::AsPlayed);
    const mx::SongGrid grid(song.score, order);
    std::vector<unsigned int> ticks(song.score.bars.size(), 0);
    for (std::size_t i = order.bars.size(); i-- > 0;)
        ticks[order.bars[i].bar] = grid.GetBarTick(i);
    return ticks;
}

TEST_P(SongOfCycle, HasTheTemposThatTheTableNames) {
    std::size_t count = 0;
    for (const CorpusSong& song : songs_) {
        SCOPED_TRACE(song.row.number + " " + song.row.title);
        const std::vector<unsigned int> firstTicks = FirstTicks(song);
        for (const TableRow& row : RowsOf("score_events.tsv", song.row.number)) {
            if (row.at("kind") != "tempo") continue;
            const unsigned int tick =
                firstTicks[std::stoul(row.at("written_bar")) - 1] +
                static_cast<unsigned int>(std::lround(std::stod(row.at("quarters_into_bar")) * 480));
            const TL::Tempo& tempo = InForceAt(song.played.GetTimeline().GetTempos(), tick);
            EXPECT_NEAR(std::stod(row.at("value")), tempo.quarters_per_minute(), 0.01) << "bar " << row.at("label");
            ++count;
        }
    }
    EXPECT_GE(count, 5U);
}

/// Songs whose MIDI file has a tempo that the score does not print: hidden marks, rallentandi and fermatas that the
/// file plays as slow tempos.
TEST_P(SongOfCycle, HasTheTempoOfTheMidiFileAtTheBeginningWhereItsScorePrintsOne) {
    for (const CorpusSong& song : songs_) {
        SCOPED_TRACE(song.row.number + " " + song.row.title);
        const auto& marks = song.score.bars.front().marks;
        const bool isPrinted = std::any_of(marks.begin(), marks.end(), [](const mx::WrittenMark& mark) {
            return mark.kind == mx::MarkKind::Tempo && mark.position == 0 && !mark.isGuessed;
        });
        if (!isPrinted) continue;
        const double imported = song.played.GetTimeline().GetTempos()[0].quarters_per_minute();
        const double midi = song.midi.GetTimeline().GetTempos()[0].quarters_per_minute();
        EXPECT_NEAR(midi, imported, 0.01);
        EXPECT_EQ("", mx::DescribeGuessedTempos(song.score).text);
    }
}

TEST_P(SongOfCycle, WithoutATempoInNumbers_HasTheOneOfItsWords) {
    struct Row {
        std::string number;
        std::vector<long> tempos;
        std::string account;
    };
    const std::vector<Row> rows{
        {"1", {95}, "no tempo is given; 95 quarters a minute are taken from \"M\u00E4ssig geschwind\""},
        {"2", {65}, "no tempo is given; 65 quarters a minute are taken from \"M\u00E4\u00DFig\""},
        {"6",
         {48, 42},
         "no tempo is given; 48 quarters a minute are taken from \"Langsam\", and 42 from \"Sehr langsam\" at bar 23"},
        {"14", {158}, "no tempo is given; 158 quarters a minute are taken from \"Geschwind\""},
        {"17", {95}, "no tempo is given; 95 quarters a minute are taken from \"Ziemlich geschwind\""},
    };
    std::size_t guessed = 0;
    for (const CorpusSong& song : songs_) {
        SCOPED_TRACE(song.row.number + " " + song.row.title);
        const std::string account = mx::DescribeGuessedTempos(song.score).text;
        if (account.empty()) continue;
        ASSERT_LT(guessed, rows.size());
        const Row& row = rows[guessed++];
        EXPECT_EQ(row.number, song.row.number);
        EXPECT_EQ(row.account, account);
        std::vector<long> tempos;
        for (const TL::Tempo& tempo : song.played.GetTimeline().GetTempos())
            tempos.push_back(std::lround(tempo.quarters_per_minute()));
        EXPECT_EQ(row.tempos, tempos);
    }
    EXPECT_EQ(GetParam() == "show_schubert_muellerin" ? rows.size() : 0, guessed);
}

TEST_P(SongOfCycle, HasNoPagesBecauseItsScoreMarksNone) {
    for (const CorpusSong& song : songs_) {
        EXPECT_TRUE(std::none_of(song.score.bars.begin(), song.score.bars.end(),
                                 [](const mx::WrittenBar& bar) { return bar.startsPage; }));
        EXPECT_TRUE(song.imported.packed.options.pages.empty());
    }
}

TEST_P(SongOfCycle, TurnsToThePagesOfTheTableWhereTheyAreMarked) {
    for (CorpusSong& song : songs_) {
        SCOPED_TRACE(song.row.number + " " + song.row.title);
        const std::vector<TableRow> rows = RowsOf("pages.tsv", song.row.number);
        for (const TableRow& row : rows) {
            mx::WrittenBar& bar = song.score.bars[std::stoul(row.at("first_written_bar")) - 1];
            bar.startsPage = true;
            // Named, as one page of a song begins within a bar and is not in the table.
            bar.pageNumber = row.at("page_in_song");
        }
        const auto pages = MakeScoreSong(song.score, mx::BarOrder::AsPlayed).packed.options.pages;
        for (const TableRow& row : rows) {
            const auto page = static_cast<unsigned int>(std::stoul(row.at("page_in_song")));
            const auto found = std::find_if(pages.begin(), pages.end(),
                                            [page](const TL::PageNum& turn) { return turn.page_number() == page; });
            ASSERT_NE(pages.end(), found) << "page " << page;
            EXPECT_EQ(std::stoul(row.at("first_tick")), found->abs_time()) << "page " << page;
        }
    }
}

/// What a row of the table is called as a mark.
std::optional<mx::MarkKind> FindMarkKind(const std::string& kind) {
    if (kind == "fermata") return mx::MarkKind::Fermata;
    if (kind == "breath") return mx::MarkKind::Breath;
    if (kind == "caesura") return mx::MarkKind::Caesura;
    if (kind == "rehearsal") return mx::MarkKind::Rehearsal;
    if (kind == "words") return mx::MarkKind::Words;
    return std::nullopt;
}

TEST_P(SongOfCycle, HasTheEventsThatTheTableNames) {
    std::size_t count = 0;
    for (const CorpusSong& song : songs_) {
        for (const TableRow& row : RowsOf("score_events.tsv", song.row.number)) {
            SCOPED_TRACE(song.row.title + " bar " + row.at("label") + " " + row.at("kind") + " " + row.at("value"));
            const mx::WrittenBar& bar = song.score.bars[std::stoul(row.at("written_bar")) - 1];
            EXPECT_EQ(row.at("label"), bar.label);
            const std::string& kind = row.at("kind");
            const std::string& value = row.at("value");
            EXPECT_TRUE(kind != "repeat-forward" || bar.startsRepeat);
            EXPECT_TRUE(kind != "repeat-backward" ||
                        (bar.endsRepeat && bar.repeatTimes == (value.empty() ? 2 : std::stoi(value))));
            EXPECT_TRUE(kind != "ending-start" || bar.endingStart);
            EXPECT_TRUE(kind != "ending-stop" || bar.endingStop);
            const auto markKind = FindMarkKind(kind);
            if (!markKind) continue;
            ++count;
            EXPECT_TRUE(std::any_of(bar.marks.begin(), bar.marks.end(), [&](const mx::WrittenMark& mark) {
                return mark.kind == *markKind && (kind != "rehearsal" || mark.text == value);
            }));
        }
    }
    EXPECT_GE(count, 37U);
}

INSTANTIATE_TEST_SUITE_P(Cycles, SongOfCycle, testing::ValuesIn(test_support::SongCycles()),
                         [](const auto& cycle) { return cycle.param; });

}  // namespace
