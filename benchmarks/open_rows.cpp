// Opening a show: the whole way from the file's bytes to songs with their timelines.

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/rows.h"
#include "stage/import/show_import.h"
#include "tavo_midi/show_file.h"
#include "tavo_midi/smf_writer.h"
#include "tests/support/corpus.h"
#include "tests/support/temporary_directory.h"

namespace bench {

namespace {

constexpr unsigned int TicksPerQuarter = 480;
constexpr unsigned int Channels = 8;

/// A song with so many notes, two records each: running scales on eight channels.
std::string MakeSmf(std::size_t notes, unsigned int seed) {
    tavo_midi::Smf smf;
    smf.format = 1;
    smf.ticksPerQuarter = TicksPerQuarter;
    Random random(seed);

    for (unsigned int channel = 0; channel < Channels; ++channel) {
        tavo_midi::SmfTrack track;
        track.firstEvent = smf.events.size();
        if (channel == 0) {
            track.tempos.emplace_back(0, 500000);
            track.meters.emplace_back(0, 4, 4);
        }
        unsigned int tick = 0;
        for (std::size_t i = 0; i < notes / Channels; ++i, tick += 120) {
            const auto key = static_cast<std::uint8_t>(36 + random.Below(48));
            smf.events.push_back({tick, static_cast<std::uint8_t>(0x90U | channel), key, 80, 0});
            smf.events.push_back({tick + 110, static_cast<std::uint8_t>(0x80U | channel), key, 64, 0});
        }
        track.eventCount = smf.events.size() - track.firstEvent;
        track.endTick = tick;
        smf.tracks.push_back(track);
    }
    return tavo_midi::WriteSmf(smf);
}

std::vector<tavo_midi::ShowSong> MakeSongs(unsigned int count, std::size_t notesPerSong) {
    std::vector<tavo_midi::ShowSong> songs(count);
    for (unsigned int i = 0; i < count; ++i) {
        songs[i].options.number = std::to_string(i + 1);
        songs[i].options.title = "Number " + songs[i].options.number;
        songs[i].smfName = songs[i].options.number + ".mid";
        songs[i].smf = MakeSmf(notesPerSong, i);
    }
    return songs;
}

void AddOpeningRow(Table& table, const std::string& what, const std::string& n, const std::string& path) {
    std::vector<double> milliseconds;
    double peak = 0;
    for (int i = 0; i < 5; ++i) {
        const Opening opening = OpenInOwnProcess(OpenShowArgument, path);
        milliseconds.push_back(opening.milliseconds);
        peak = std::max(peak, opening.peakMegabytes);
    }
    std::nth_element(milliseconds.begin(), milliseconds.begin() + 2, milliseconds.end());
    table.Add({what, n, "", "", fmt::format("{:.0f} ms", milliseconds[2]), fmt::format("{:.0f} MB", peak),
               "< 300 ms, < 150 MB", "", milliseconds[2] < 300 && peak < 150});
}

/// The work of the corpus whose show is the largest, as the host imports it.
void AddCorpusOpening(Table& table) {
    if (!std::filesystem::is_directory(test_support::CorpusPath())) {
        table.Add({"open the largest work of the corpus", "", "", "", "no corpus here", "", "", "", {}});
        return;
    }
    const test_support::TemporaryDirectory directory;
    std::filesystem::path largest;
    for (const auto& work : std::filesystem::directory_iterator(test_support::CorpusPath())) {
        const std::string name = work.path().filename().string();
        if (!work.is_directory() || !name.starts_with("show_")) continue;
        static_cast<void>(stage::ImportShow({.paths = {work.path().string()},
                                             .showPath = directory / name,
                                             .title = {},
                                             .pickupBeats = {},
                                             .reportProgress = {}}));
        const std::filesystem::path show = std::filesystem::path(directory / name) / (name + ".showdata");
        if (largest.empty() || file_size(show) > file_size(largest)) largest = show;
    }
    AddOpeningRow(table, "open the largest work of the corpus", largest.stem().string(), largest.string());
}

/// Whole evenings: the largest real one, and sixty songs.
void AddWholeOpenings(Table& table) {
    AddCorpusOpening(table);
    constexpr unsigned int Songs = 60;
    constexpr std::size_t NotesPerSong = 25000;
    const std::string path =
        (std::filesystem::temp_directory_path() / fmt::format("tavo-{}.showdata", getpid())).string();
    tavo_midi::WriteShowData(path, "A long evening", MakeSongs(Songs, NotesPerSong), tavo_midi::ExistingShow::Replace);
    AddOpeningRow(table, "open a show of 60 songs, own process", "1500000 notes", path);
    std::filesystem::remove(path);
}

/// The most memory that this program has held. getrusage would also count what the process held before it became this
/// program: the benchmarks that ran first.
double ReadPeakMegabytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kilobytes = 0;
        if (word == "VmHWM:" && status >> kilobytes) return kilobytes / 1024;
    }
    throw std::runtime_error("This system does not tell how much memory a program has held.");
}

}  // namespace

