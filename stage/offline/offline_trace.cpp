// What an offline show writes into its trace besides the display's notifications.

#include <fmt/format.h>

#include <algorithm>

#include "stage/offline/offline_show.h"
#include "stage/show/cue_check.h"
#include "tavo_core/event_codes.h"

namespace stage {

void OfflineShow::TraceLine_(std::uint32_t tick, const std::string& event, const std::string& details) {
    trace_->Write(engine_.GetFrame(), tick, event, details);
}

std::string OfflineShow::DescribeLoop_(const LoopEvent& loop) const {
    const std::string range = trace_->GetPositions().DescribeRange(loop.start, loop.end);
    switch (loop.type) {
        case codes::Vamp:
            return loop.maxCount == 0 ? "vamp " + range
                                      : fmt::format("vamp {}, {} times at most", range, loop.maxCount);
        case codes::Repeat:
            return fmt::format("repeat {}, {} times", range, loop.maxCount);
        default:
            return "fermata " + range;
    }
}

// Loops that flow control has taken up or let go of since the last arrival.
void OfflineShow::TraceLoops_(std::uint32_t tick) {
    std::vector<LoopEvent> loops = flow_.CopyActiveLoops();
    const auto has = [](const std::vector<LoopEvent>& list, const LoopEvent& loop) {
        return std::find(list.begin(), list.end(), loop) != list.end();
    };
    for (const LoopEvent& loop : tracedLoops_) {
        if (has(loops, loop)) continue;
        const bool isInside = tick >= loop.start && tick < loop.end;
        TraceLine_(tick, isInside ? "loop-release" : "loop-end", DescribeLoop_(loop));
    }
    for (const LoopEvent& loop : loops)
        if (!has(tracedLoops_, loop)) TraceLine_(tick, "loop-begin", DescribeLoop_(loop));
    tracedLoops_ = std::move(loops);
}

void OfflineShow::OnCue_(const Cue& cue) {
    NoticeSong_();
    if (!trace_) return;
    const std::string problem = std::visit(
        [&](const auto& edit) {
            return FindCueProblem(edit, trace_->GetPositions(), session_.GetShowDirectory(), session_.GetSettings());
        },
        cue.edit);
    // A trace does not claim what nobody would notice.
    if (!problem.empty()) return TraceLine_(cue.tick, "cue-missing", problem);
    if (const auto* message = std::get_if<CL::Osc>(&cue.edit)) {
        const std::string target = message->target().empty() ? "" : " to " + message->target();
        TraceLine_(cue.tick, "cue", "osc " + message->value() + target);
    } else if (const auto* ambience = std::get_if<CL::SfxAmbient>(&cue.edit)) {
        TraceLine_(cue.tick, "cue", "ambience " + ambience->sound());
    } else {
        TraceLine_(cue.tick, "cue", "effect " + std::get<CL::Sfx>(cue.edit).sound());
    }
}

}  // namespace stage
