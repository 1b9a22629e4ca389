// A whole evening through flow control and the tracker: no sound, 64-frame blocks, every rule an engine follows.

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <mutex>

#include "benchmarks/rows.h"
#include "benchmarks/stand.h"
#include "tavo_midi/tempo_map.h"

namespace bench {

namespace {

constexpr std::uint32_t FramesPerSecond = 48000;
constexpr std::uint64_t FramesPerBlock = 64;
constexpr unsigned int TicksPerQuarter = 480;
constexpr unsigned int BarTicks = 4 * TicksPerQuarter;
constexpr unsigned int TempoCount = 10000;
constexpr unsigned int TempoTicks = 864;
constexpr unsigned int EndTick = TempoCount * TempoTicks;
constexpr std::size_t NoteCount = 200000;
constexpr std::size_t BlocksPerPass = 25;

TL::Timeline MakeEvening() {
    TL::Timeline timeline(0, EndTick);
    timeline.GetMeters().Append({0, 4, 4});
    timeline.GetKeys().Append({0, 0, false});
    for (unsigned int tick = 0; tick < EndTick; tick += TicksPerQuarter)
        timeline.GetBarsBeats().Append({tick, tick / TicksPerQuarter % 4 + 1, std::to_string(tick / BarTicks + 1)});
    Random random(7);
    for (unsigned int i = 0; i < TempoCount; ++i)
        timeline.GetTempos().Append({i * TempoTicks, 400000 + random.Below(250000)});
    return timeline;
}

/// Every twenty bars an edit of another kind.
CL::SongLog MakeEveningsEdits() {
    CL::SongLog songLog;
    unsigned int kind = 0;
    for (unsigned int tick = 8 * BarTicks; tick + 8 * BarTicks < EndTick; tick += 20 * BarTicks, ++kind) {
        switch (kind % 6) {
            case 0:
                songLog.GetVamps().Add({tick, tick + 2 * BarTicks, 2});
                break;
            case 1:
                songLog.GetRepeats().Add({tick, tick + 4 * BarTicks, 2});
                break;
            case 2:
                songLog.GetCuts().Add({tick, tick + 3 * BarTicks});
                break;
            case 3:
                songLog.GetFermatas().Add({tick, tick + TicksPerQuarter});
                break;
            case 4:
                songLog.GetCaesuras().Add({tick, "", 0});
                break;
            default:
                songLog.GetMarkers().Add({tick, "Scene " + std::to_string(kind)});
                break;
        }
    }
    return songLog;
}

/// An engine without sound: it follows the order that flow control asks for and steps through the notes.
class SilentEngine {
public:
    explicit SilentEngine(Stand& stand)
        : flow_(stand.Flow()), map_(MakeEvening().GetTempos(), TicksPerQuarter), notes_(NoteCount) {
        for (std::size_t i = 0; i < NoteCount; ++i)
            notes_[i] = static_cast<unsigned int>(static_cast<double>(EndTick) * static_cast<double>(i) / NoteCount);
    }

    [[nodiscard]] bool IsAtEnd() const { return tick_ >= EndTick; }
    [[nodiscard]] std::size_t CountNotes() const { return notesPlayed_; }
    [[nodiscard]] std::size_t CountJumps() const { return jumps_; }

    /// Plays the next 64 frames; a jump, a cut or a stop ends the block early.
    void PlayBlock() {
        frame_ += FramesPerBlock;
        const unsigned int blockEnd = std::min(map_.TickOfFrame(frame_, FramesPerSecond), EndTick);
        do {
            if (!Arrive(blockEnd)) return;
        } while (tick_ < blockEnd);
    }

private:
    /// One arrival and the stretch that follows it; false when the block ends there.
    bool Arrive(unsigned int blockEnd) {
        flow_.SetTickIndex(tick_);
        flow_.ProcessLoopEventsAtCurrentTickIndex();
        if (const unsigned int target = flow_.GetTickIndex(); target != tick_) return MoveTo(target);
        flow_.GetHowToPlay().Advance(tick_);
        flow_.FindNextControlEventOnAdvance(tick_, PlannedEnd(blockEnd));
        const FindNextControlEventResult result = flow_.GetResult_();
        if (result.loopStartsHere) return true;
        if (result.caesuraHere) {
            flow_.OnCaesuraStop();
            return false;
        }
        if (result.cutHere) {
            const std::lock_guard lock(flow_.GetSeekLock());
            flow_.DoSkipAhead(result.tickIndex);
            return MoveTo(result.tickIndex);
        }
        for (; note_ < NoteCount && notes_[note_] < result.tickIndex; ++note_)
            ++notesPlayed_;
        tick_ = result.tickIndex;
        return true;
    }

