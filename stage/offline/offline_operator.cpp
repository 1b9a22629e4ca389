// The operator of an offline show: the lines of a script, or the automatic one.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "stage/offline/offline_show.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/event_codes.h"
#include "tavo_core/song_log.h"

namespace stage {

namespace {

constexpr double AutomaticWaitSeconds = 2.0;
// Loops within loops: more jumps than this without a press will not come to an end.
constexpr int MaxJumpsWithoutPress = 10000;

}  // namespace

const ScriptLine* OfflineShow::NextLine_() const {
    return options_.script && nextLine_ < options_.script->size() ? &(*options_.script)[nextLine_] : nullptr;
}

std::int64_t OfflineShow::LineFrame_(const ScriptLine& line) const {
    if (line.frame) return *line.frame;
    return lastPressFrame_ + static_cast<std::int64_t>(std::llround(line.seconds * framesPerSecond_));
}

// The engine is to stop for the place that the next line waits for, and where the render ends.
void OfflineShow::PrepareNextLine_() {
    const ScriptLine* line = NextLine_();
    const bool isHere = line != nullptr && line->tick && line->song == song_;
    engine_.SetWantedTicks(isHere ? line->tick : std::nullopt,
                           song_ == options_.lastSong ? options_.toTick : std::nullopt);
}

void OfflineShow::DoWhatIsDue_() {
    for (const ScriptLine* line = NextLine_(); line != nullptr && !line->tick && !isQuitting_; line = NextLine_()) {
        if (LineFrame_(*line) > engine_.GetFrame()) break;
        Do_(*line);
    }
    if (automaticPress_ && automaticPress_->frame <= engine_.GetFrame()) PressAutomatically_();
}

void OfflineShow::OnEngineEvent(const EngineEvent& event) {
    // What a jump ends ends where it has arrived: flow control has then decided what the display shows there.
    if (isQuitting_ && event.kind != EngineEvent::Kind::Jumped) engine_.Stop();
    switch (event.kind) {
        case EngineEvent::Kind::Jumped:
            return OnJump_(event.fromTick, event.tick, event.reason);
        case EngineEvent::Kind::Arrived:
            return OnArrival_(event.tick);
        case EngineEvent::Kind::Held:
            return OnHold_(event.tick);
        case EngineEvent::Kind::Released:
            return OnRelease_(event.tick);
        case EngineEvent::Kind::CountIn:
            if (trace_) TraceLine_(event.tick, "count-in", fmt::format("{}", event.beats));
            return;
        case EngineEvent::Kind::Cue:
            return OnCue_(*event.cue);
        case EngineEvent::Kind::FadeDone:
            // The display learns of the stop that followed at the frame where it happened.
            return KeepDisplayCurrent_();
        default:
            return;
    }
}

void OfflineShow::OnArrival_(std::uint32_t tick) {
    NoticeSong_();
    ForgetPassesOutside_(tick);
    // A song is listed once it plays: one that stands ready at the end was not.
    if (!std::exchange(isListed_, true)) result_.songs.push_back(song_);
    if (trace_) {
        trace_->WriteNotifications(engine_.GetFrame(), tick);
        TraceLoops_(tick);
    }
    DoLinesAt_(tick);
    if (options_.toTick == tick && song_ == options_.lastSong && !flow_.GetWaitingJump()) return Quit_();
    if (options_.script || engine_.IsRolling() || player_.GetPlayerState() != PlayerState::Paused) return;
    const auto wait = static_cast<std::int64_t>(AutomaticWaitSeconds * framesPerSecond_);
    automaticPress_ = AutomaticPress{engine_.GetFrame() + wait, true};
}

void OfflineShow::OnHold_(std::uint32_t tick) {
    if (trace_) TraceLine_(tick, "hold", trace_->GetPositions().DescribeTick(tick));
    DoLinesAt_(tick);
    if (options_.script) return;
    const auto wait = static_cast<std::int64_t>(AutomaticWaitSeconds * framesPerSecond_);
    automaticPress_ = AutomaticPress{engine_.GetFrame() + wait, false};
}

void OfflineShow::DoLinesAt_(std::uint32_t tick) {
    bool isFirst = true;
    // Where a cut begins at the caesura, playback stands here although it will go on after the cut.
    const bool isStopped =
        player_.GetPlayerState() == PlayerState::Paused && !engine_.IsRolling() && flow_.GetCaesuraTickIndex() == tick;
    const std::optional<std::uint32_t> jump = flow_.GetWaitingJump();
    for (const ScriptLine* line = NextLine_(); line != nullptr && !isQuitting_; line = NextLine_()) {
        if (line->tick) {
            // After a seek or another song playback is not here any more.
            const std::optional<std::uint32_t> waiting = flow_.GetWaitingJump();
            const bool stays = waiting.value_or(tick) == tick || (isStopped && waiting == jump);
            const bool isHere = line->tick == tick && line->song == song_ && stays;
            if (!isHere || (!isFirst && line->pass > 1)) break;
            if (++arrivals_ < line->pass) break;
        } else if (line->seconds > 0 || line->frame) {
            break;
        }
        isFirst = false;
        Do_(*line);
    }
}

void OfflineShow::Do_(const ScriptLine& line) {
    if (trace_) TraceLine_(engine_.GetPosition(), "operator", fmt::format("{} (line {})", line.text, line.lineNumber));
    ++nextLine_;
    arrivals_ = 0;
    jumpsSincePress_ = 0;
    lastPressFrame_ = engine_.GetFrame();
    unattendedSince_ = engine_.GetFrame();
    DoCommand_(line);
    if (trace_ && line.command.verb == Verb::Exit && !flow_.GetWaitingJump()) TraceLoops_(engine_.GetPosition());
    player_.EnsureGuiIsCurrent();
    if (player_.GetActiveSongNumberRef().Get() != song_) {
        endedSong_.clear();
        BeginSong_();
    }
    PrepareNextLine_();
    KeepDisplayCurrent_();
}

void OfflineShow::DoCommand_(const ScriptLine& line) {
    Command command = line.command;
    command.moment = Moment_();
    if (options_.press) return options_.press(command);
    const CommandRecord record = session_.GetDesk().Execute(std::move(command));
    if (!record.IsTaken())
        throw std::runtime_error(
            fmt::format("line {} of the script (\"{}\"): {}", line.lineNumber, line.text, record.sentence));
}

void OfflineShow::Press_(Verb verb, std::vector<CommandArgument> arguments) {
    const CommandRecord record =
        session_.GetDesk().Execute({verb, std::move(arguments), {Door::Automatic, ""}, 0, Moment_()});
    if (!record.IsTaken()) throw std::runtime_error(record.sentence);
}

std::chrono::nanoseconds OfflineShow::Moment_() const {
    return std::chrono::nanoseconds(engine_.GetFrame() * 1'000'000'000 / framesPerSecond_);
}

void OfflineShow::PressAutomatically_() {
    const bool continues = automaticPress_->continues;
    automaticPress_.reset();
    jumpsSincePress_ = 0;
    if (continues) {
        if (trace_) TraceLine_(engine_.GetPosition(), "operator", "continue (automatic)");
        Press_(Verb::Continue);
    } else if (engine_.IsHolding()) {
        if (trace_) TraceLine_(engine_.GetPosition(), "operator", "exit (automatic)");
        Press_(Verb::Exit);
    }
    KeepDisplayCurrent_();
}

void OfflineShow::OnJump_(std::uint32_t fromTick, std::uint32_t toTick, EngineEvent::Reason reason) {
    NoticeSong_();
    if (trace_) {
        const TL::BarPositions& positions = trace_->GetPositions();
        std::string details = fmt::format("{} -> {}", positions.DescribeTick(fromTick), positions.DescribeTick(toTick));
        if (reason == EngineEvent::Reason::Seek) details += ", seek";
        for (const LoopEvent& loop : flow_.CopyActiveLoops()) {
            if (reason != EngineEvent::Reason::Loop || loop.start != toTick || loop.end != fromTick) continue;
            details += fmt::format(", {} pass {}", loop.type == codes::Vamp ? "vamp" : "repeat", loop.count);
            break;
        }
        TraceLine_(fromTick, reason == EngineEvent::Reason::Cut ? "cut" : "jump", details);
    }
    if (reason != EngineEvent::Reason::Loop) return;
    CountPass_(fromTick, toTick);
    if (!options_.script) LeaveVampAutomatically_();
}

void OfflineShow::OnRelease_(std::uint32_t tick) {
    if (trace_) TraceLine_(tick, "release", trace_->GetPositions().DescribeTick(tick));
}

void OfflineShow::LeaveVampAutomatically_() {
    for (const LoopEvent& loop : flow_.CopyActiveLoops()) {
        if (loop.type != codes::Vamp || loop.maxCount != 0 || loop.count < 2) continue;
        if (trace_) TraceLine_(engine_.GetPosition(), "operator", "exit (automatic)");
        Press_(Verb::Exit);
        if (trace_) TraceLoops_(engine_.GetPosition());
        return;
    }
}

// Ends what would go round forever: once nobody is there to leave a vamp, it is not left.
void OfflineShow::CountPass_(std::uint32_t fromTick, std::uint32_t toTick) {
    ++jumpsSincePress_;
    if (jumpsSincePress_ > MaxJumpsWithoutPress)
        Remark_(fmt::format("The loops in song {} do not come to an end: the render ends after {} jumps.", song_,
                            MaxJumpsWithoutPress));
    const std::vector<LoopEvent> loops = flow_.CopyActiveLoops();
    const bool isEndlessVamp = std::any_of(loops.begin(), loops.end(), [=](const LoopEvent& loop) {
        return loop.type == codes::Vamp && loop.maxCount == 0 && loop.start == toTick && loop.end == fromTick;
    });
    ForgetPassesOutside_(toTick);
    if (!isEndlessVamp) return;
    const auto isThis = [=](const VampPasses& vamp) { return vamp.start == toTick && vamp.end == fromTick; };
    auto passes = std::find_if(vampPasses_.begin(), vampPasses_.end(), isThis);
    // A stop inside it may have begun its own count anew, so flow control's is not asked.
    if (passes == vampPasses_.end()) passes = vampPasses_.insert(passes, {toTick, fromTick});
    if (++passes->begun <= options_.mostPasses || !IsUnattended_()) return;
    Remark_(fmt::format(
        "{} the vamp in song {}: the render ends after {} passes.",
        options_.script ? "The script has run out and nobody leaves" : "The automatic operator does not come out of",
        song_, options_.mostPasses));
}

void OfflineShow::ForgetPassesOutside_(std::uint32_t tick) {
    std::erase_if(vampPasses_, [tick](const VampPasses& vamp) { return tick < vamp.start || tick >= vamp.end; });
}

void OfflineShow::EndOvertime_() {
    if (isQuitting_ || song_.empty() || !engine_.IsRolling()) return;
    // A line that waits for a place may wait in vain; one that waits for a time does not.
    if (const ScriptLine* line = NextLine_(); line != nullptr && !line->tick) return;
    const double seconds = static_cast<double>(engine_.GetFrame() - unattendedSince_) / framesPerSecond_;
    if (seconds <= options_.mostOvertimeSeconds) return;
    if (seconds - WrittenSeconds_() <= options_.mostOvertimeSeconds) return;
    Remark_(
        fmt::format("Song {} does not come to its end: the render ends where it has been played {:.3g} minutes longer "
                    "than it is written.",
                    song_, options_.mostOvertimeSeconds / 60));
}

/// How long the song lasts once through, at the tempo that the operator has set.
double OfflineShow::WrittenSeconds_() const {
    const tavo_midi::SongData& song = showData_.GetSongData(song_);
    const ActiveChangeLogShared log;
    const tavo_midi::TempoMap tempos = MakeHeardTempoMap(song, log->GetSongLog(song_));
    const TL::Timeline& timeline = song.GetTimeline();
    return (tempos.GetSeconds(timeline.GetEndTickIndex()) - tempos.GetSeconds(timeline.GetStartTickIndex())) /
           player_.GetUserControls().GetTempoScale();
}

}  // namespace stage
