#include "stage/import/musicxml/tempo_words.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/run_program.h"

namespace {

using stage::musicxml::ReadTempoWords;
using stage::musicxml::WordTempo;
using stage::musicxml::WrittenMeter;

/// "72", "x1.15", "first" or "none".
std::string TempoOf(const std::string& text, bool isHead = true) {
    const auto tempo = ReadTempoWords(text, isHead);
    if (!tempo) return "none";
    if (tempo->kind == WordTempo::Kind::First) return "first";
    return fmt::format("{}{:.4g}", tempo->kind == WordTempo::Kind::Relative ? "x" : "", tempo->value);
}

TEST(TempoWords, OfFourLanguages_HaveTheirBeatsAMinute) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"Andante", "72"},          {"ALLEGRO.", "132"},    {"Langsam", "56"},       {"M\u00E4ssig", "76"},
        {"M\u00E4\u00DFig.", "76"}, {"Ma\u0308ssig", "76"}, {"Maessig", "76"},       {"Lent", "54"},
        {"Mod\u00E9r\u00E9", "88"}, {"ANIM\u00C9", "120"},  {"Slowly", "60"},        {"Con moto", "112"},
        {"Tempo di Marcia", "116"}, {"(Moderately)", "96"}, {"Chant / Lento", "54"}, {"Mouvement de Marche (", "116"},
    };
    for (const auto& [text, tempo] : rows)
        EXPECT_EQ(tempo, TempoOf(text)) << text;
}

/// The table of docs/arranger.md: beats a minute, then the words of four languages.
TEST(TempoWords, OfTheTableThatUsersRead_AreKnownWithItsBeats) {
    std::istringstream page(test_support::ReadAll(SOURCE_DIR "/docs/arranger.md"));
    std::size_t words = 0;
    bool isTable = false;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("| beats |")) isTable = true;
        if (line.empty()) isTable = false;
        if (!isTable || line.size() < 3 || line[2] < '0' || line[2] > '9') continue;
        std::replace_if(
            line.begin(), line.end(), [](char c) { return c == '|' || c == ','; }, ' ');
        std::istringstream row(line);
        std::string beats;
        row >> beats;
        for (std::string word; row >> word; ++words)
            EXPECT_EQ(beats, TempoOf(word)) << word;
    }
    EXPECT_LE(80U, words);
}

TEST(TempoWords, WithADegree_AreTurnedUpOrDown) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"Sehr langsam", "42"},
        {"Ziemlich langsam", "61.6"},
        {"Nicht zu langsam", "67.2"},
        {"Molto allegro", "151.8"},
        {"Allegro moderato", "112.2"},
        {"Allegro ma non troppo", "105.6"},
        {"Etwas geschwind", "112.2"},
        {"Nicht zu geschwind", "105.6"},
        {"M\u00E4ssig geschwind", "112.2"},
        {"Nicht schnell", "93.6"},
        {"Pas vite", "98.8"},
        {"Valse lente", "128"},
        {"Andante con moto", "82.8"},
        {"Allegro vivace", "151.8"},
        {"Tr\u00E8s vif", "165.6"},
        {"Un poco adagio", "63.8"},
        {"Moderately fast", "122.4"},
        {"Moderato", "96"},
    };
    for (const auto& [text, tempo] : rows)
        EXPECT_EQ(tempo, TempoOf(text)) << text;
}

TEST(TempoWords, ComparedWithTheTempoBefore_AreRelative) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"Pi\u00F9 mosso", "x1.15"}, {"Meno mosso", "x0.87"},      {"Poco pi\u00F9 lento", "x0.93"},
        {"Moins vite", "x0.87"},     {"Plus lent", "x0.87"},       {"Etwas geschwinder.", "x1.07"},
        {"Slower", "x0.87"},         {"A little faster", "x1.07"},
    };
    for (const auto& [text, tempo] : rows) {
        EXPECT_EQ(tempo, TempoOf(text, false)) << text;
        EXPECT_EQ("none", TempoOf(text, true)) << text;
    }
    for (const char* first : {"Tempo I", "Tempo primo", "1o Tempo", "1er mouvement", "Erstes Zeitma\u00DF"})
        EXPECT_EQ("first", TempoOf(first, false)) << first;
}

TEST(TempoWords, ThatSayNoTempo_AreNone) {
    for (const char* text : {"", "(Pour T\u00E9nor)", "dolce", "a tempo", "cresc.", "poco rall.", "Ped.", "staccato",
                             "L'istesso tempo", "accelerando al Allegro", "Immer langsamer", "Vamp", "Lentil"})
        EXPECT_EQ("none", TempoOf(text)) << text;
    EXPECT_EQ("none", TempoOf(std::string(101, 'x') + " Allegro"));
}

TEST(TempoWords, InsideASong_BeginWithACapitalAndNothingElseBefore) {
    EXPECT_EQ("132", TempoOf("Allegro", false));
    EXPECT_EQ("59.4", TempoOf("Un poco lento", false));
    EXPECT_EQ("none", TempoOf("slow gliss.", false));
    EXPECT_EQ("none", TempoOf("Vibrato lento", false));
    EXPECT_EQ("none", TempoOf("tranquillo", false));
}

TEST(TempoWords, BeatOfTheMeter_IsWhatIsCounted) {
    struct Row {
        WrittenMeter meter;
        double quarters;
    };
    const std::vector<Row> rows{
        {{{4}, 4}, 100}, {{{3}, 4}, 100},    {{{2}, 4}, 85},  {{{6}, 8}, 120}, {{{9}, 8}, 120}, {{{12}, 8}, 120},
        {{{3}, 8}, 50},  {{{4}, 8}, 50},     {{{5}, 8}, 100}, {{{7}, 8}, 100}, {{{2}, 2}, 120}, {{{3}, 2}, 120},
        {{{6}, 4}, 180}, {{{3, 2}, 8}, 100}, {{{6}, 16}, 60}, {{{}, 4}, 100},
    };
    for (const Row& row : rows)
        EXPECT_NEAR(row.quarters, stage::musicxml::GetQuartersPerMinute(100, row.meter), 1e-9)
            << row.meter.groups.size() << "/" << row.meter.beatType;
}

/// "M\u00E4ssig" as four songs of two cycles have it in numbers, in quarter notes a minute.
TEST(TempoWords, Moderate_IsNearWhatEditionsPrintInFourMeters) {
    struct Row {
        WrittenMeter meter;
        double printed;
    };
    const double beats = ReadTempoWords("M\u00E4ssig", true)->value;
    for (const Row& row : {Row{{{2}, 4}, 58}, Row{{{3}, 4}, 75}, Row{{{6}, 8}, 90}, Row{{{3}, 8}, 40}})
        EXPECT_NEAR(1, stage::musicxml::GetQuartersPerMinute(beats, row.meter) / row.printed, 0.15) << row.printed;
}

}  // namespace