    [[nodiscard]] unsigned int PlannedEnd(unsigned int blockEnd) {
        const std::lock_guard lock(flow_.GetSeekLock());
        LoopEventList& loops = flow_.GetLoopEvents_();
        return loops.IsEmpty() ? blockEnd : std::min(blockEnd, loops.GetFirstLoopEvent().end);
    }

    bool MoveTo(unsigned int tick) {
        tick_ = tick;
        frame_ = map_.FrameOfTick(tick, FramesPerSecond);
        note_ = static_cast<std::size_t>(std::lower_bound(notes_.begin(), notes_.end(), tick) - notes_.begin());
        ++jumps_;
        return false;
    }

    BenchFlow& flow_;
    const tavo_midi::TempoMap map_;
    std::vector<unsigned int> notes_;
    unsigned int tick_ = 0;
    std::uint64_t frame_ = 0;
    std::size_t note_ = 0;
    std::size_t notesPlayed_ = 0;
    std::size_t jumps_ = 0;
};

double ReadResidentMegabytes() {
    std::ifstream file("/proc/self/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

}  // namespace

void AddWholeShowRows(Table& table, const Effort& effort) {
    Stand stand(MakeEveningsEdits(), MakeEvening(), TicksPerQuarter);
    SilentEngine engine(stand);
    stand.Flow().FullReset();

    // As many blocks as the evening lasts, or a tenth of them; a tenth of that is timed in stretches of one second.
    constexpr std::size_t BlocksPerStretch = FramesPerSecond / FramesPerBlock;
    const std::size_t stretches = effort.brief ? 900 : 9000;
    Timing first;
    Timing last;
    double total = 0;
    double memoryAtFirst = 0;
    std::size_t blocks = 0;
    for (std::size_t stretch = 0; stretch < stretches && !engine.IsAtEnd(); ++stretch) {
        const double start = ReadNanoseconds(Clock::ThreadCpu);
        for (std::size_t i = 0; i < BlocksPerStretch && !engine.IsAtEnd(); ++i) {
            engine.PlayBlock();
            if (++blocks % BlocksPerPass == 0) {
                Stand::Feed().MovePlayhead(stand.Flow().GetTickIndex());
                Stand::Feed().RunOnePass_();
            }
        }
        const double nanoseconds = ReadNanoseconds(Clock::ThreadCpu) - start;
        total += nanoseconds;
        if (stretch < stretches / 10) first.Add(nanoseconds);
        if (stretch >= stretches - stretches / 10) last.Add(nanoseconds);
        if (stretch == stretches / 100) memoryAtFirst = ReadResidentMegabytes();
    }
    const double memoryGrowth = ReadResidentMegabytes() - memoryAtFirst;
    const double seconds = static_cast<double>(blocks * FramesPerBlock) / FramesPerSecond;
    const double speed = seconds * 1e9 / total;
    const std::string size = fmt::format("{:.2f} h", seconds / 3600);
    const std::string what = fmt::format("whole show, {} notes, {} jumps", engine.CountNotes(), engine.CountJumps());
    table.Add({what, size, "real time", FormatTime(seconds * 1e9), FormatTime(total), fmt::format("{:.0f}", speed),
               "> 2000 x real time", fmt::format("{:.0f} ns a block", total / static_cast<double>(blocks)),
               speed > 2000});
    const double growth = last.Rounds().empty() ? 0 : last.Median() / first.Median();
    table.Add({"whole show, last tenth", size, "first tenth", FormatTime(first.Median()), FormatTime(last.Median()),
               FormatRatio(growth), "<= 1.1", "", growth <= 1.1});
    table.Add({"whole show, memory", size, "", "", fmt::format("{:+.1f} MB", memoryGrowth), "", "< 32 MB", "",
               memoryGrowth < 32});
}

}  // namespace bench
