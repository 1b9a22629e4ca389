// Importing a large score: from the text of its MusicXML to a song with its timeline.

#include <fmt/format.h>

#include <pugixml.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/rows.h"
#include "stage/import/musicxml/score_file.h"
#include "stage/import/musicxml/score_song.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"

namespace bench {

namespace {

constexpr std::size_t ScoreBytes = 5U << 20U;
constexpr unsigned int Parts = 8;

/// A measure of sixteen notes as notation programs write them, with a repeat of every sixteen bars.
std::string MakeMeasure(unsigned int bar, Random& random) {
    std::string text = fmt::format("    <measure number=\"{}\">\n", bar + 1);
    if (bar == 0)
        text +=
            "      <attributes>\n        <divisions>4</divisions>\n        <key><fifths>0</fifths></key>\n"
            "        <time><beats>4</beats><beat-type>4</beat-type></time>\n        </attributes>\n";
    if (bar % 16 == 8) text += "      <barline location=\"left\"><repeat direction=\"forward\"/></barline>\n";
    for (int i = 0; i < 16; ++i)
        text += fmt::format(
            "      <note>\n        <pitch>\n          <step>{}</step>\n          <octave>{}</octave>\n          "
            "</pitch>\n"
            "        <duration>1</duration>\n        <voice>1</voice>\n        <type>16th</type>\n"
            "        <stem>up</stem>\n        </note>\n",
            "CDEFGAB"[random.Below(7)], 3 + random.Below(3));
    if (bar % 16 == 15) text += "      <barline location=\"right\"><repeat direction=\"backward\"/></barline>\n";
    return text + "      </measure>\n";
}

std::string MakeScore() {
    Random random(1);
    const std::size_t bars = ScoreBytes / Parts / MakeMeasure(1, random).size() + 1;
    std::string list;
    std::string music;
    for (unsigned int part = 0; part < Parts; ++part) {
        list += fmt::format("    <score-part id=\"P{0}\"><part-name>Part {0}</part-name></score-part>\n", part);
        music += fmt::format("  <part id=\"P{}\">\n", part);
        for (unsigned int bar = 0; bar < bars; ++bar)
            music += MakeMeasure(bar, random);
        music += "    </part>\n";
    }
    return "<score-partwise version=\"4.0\">\n  <part-list>\n" + list + "    </part-list>\n" + music +
           "</score-partwise>\n";
}

}  // namespace

void AddScoreRows(Table& table, const Effort& effort) {
    const std::string text = MakeScore();
    std::size_t notes = 0;
    const Candidate parse{"parse",
                          [&text](std::size_t) {
                              pugi::xml_document document;
                              if (!document.load_buffer(text.data(), text.size()))
                                  throw std::runtime_error("The score is no XML.");
                          },
                          {},
                          1};
    const Candidate import{"import",
                           [&text, &notes](std::size_t) {
                               namespace mx = stage::musicxml;
                               const mx::WrittenScore score = mx::ReadScore(text, "large.musicxml");
                               const stage::ImportedSong song = MakeScoreSong(score, mx::BarOrder::AsPlayed);
                               notes = tavo_midi::BuildSong(tavo_midi::ReadSmf(song.packed.smf, "large"),
                                                            song.packed.options, "large")
                                           .GetEvents()
                                           .size() /
                                       2;
                           },
                           {},
                           1};
    const std::vector<Timing> timings = MeasureInterleaved({parse, import}, effort, Clock::ThreadCpu, 5);
    const double seconds = timings[1].Median() / 1e9;
    table.Add({"import a score", fmt::format("{:.1f} MB, {} notes", static_cast<double>(text.size()) / 1e6, notes),
               "parsing its XML", FormatTime(timings[0].Median()), FormatTime(timings[1].Median()),
               FormatRatio(MedianRatio(timings[1], timings[0])), "< 2 s", "", seconds < 2});
}

}  // namespace bench
