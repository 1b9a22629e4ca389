#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <stdexcept>

#include "kit/file.h"
#include "tavo_midi/song_builder.h"
#include "tests/support/corpus.h"
#include "tests/support/sanitizers.h"

namespace {

using test_support::IsSanitized;

/// What came of one file: "read" or the sentence that refuses it.
std::string ReadOrRefuse(const std::string& bytes, const std::string& name) {
    try {
        const tavo_midi::Smf smf = tavo_midi::ReadSmf(bytes, name);
        for (std::size_t sequence = 0; sequence < tavo_midi::CountSequences(smf); ++sequence) {
            tavo_midi::SongOptions options;
            options.number = "1";
            options.sequence = sequence;
            const tavo_midi::SongData song = tavo_midi::BuildSong(smf, options, name);
            EXPECT_FALSE(song.GetTimeline().GetBarsBeats().empty());
        }
        return "read";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

std::vector<std::filesystem::path> StressFiles() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(test_support::CorpusPath() / "smf_stress"))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

void ExpectOneSentence(const std::string& sentence, const std::string& name) {
    EXPECT_EQ(std::string::npos, sentence.find('\n')) << sentence;
    EXPECT_NE(std::string::npos, sentence.find(name)) << sentence;
    EXPECT_GE(sentence.size(), name.size() + 10) << sentence;
}

long PeakKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(SmfStress, EveryOddFile_IsReadOrRefusedWithOneSentence) {
    SKIP_WITHOUT_CORPUS();
    const long before = PeakKilobytes();
    std::vector<std::string> refused;
    const std::vector<std::filesystem::path> files = StressFiles();
    ASSERT_GE(files.size(), 100U);
    for (const std::filesystem::path& file : files) {
        const std::string name = file.filename();
        const std::string result = ReadOrRefuse(kit::ReadFile(file, 1 << 24), name);
        if (result == "read") continue;
        refused.push_back(name);
        ExpectOneSentence(result, name);
    }
    if (!IsSanitized) {
        EXPECT_LT(PeakKilobytes() - before, 64 * 1024);
    }
    EXPECT_EQ((std::vector<std::string>{"test-empty-file.mid", "test-not-a-midi-file.mid",
                                        "test-syx-7e-06-01-id-request.syx"}),
              refused);
}

// Every way in which a file can be cut off, and every byte of it wrong.
TEST(SmfStress, DamagedFiles_AreReadOrRefusedWithOneSentence) {
    SKIP_WITHOUT_CORPUS();
    const std::filesystem::path directory = test_support::CorpusPath() / "smf_stress";
    for (const char* file : {"jazz-soft/test-2-tracks-type-1.mid", "jazz-soft/test-sysex-7e-09-01-gm1-enable.mid",
                             "seq66/multi-ports.midi", "note-seq/melody.mid"}) {
        const std::string whole = kit::ReadFile(directory / file, 1 << 24);
        for (std::size_t length = 0; length < whole.size(); ++length) {
            const std::string result = ReadOrRefuse(whole.substr(0, length), "damaged.mid");
            if (result != "read") ExpectOneSentence(result, "damaged.mid");
        }
        for (std::size_t at = 0; at < whole.size(); ++at) {
            for (const int value : {0x00, 0x7F, 0x80, 0xF0, 0xF7, 0xFF}) {
                std::string damaged = whole;
                damaged[at] = static_cast<char>(value);
                const std::string result = ReadOrRefuse(damaged, "damaged.mid");
                if (result != "read") ExpectOneSentence(result, "damaged.mid");
            }
        }
    }
}

}  // namespace