Opening OpenInOwnProcess(const char* argument, const std::string& path) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("There is no pipe for a process of its own.");
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], 1);
        close(ends[0]);
        execl("/proc/self/exe", "benchmarks", argument, path.c_str(), nullptr);
        _exit(127);
    }
    close(ends[1]);
    Opening opening;
    FILE* const answer = fdopen(ends[0], "r");
    const bool isRead = child > 0 && answer != nullptr &&
                        std::fscanf(answer, "%lf %lf", &opening.milliseconds, &opening.peakMegabytes) == 2;
    if (answer != nullptr) std::fclose(answer);
    int status = 0;
    if (child > 0) waitpid(child, &status, 0);
    if (!isRead || status != 0) throw std::runtime_error("The process that opens the show has failed.");
    return opening;
}

void PrintOpening(double milliseconds) {
    std::printf("%f %f\n", milliseconds, ReadPeakMegabytes());
}

void OpenShow(const char* path) {
    const double start = ReadNanoseconds(Clock::Wall);
    const tavo_midi::ShowData show{std::string(path)};
    PrintOpening((ReadNanoseconds(Clock::Wall) - start) / 1e6);
}

void AddOpenRows(Table& table, const Effort& effort) {
    constexpr unsigned int Songs = 20;
    const std::size_t notesPerSong = 10000;
    const std::vector<tavo_midi::ShowSong> songs = MakeSongs(Songs, notesPerSong);
    const std::string bytes = tavo_midi::PackShowData("An evening", songs);
    std::size_t records = 0;
    const Candidate open{"open",
                         [&bytes, &records](std::size_t) {
                             const tavo_midi::ShowData show = tavo_midi::UnpackShowData(bytes, "evening.showdata");
                             records = 0;
                             for (const tavo_midi::SongData& song : show.GetSongs())
                                 records += song.GetEvents().size();
                         },
                         {},
                         1};
    // The least that reading can cost: a look at each byte of the files.
    const Candidate readBytes{"bytes",
                              [&songs](std::size_t) {
                                  std::uint64_t sum = 0;
                                  for (const tavo_midi::ShowSong& song : songs)
                                      for (const char byte : song.smf)
                                          sum = sum * 31 + static_cast<unsigned char>(byte);
                                  volatile std::uint64_t sink = sum;
                                  static_cast<void>(sink);
                              },
                              {},
                              1};
    const std::vector<Timing> timings = MeasureInterleaved({readBytes, open}, effort, Clock::ThreadCpu, 9);
    const double perRecord = timings[1].Median() / static_cast<double>(records);
    const double perRecordBytes = timings[0].Median() / static_cast<double>(records);
    table.Add({"show open, per event record", fmt::format("{}", records), "one look at each byte",
               FormatTime(perRecordBytes), FormatTime(perRecord), FormatRatio(perRecord / perRecordBytes), "<= 25 ns",
               fmt::format("{} in all", FormatTime(timings[1].Median())), perRecord <= 25});
    AddWholeOpenings(table);
}

}  // namespace bench
