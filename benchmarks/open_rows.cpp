// Opening a show: the whole way from the file's bytes to songs with their timelines.

#include <fmt/format.h>

#include <string>

#include "benchmarks/rows.h"
#include "tavo_midi/show_file.h"
#include "tavo_midi/smf_writer.h"

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

}  // namespace

void AddOpenRows(Table& table, const Effort& effort) {
    constexpr unsigned int Songs = 20;
    const std::size_t notesPerSong = 10000;
    std::vector<tavo_midi::ShowSong> songs(Songs);
    for (unsigned int i = 0; i < Songs; ++i) {
        songs[i].options.number = std::to_string(i + 1);
        songs[i].options.title = "Number " + songs[i].options.number;
        songs[i].smfName = songs[i].options.number + ".mid";
        songs[i].smf = MakeSmf(notesPerSong, i);
    }
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
}

}  // namespace bench
