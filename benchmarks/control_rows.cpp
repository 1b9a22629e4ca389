// A press through the desk, guard and log included, beside the façade's own call; flow control taken as a value and put
// back, beside a seek, which rebuilds the same from the edits.

#include <fmt/format.h>

#include "benchmarks/rows.h"
#include "benchmarks/stand.h"
#include "player_core/flow_state.h"
#include "stage/control/command_desk.h"
#include "stage/offline/offline_show.h"
#include "tests/player_core/support/test_interface.h"

namespace bench {

namespace {

constexpr double DeskAimNs = 2000;

void AddDeskRow(Table& table, const Effort& effort, const char* name, stage::ShowSession& session,
                stage::Command command, const std::function<void()>& bare) {
    // Far enough from each other to be pressed by a person, so that the guard looks at each and takes it.
    constexpr std::chrono::milliseconds BetweenPresses{300};
    const Candidate facade{"facade", [&](std::size_t count) {
                               for (; count > 0; --count)
                                   bare();
                           }};
    const Candidate desk{"desk", [&](std::size_t count) {
                             for (; count > 0; --count) {
                                 command.moment += BetweenPresses;
                                 if (!session.GetDesk().Execute(command).IsTaken())
                                     throw std::logic_error("the desk refused a press that it should take");
                             }
                         }};
    const std::vector<Timing> timings = MeasureInterleaved({facade, desk}, effort);
    const Timing more = timings[1] + -1.0 * timings[0];
    table.Add({name, "1", "the façade's call", FormatTime(timings[0].Median()), FormatTime(timings[1].Median()),
               fmt::format("+{}", FormatTime(more.Median())), "< +2 us", "", more.Median() < DeskAimNs});
}

void AddFlowStateRows(Table& table, const Effort& effort, std::size_t events) {
    Stand stand(MakeSongLog(events, true), MakeTimeline(events));
    stand.Flow().Seek(MiddleTick);
    const FlowState state = stand.Flow().Snapshot();
    FlowState taken;
    const Candidate seek{"seek", [&](std::size_t count) {
                             for (; count > 0; --count)
                                 stand.Flow().Seek(MiddleTick);
                         }};
    const Candidate snapshot{"snapshot", [&](std::size_t count) {
                                 for (; count > 0; --count)
                                     taken = stand.Flow().Snapshot();
                             }};
    const Candidate restore{"restore", [&](std::size_t count) {
                                for (; count > 0; --count)
                                    stand.Flow().Restore(state);
                            }};
    const Candidate text{"text", [&](std::size_t count) {
                             for (; count > 0; --count)
                                 taken = FlowStateFromText(ToText(state));
                         }};
    const std::vector<Timing> timings = MeasureInterleaved({seek, snapshot, restore, text}, effort);
    const char* names[] = {"snapshot of flow control", "restore", "its text and back"};
    for (std::size_t i = 0; i < std::size(names); ++i) {
        const double ratio = MedianRatio(timings[i + 1], timings[0]);
        table.Add({names[i],
                   fmt::format("{}", events),
                   "seek to the same place",
                   FormatTime(timings[0].Median()),
                   FormatTime(timings[i + 1].Median()),
                   fmt::format("{:.2f}", ratio),
                   "",
                   "",
                   {}});
    }
}

}  // namespace

void AddControlRows(Table& table, const Effort& effort) {
    const test_support::ShowFiles files;
    files.WriteWholeShow();
    stage::ShowSession session(files.Show(), files.Settings(), stage::MakeOfflineSessionOptions());
    session.LoadSong("1");
    const stage::CommandSource key{stage::Door::Terminal, ""};
    AddDeskRow(table, effort, "\"exit\" through guard and log", session, {stage::Verb::Exit, {}, key, 0, {}},
               [&] { session.FlowControlExit(); });
    AddDeskRow(table, effort, "\"tempo 90%\" through check and log", session, {stage::Verb::Tempo, {0.9}, key, 0, {}},
               [&] { session.SetTempoScale(0.9); });
    for (const std::size_t events : {std::size_t{100}, std::size_t{10000}})
        AddFlowStateRows(table, effort, events);
}

}  // namespace bench
