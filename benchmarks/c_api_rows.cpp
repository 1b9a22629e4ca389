// What a call costs more by way of the C library than in C++.

#include <fmt/format.h>

#include <mutex>
#include <stdexcept>

#include "benchmarks/rows.h"
#include "stage/offline/offline_show.h"
#include "tavo/tavo.h"
#include "tests/player_core/support/test_interface.h"

namespace bench {

namespace {

constexpr double CallAimNs = 50;

void AddCallRow(Table& table, const char* name, const char* yardstick, const std::vector<Timing>& timings) {
    const Timing more = timings[1] + -1.0 * timings[0];
    table.Add({name, "1", yardstick, FormatTime(timings[0].Median()), FormatTime(timings[1].Median()),
               fmt::format("+{}", FormatTime(more.Median())), "< +50 ns", "", more.Median() < CallAimNs});
}

void Require(tavo_result result) {
    if (result != TAVO_OK) throw std::runtime_error(tavo_last_error());
}

}  // namespace

void AddCLibraryRows(Table& table, const Effort& effort) {
    const test_support::ShowFiles files;
    files.WriteWholeShow();
    stage::ShowSession session(files.Show(), files.Settings(), stage::MakeOfflineSessionOptions());
    const stage::Engine& engine = session.GetStagePlayer().GetEngine();
    // The library has a process's globals of its own.
    tavo_player* player = nullptr;
    tavo_show* show = nullptr;
    Require(tavo_player_open(files.Show().c_str(), nullptr, &player));
    Require(tavo_player_show(player, &show));
    std::uint32_t tick = 0;
    std::int64_t frame = 0;
    const Candidate inCpp{"C++", [&](std::size_t count) {
                              for (; count > 0; --count) {
                                  *const_cast<volatile std::uint32_t*>(&tick) = engine.GetPosition();
                                  *const_cast<volatile std::int64_t*>(&frame) = engine.GetFrame();
                              }
                          }};
    const Candidate inC{"C", [&](std::size_t count) {
                            for (; count > 0; --count)
                                Require(tavo_player_position(player, &tick, &frame));
                        }};
    AddCallRow(table, "playhead through the C library", "the same call in C++",
               MeasureInterleaved({inCpp, inC}, effort));
    std::mutex mutex;
    const Candidate lock{"lock", [&](std::size_t count) {
                             for (; count > 0; --count)
                                 const std::lock_guard guard(mutex);
                         }};
    const Candidate songs{"songs", [&](std::size_t count) {
                              for (; count > 0; --count)
                                  Require(tavo_show_song_count(show, &tick));
                          }};
    AddCallRow(table, "number of songs through it", "lock and unlock", MeasureInterleaved({lock, songs}, effort));
    Require(tavo_player_close(player));
}

}  // namespace bench
