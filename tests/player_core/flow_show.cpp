#include "tests/player_core/flow_show.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "tavo_core/active_change_log.h"
#include "tavo_core/event_codes.h"

namespace test_support {

namespace {

constexpr unsigned int TicksOfBar = 1920;
constexpr unsigned int Bars = 20;

// A feed whose position is told by the test, so that filed statuses can be looked at one tick at a time.
class ToldFeed : public gui::GuiUpdate {
public:
    explicit ToldFeed(Player& player)
        : GuiUpdate(player, [this](unsigned int* tick) {
              *tick = position_;
              return hasPosition_;
          }) {}
    void PassAt(unsigned int tick) {
        position_ = tick;
        hasPosition_ = true;
        UpdateAll();
        hasPosition_ = false;
    }
    using gui::GuiUpdate::SetTickIndex_;

private:
    unsigned int position_ = 0;
    bool hasPosition_ = false;
};

ToldFeed& Feed() {
    return static_cast<ToldFeed&>(GetGuiUpdate());
}

tavo_midi::SongData MakeSong(unsigned int startTick) {
    TL::Timeline timeline(startTick, startTick + Bars * TicksOfBar);
    timeline.SetSongTitle("Opening");
    timeline.GetMeters().Append({startTick, 4, 4});
    timeline.GetTempos().Append({startTick, 500000});
    timeline.GetKeys().Append({startTick, 0, false});
    for (unsigned int bar = 0; bar < Bars; ++bar) {
        for (unsigned int beat = 0; beat < 4; ++beat) {
            timeline.GetBarsBeats().Append(
                {startTick + bar * TicksOfBar + beat * 480, beat + 1, std::to_string(bar + 1)});
        }
    }
    return {"1", std::move(timeline), 480};
}

struct EditText {
    std::string kind;
    unsigned int start = 0;
    unsigned int end = 0;
    std::string word;
    int number = 0;
};

EditText ReadEdit(const std::string& text) {
    std::istringstream in(text);
    EditText edit;
    in >> edit.kind;
    if (edit.kind == "attacca" || edit.kind == "skip") return edit;
    in >> edit.start;
    edit.end = edit.start;
    if (in.peek() == '.') {
        in.ignore(2);
        in >> edit.end;
    }
    in >> edit.word;
    std::string digits = edit.word;
    if (!(in >> edit.number)) {
        digits.erase(std::remove(digits.begin(), digits.end(), 'x'), digits.end());
        edit.number = std::atoi(digits.c_str());
    }
    return edit;
}

void AddEdit(CL::SongLog& log, const EditText& edit) {
    const auto& [kind, start, end, word, number] = edit;
    if (kind == "vamp") {
        log.GetVamps().Add({start, end, number});
    } else if (kind == "repeat") {
        log.GetRepeats().Add({start, end, number});
    } else if (kind == "cut") {
        log.GetCuts().Add({start, end});
    } else if (kind == "fermata") {
        log.GetFermatas().Add({start, end});
    } else if (kind == "caesura") {
        log.GetCaesuras().Add({start, "", static_cast<unsigned int>(number)});
    } else if (kind == "marker") {
        log.GetMarkers().Add({start, word});
    } else if (kind == "sfx") {
        log.GetSfxs().Add({start, end, "bell.wav"});
    } else if (kind == "ambient") {
        log.GetSfxAmbients().Add({start, end, "rain.wav"});
    } else if (kind == "osc") {
        log.GetOscs().Add({start, "", word});
    } else if (kind == "click") {
        log.GetClicks().Add({start, end, number});
    } else if (kind == "attacca") {
        log.SetAttacca(CL::AttaccaNext);
    } else if (kind == "skip") {
        log.SetAttacca(CL::AttaccaSkip);
    } else {
        throw std::invalid_argument("no such edit in a test: " + kind);
    }
}

}  // namespace

FlowShow::FlowShow(const std::string& edits, unsigned int startTick) {
    showData_.AddSong(MakeSong(startTick));
    log_ = MakeLog_(edits);
    SetActiveChangeLog(log_);
    SetGuiUpdate(std::make_unique<ToldFeed>(player_));
    handler_ = notify::guiDispatcher.AddHandler([this](const auto& notification) { Hear_(notification); });
    player_.LoadSong("1");
    Control().FullReset();
    Log();
    Statuses();
}

FlowShow::~FlowShow() {
    notify::guiDispatcher.RemoveHandler(handler_);
    SetGuiUpdate(nullptr);
    SetActiveChangeLog(nullptr);
}

std::shared_ptr<CL::ChangeLog> FlowShow::MakeLog_(const std::string& edits) const {
    auto log = std::make_shared<CL::ChangeLog>();
    CL::SongLog& song = log->GetSongLogs()["1"];
    std::istringstream in(edits);
    for (std::string edit; std::getline(in, edit, ';');)
        AddEdit(song, ReadEdit(edit));
    return log;
}

void FlowShow::ChangeEdits(const std::string& edits) {
    log_ = MakeLog_(edits);
    SetActiveChangeLog(log_);
    Control().LoadNewChangeLog();
}

CL::SongLog& FlowShow::Edits() {
    return log_->GetSongLog("1");
}

void FlowShow::ArriveAt(unsigned int tick) {
    Control().SetTickIndex(tick);
    Control().GetHowToPlay().Advance(tick);
    Control().ProcessLoopEventsAtCurrentTickIndex();
    if (Tick() != tick) Note_(fmt::format("jump {}", Tick()));
}

std::string FlowShow::Search(unsigned int from, unsigned int to) {
    Control().FindNextControlEventOnAdvance(from, to);
    const FindNextControlEventResult& result = Control().GetResult_();
    if (result.caesuraHere) return "caesura";
    if (result.cutHere) return fmt::format("cut to {}", result.tickIndex);
    if (result.loopStartsHere) return fmt::format("loop at {}", result.tickIndex);
    return fmt::format("{} {}", result.stopBeforeEnd ? "stop at" : "to", result.tickIndex);
}

void FlowShow::PlayTo(unsigned int tick) {
    while (Tick() < tick) {
        const unsigned int from = Tick();
        LoopEventList& loops = Control().GetLoopEvents_();
        // An engine never plans beyond the end of the first active loop.
        const bool isInLoop = !loops.IsEmpty() && loops.GetFirstLoopEvent().end > from;
        const unsigned int to = isInLoop ? std::min(tick, loops.GetFirstLoopEvent().end) : tick;
        Search(from, to);
        const FindNextControlEventResult result = Control().GetResult_();
        if (result.caesuraHere) {
            Note_(fmt::format("caesura {}", from));
            return;
        }
        if (result.loopStartsHere) {
            Note_(fmt::format("loop {}..{}", from, loops.GetFirstLoopEvent().end));
        } else if (result.cutHere) {
            Note_(fmt::format("cut {}", result.tickIndex));
            Control().DoSkipAhead(result.tickIndex);
            Control().ProcessLoopEventsAtCurrentTickIndex();
        } else {
            ArriveAt(result.tickIndex);
            if (result.tickIndex == tick) return;
        }
    }
}

void FlowShow::Hear_(const notify::GuiNotification& notification) {
    switch (notification.type) {
        case notify::GuiNotificationType::VampOn:
            lines_.emplace_back("lamp on");
            break;
        case notify::GuiNotificationType::VampOff:
            lines_.emplace_back("lamp off");
            break;
        case notify::GuiNotificationType::Playhead:
            statusTick_ = static_cast<unsigned int>(notification.number);
            break;
        case notify::GuiNotificationType::StatusFlowControl:
            statuses_.push_back(fmt::format("{} {} @{}", notification.text.empty() ? "''" : notification.text,
                                            notification.number, statusTick_));
            break;
        default:
            break;
    }
}

void FlowShow::Note_(const std::string& line) {
    notify::guiDispatcher.Drain();
    NoteCuts_();
    lines_.push_back(line);
}

void FlowShow::NoteCuts_() {
    const std::string jump = "JumpToInternalCut ";
    for (const std::string& call : player_.calls.Take()) {
        if (call.starts_with(jump)) lines_.push_back("in cut " + call.substr(jump.size()));
    }
}

std::string FlowShow::Log() {
    notify::guiDispatcher.Drain();
    NoteCuts_();
    return fmt::format("{}", fmt::join(std::exchange(lines_, {}), "; "));
}

std::string FlowShow::Statuses() {
    notify::guiDispatcher.Drain();
    statuses_.clear();
    // From the very beginning beat by beat, each pass heard before the next, so that a status comes with its tick.
    const unsigned int shown = GetGuiUpdate().GetTickIndex();
    for (statusTick_ = 0; statusTick_ <= (Bars + 1) * TicksOfBar; statusTick_ += 480) {
        Feed().PassAt(statusTick_);
        notify::guiDispatcher.Drain();
    }
    Feed().SetTickIndex_(shown);
    return fmt::format("{}", fmt::join(std::exchange(statuses_, {}), "; "));
}

std::string FlowShow::Loops() {
    std::vector<std::string> texts;
    LoopEventList copy = Control().GetLoopEvents_();
    while (!copy.IsEmpty()) {
        LoopEvent& loop = copy.GetFirstLoopEvent();
        texts.push_back(fmt::format("{} {}..{} {}/{}", codes::EditName(loop.type), loop.start, loop.end, loop.count,
                                    loop.maxCount));
        loop.canceled = true;
    }
    return fmt::format("{}", fmt::join(texts, "; "));
}

void FlowShow::ShowPosition(unsigned int tick) {
    GetGuiUpdate().Seek(tick);
    Feed().SetTickIndex_(tick);
}

}  // namespace test_support
