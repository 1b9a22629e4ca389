// Real music with every kind of edit, performed by script. The traces beside this file were read bar by bar when they
// were made. TAVO_WRITE_GOLDEN=1 writes them anew, to be read again.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "kit/file.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"
#include "tests/support/corpus.h"
#include "tests/support/show_builder.h"

using test_support::Performance;
using test_support::TestShow;

namespace {

struct CorpusEvening {
    const char* name;
    const char* folder;
    const char* firstFile;
    const char* secondFile;
    const char* edits;
    const char* script;
};

void PrintTo(const CorpusEvening& evening, std::ostream* os) {
    *os << evening.name;
}

tavo_midi::SongData ReadSong(const CorpusEvening& evening, const std::string& file, const std::string& number) {
    const std::string path = (test_support::CorpusPath() / evening.folder / file).string();
    tavo_midi::SongOptions options;
    options.number = number;
    options.title = file.substr(3, file.size() - 7);
    return tavo_midi::BuildSong(tavo_midi::ReadSmf(kit::ReadFile(path, 1 << 24), path), options, path);
}

/// The notes that sound when the flow is what the trace's lines say: from each place up to the next jump or cut.
std::vector<int> ListExpectedKeys(const TestShow& show, const Performance& played) {
    std::vector<int> keys;
    std::string song = "1";
    std::uint32_t place = 0;
    const auto playTo = [&](std::uint32_t end) {
        for (const tavo_midi::MidiEvent& event : show.GetShowData().GetSongData(song).GetEvents()) {
            const bool isNote = (event.status & 0xF0U) == 0x90 && event.data2 > 0;
            if (isNote && event.tick >= place && event.tick < end) keys.push_back(event.data1);
        }
    };
    std::istringstream lines(played.trace);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string frame;
        std::uint32_t tick = 0;
        std::string event;
        fields >> frame >> tick >> event;
        const TL::BarPositions positions(show.GetShowData().GetSongData(song).GetTimeline());
        if (event == "jump" || event == "cut") {
            playTo(tick);
            std::string word;
            fields >> word >> word >> word;
            place = positions.FindStartTick(word.substr(0, word.find(',')));
        } else if (event == "attacca") {
            playTo(0xFFFFFFFF);
            song = "2";
            place = 0;
        } else if (event == "operator" && line.find("quit") != std::string::npos) {
            playTo(tick);
        }
    }
    return keys;
}

class CorpusPerformance : public testing::TestWithParam<CorpusEvening> {};

TEST_P(CorpusPerformance, TraceIsTheOneThatWasReadAndWhatSoundsIsWhatItSays) {
    SKIP_WITHOUT_CORPUS();
    const CorpusEvening& evening = GetParam();
    TestShow show;
    show.Song(ReadSong(evening, evening.firstFile, "1")).Edits(evening.edits);
    show.Song(ReadSong(evening, evening.secondFile, "2"));
    const Performance played = show.Perform(evening.script);
    EXPECT_TRUE(played.result.remarks.empty()) << played.result.remarks.front();
    EXPECT_EQ(ListExpectedKeys(show, played), played.Keys());
    int sounding = 0;
    for (const stage::SynthMessage& message : played.messages)
        sounding += message.status == 0x90 ? 1 : 0;
    EXPECT_GT(sounding, 20);

    const std::string path = std::string(SOURCE_DIR) + "/tests/scenarios/golden/" + evening.name + ".trace";
    if (std::getenv("TAVO_WRITE_GOLDEN") != nullptr) std::ofstream(path) << played.trace;
    EXPECT_EQ(kit::ReadFile(path, 1 << 20), played.trace);
}

INSTANTIATE_TEST_SUITE_P(
    Works, CorpusPerformance,
    testing::Values(
        CorpusEvening{"muellerin", "show_schubert_muellerin", "01_Das_Wandern.mid", "02_Wohin.mid",
                      "vamp 3 4\nrepeat 6 6 2\ncut 8 9\nfermata 11 11\ncaesura 14\ntempo 15 15 90\ncut 17 39\nattacca",
                      "at 3@2 exit\nat 12 tempo 100%\n+1.5s exit\nat 14 tempo 100%\n+1s continue\nsong 2 at 3 quit\n"},
        CorpusEvening{"melodies", "show_holmes_melodies", "11_Erotylon.mid", "12_Thrinodia.mid",
                      "cut 2 3\nvamp 5 5\nrepeat 6 7 2\nfermata 8 8\ncaesura 10\ntempo 10 11 80\ncut 12 41\nattacca",
                      "at 5@3 exit\nat 9 tempo 100%\n+2s exit\nat 10 tempo 100%\n+1s continue\nsong 2 at 2 quit\n"},
        CorpusEvening{"abel", "show_harrer_abel", "22_2_11_Recitativo_Des_Hochsten_Wunder_Wege.mid",
                      "23_2_12_Choral_Man_mu_in_Gottes_Herz_und_Si.mid",
                      "vamp 1 1\nrepeat 2 2 2\ncut 3 3\nfermata 4 4\ncaesura 6\ncut 7:2 7\nattacca",
                      "at 1:3@2 exit\nat 5 tempo 100%\n+1s exit\nat 6 tempo 100%\n+1s continue\nsong 2 at 2 quit\n"}));

}  // namespace
