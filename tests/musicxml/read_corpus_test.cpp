#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>

#include "tests/musicxml/support/score_text.h"
#include "tests/support/show_table.h"

namespace {

using stage::musicxml::MarkKind;
using stage::musicxml::WrittenBar;
using stage::musicxml::WrittenMark;
using stage::musicxml::WrittenScore;
using namespace test_support;

using TableRow = std::map<std::string, std::string>;

/// A song of a cycle: its score, and what the tables beside it say.
struct Song {
    std::string title;
    WrittenScore score;
    std::size_t barsWritten = 0;
    std::vector<TableRow> events;
    std::vector<TableRow> pages;
};

const std::vector<std::string>& Cycles() {
    static const std::vector<std::string> cycles{"show_holmes_melodies", "show_schubert_muellerin"};
    return cycles;
}

const std::vector<Song>& Songs() {
    static const std::vector<Song> songs = [] {
        std::vector<Song> read;
        for (const std::string& cycle : Cycles()) {
            const std::filesystem::path folder = CorpusPath() / cycle;
            const std::vector<TableRow> events = ReadTable(folder / "score_events.tsv");
            const std::vector<TableRow> pages = ReadTable(folder / "pages.tsv");
            for (const TableRow& row : ReadTable(folder / "show.tsv")) {
                const std::filesystem::path path = (folder / row.at("midi")).replace_extension(".mxl");
                std::ifstream file(path, std::ios::binary);
                const std::string bytes{std::istreambuf_iterator<char>(file), {}};
                Song& song = read.emplace_back();
                song.title = row.at("title");
                song.score = stage::musicxml::ReadScore(bytes, path.filename().string());
                song.barsWritten = std::stoul(row.at("bars_written"));
                for (const TableRow& event : events)
                    if (event.at("no") == row.at("no")) song.events.push_back(event);
                for (const TableRow& page : pages)
                    if (page.at("no") == row.at("no")) song.pages.push_back(page);
            }
        }
        return read;
    }();
    return songs;
}

using Events = std::multiset<std::string>;

std::string Place(std::size_t bar, const std::string& label, double quarters, const std::string& what) {
    return fmt::format("{} \"{}\" {:.2f} {}", bar, label, quarters, what);
}

/// The table takes its meters from the voices, which count 12/8 and 6/8 against the piano's 4/4 and 2/4. The bars last
/// as long as the piano's, so that its meters are the score's; it stays in 4/4 where the voices return to 12/8.
std::optional<std::string> FindMeterOfUnReve(const TableRow& row) {
    if (row.at("value") == "6/8") return "2/4";
    if (row.at("value") != "12/8") return row.at("value");
    if (row.at("label") == "42") return std::nullopt;
    return "4/4";
}

/// The table's lines of a song but for its words.
Events TableOf(const Song& song) {
    Events events;
    for (const TableRow& row : song.events) {
        if (row.at("kind") == "words") continue;
        // Where on the bar line a fermata stands is said by its place.
        std::string value = row.at("value") == "barline" ? "" : row.at("value");
        // The one mode that is stated is the one that holds without being stated.
        if (row.at("kind") == "key" && value.ends_with("major")) value.resize(value.size() - 5);
        if (row.at("kind") == "meter" && song.title.starts_with("Un r")) {
            const std::optional<std::string> meter = FindMeterOfUnReve(row);
            if (!meter) continue;
            value = *meter;
        }
        events.insert(Place(std::stoul(row.at("written_bar")), row.at("label"), std::stod(row.at("quarters_into_bar")),
                            row.at("kind") + " " + value));
    }
    return events;
}

std::string Join(const std::vector<int>& numbers) {
    return fmt::format("{}", fmt::join(numbers, ", "));
}

/// What the reader found of the same kinds, in the table's words.
Events ReadOf(const Song& song) {
    Events events;
    for (std::size_t index = 0; index < song.score.bars.size(); ++index) {
        const WrittenBar& bar = song.score.bars[index];
        const auto add = [&](double quarters, const std::string& what) {
            events.insert(Place(index + 1, bar.label, quarters, what));
        };
        const double end = InQuarters(song.score, bar.length);
        if (bar.key) add(0, fmt::format("key {} {}", bar.key->fifths, bar.key->isMinor ? "minor" : ""));
        if (bar.meter) add(0, fmt::format("meter {}/{}", fmt::join(bar.meter->groups, "+"), bar.meter->beatType));
        if (bar.startsRepeat) add(0, "repeat-forward ");
        if (bar.endsRepeat)
            add(end, "repeat-backward " + (bar.repeatTimes == 2 ? "" : std::to_string(bar.repeatTimes)));
        if (bar.endingStart) add(0, "ending-start " + Join(bar.endingStart->numbers));
        if (bar.endingStop) add(end, "ending-stop " + Join(bar.endingStop->numbers));
        for (const WrittenMark& mark : bar.marks) {
            const double quarters = InQuarters(song.score, mark.position);
            if (mark.kind == MarkKind::Tempo) add(quarters, fmt::format("tempo {}", mark.value));
            if (mark.kind == MarkKind::Fermata) add(quarters, "fermata ");
            if (mark.kind == MarkKind::Breath) add(quarters, "breath ");
            if (mark.kind == MarkKind::Caesura) add(quarters, "caesura ");
            if (mark.kind == MarkKind::Rehearsal) add(quarters, "rehearsal " + mark.text);
        }
    }
    return events;
}

std::string Difference(const Events& left, const Events& right) {
    std::vector<std::string> only;
    std::set_difference(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(only));
    return fmt::format("{}", fmt::join(only, "; "));
}

TEST(ReadCorpus, EverySong_HasItsWrittenBars) {
    SKIP_WITHOUT_CORPUS();
    EXPECT_EQ(40u, Songs().size());
    for (const Song& song : Songs())
        EXPECT_EQ(song.barsWritten, song.score.bars.size()) << song.title;
}

/// What the tables leave out, since they take bar lines from the first part only: the piano alone has these.
const std::map<std::string, std::string>& OfThePianoAlone() {
    static const std::map<std::string, std::string> signs{
        {"Kypris berceuse", "28 \"28\" 4.00 fermata "},
        {"Des Baches Wiegenlied",
         "23 \"22\" 0.00 ending-start 1, 2, 3, 4; 23 \"22\" 4.00 ending-stop 1, 2, 3, 4; 24 \"23\" 0.00 ending-start "
         "5; "
         "24 \"23\" 4.00 ending-stop 5"},
    };
    return signs;
}

TEST(ReadCorpus, EverySong_HasTheMarksRepeatsMetersAndKeysOfTheTableAndThePianosOwn) {
    SKIP_WITHOUT_CORPUS();
    for (const Song& song : Songs()) {
        const Events table = TableOf(song);
        const Events read = ReadOf(song);
        const auto more = OfThePianoAlone().find(song.title);
        EXPECT_EQ("", Difference(table, read)) << song.title;
        EXPECT_EQ(more == OfThePianoAlone().end() ? "" : more->second, Difference(read, table)) << song.title;
    }
}

/// The tables give the pieces of a text that changes its font as words of their own, ")" among them.
TEST(ReadCorpus, EveryTempoText_StandsInTheWordsOfItsPlace) {
    SKIP_WITHOUT_CORPUS();
    std::size_t count = 0;
    for (const Song& song : Songs())
        for (const TableRow& row : song.events) {
            if (row.at("kind") != "words" || row.at("value") == ")") continue;
            const double quarters = std::stod(row.at("quarters_into_bar"));
            const auto& marks = song.score.bars.at(std::stoul(row.at("written_bar")) - 1).marks;
            EXPECT_TRUE(std::any_of(marks.begin(), marks.end(),
                                    [&](const WrittenMark& mark) {
                                        return mark.kind == MarkKind::Words &&
                                               InQuarters(song.score, mark.position) == quarters &&
                                               mark.text.find(row.at("value")) != std::string::npos;
                                    }))
                << song.title << " " << row.at("written_bar") << " " << row.at("value");
            ++count;
        }
    EXPECT_EQ(110u, count);
}

/// The page breaks of the tables come from the engraving; none of the scores has a single <print> element.
TEST(ReadCorpus, NoScoreMarksPages_NoneIsRead) {
    SKIP_WITHOUT_CORPUS();
    for (const Song& song : Songs())
        for (const WrittenBar& bar : song.score.bars)
            EXPECT_FALSE(bar.startsPage || bar.startsSystem) << song.title;
}

/// A page begins at the sum of the lengths of the bars before it, as long as nothing before it is repeated.
TEST(ReadCorpus, EveryPageOfTheTable_BeginsAtTheTickWhereTheBarsBeforeItEnd) {
    SKIP_WITHOUT_CORPUS();
    std::size_t pages = 0;
    for (const Song& song : Songs())
        for (const TableRow& row : song.pages) {
            const std::size_t first = std::stoul(row.at("first_written_bar"));
            double quarters = 0;
            bool hasRepeat = false;
            for (std::size_t bar = 0; bar + 1 < first; ++bar) {
                quarters += InQuarters(song.score, song.score.bars.at(bar).length);
                hasRepeat = hasRepeat || song.score.bars.at(bar).endsRepeat;
            }
            EXPECT_EQ(row.at("label"), song.score.bars.at(first - 1).label) << song.title;
            if (hasRepeat) continue;
            EXPECT_EQ(std::stod(row.at("first_tick")), quarters * 480)
                << song.title << " page " << row.at("page_in_song");
            ++pages;
        }
    EXPECT_EQ(187u, pages);
}

/// 12/8 in the voices against 4/4 in the piano: every bar lasts as long as the piano's.
TEST(ReadCorpus, UnReve_WarnsOfTheLocalMetersOfEachVoiceOnceAndOfNoLongBar) {
    SKIP_WITHOUT_CORPUS();
    for (const Song& song : Songs()) {
        if (!song.title.starts_with("Un r")) {
            EXPECT_TRUE(song.score.warnings.empty()) << song.title << ": " << song.score.warnings.front();
            continue;
        }
        ASSERT_EQ(2u, song.score.warnings.size());
        for (const std::size_t voice : {0u, 1u})
            EXPECT_TRUE(song.score.warnings[voice].ends_with(
                "measure 1: the part's meter 12/8 differs from 4/4, which is the score's; the part is not named again"))
                << song.score.warnings[voice];
        EXPECT_NE(std::string::npos, song.score.warnings[0].find("part P1"));
        EXPECT_NE(std::string::npos, song.score.warnings[1].find("part P2"));
    }
}

}  // namespace
