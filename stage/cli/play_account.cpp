#include "stage/cli/play_account.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>

#include "stage/live/describe_press.h"
#include "stage/live/screen_layout.h"

namespace {

/// A line for every bar would bury what matters; with none nobody would know that it plays.
constexpr long BarsPerLine = 4;

}  // namespace

PlayAccount::PlayAccount(stage::LiveShow& show)
    : show_(show), lines_(show, [](const std::string& sentence) { Print_(sentence); }) {}

void PlayAccount::Run() {
    const stage::LiveStatus status = show_.GetStatus();
    Print_(fmt::format("{} plays on {}{}{}", status.showTitle, status.output.name,
                       status.output.isPlaying ? "" : ", which is waited for: ", status.output.problem));
    if (!show_.GetTakePath().empty()) Print_("the take is " + show_.GetTakePath());
    Print_("press by a line of its own: go, stop, pause, next, seek 12, quit; \"stage play --help\" lists all");
    while (show_.Deliver(*this))
        show_.Attempt([this] { lines_.Read(); });
    static_cast<void>(show_.Deliver(*this));
}

void PlayAccount::OfferResume(const stage::Take& take) {
    lines_.OfferResume(take);
    Print_(
        fmt::format("the last performance broke off in song {}: \"resume\" goes on from there", take.lastState->song));
}

void PlayAccount::OnLiveEvent(const stage::LiveEvent& event) {
    if (event.song != song_) {
        song_ = event.song;
        positions_.reset();
        if (song_ != nullptr) positions_.emplace(song_->GetTimeline());
    }
    using enum stage::LiveEvent::Kind;
    switch (event.kind) {
        case Song:
            if (song_ != nullptr) Print_(fmt::format("song {} {}", song_->GetSongNumber(), song_->GetTitle()));
            break;
        case Started:
            Print_("plays from " + Place_(event.tick));
            break;
        case Stopped:
            Print_("stopped at " + Place_(event.tick));
            break;
        case Put:
            Print_("stands at " + Place_(event.tick));
            break;
        case Jumped:
            TellJump_(event);
            break;
        case Held:
            Print_("fermata holds at " + Place_(event.tick));
            break;
        case Released:
            Print_("fermata released at " + Place_(event.tick));
            break;
        case Caesura:
            Print_("stopped at the caesura at " + Place_(event.tick));
            break;
        case SongEnded:
            Print_("the song has ended");
            break;
        case Late:
            Print_(fmt::format("late: {} frames were missing at {}", event.missingFrames, Place_(event.tick)));
            break;
        default:
            TellBar_(event.tick);
    }
}

void PlayAccount::TellBar_(std::uint32_t tick) {
    if (!positions_) return;
    const auto& bars = positions_->GetBars();
    const auto bar = std::find_if(bars.begin(), bars.end(),
                                  [&](const TL::BarPositions::Bar& each) { return each.startTick == tick; });
    if (bar == bars.end() || (bar - bars.begin() + 1) % BarsPerLine != 0) return;
    Print_("bar " + bar->label);
}

void PlayAccount::TellJump_(const stage::LiveEvent& event) {
    if (event.reason == stage::EngineEvent::Reason::Seek) return Print_("goes to " + Place_(event.tick));
    if (event.reason != stage::EngineEvent::Reason::Loop)
        return Print_(fmt::format("cut from {} to {}", Place_(event.fromTick), Place_(event.tick)));
    const std::string range = positions_ ? positions_->DescribeRange(event.tick, event.fromTick) : "";
    for (const stage::LiveStatus::Loop& loop : show_.GetStatus().loops) {
        if (loop.place != range) continue;
        return Print_(fmt::format("{} {}, pass {}{}", loop.kind, loop.place, loop.pass,
                                  loop.limit > 0 ? fmt::format(" of {}", loop.limit) : ""));
    }
    Print_("back to " + Place_(event.tick));
}

void PlayAccount::OnRecord(const stage::CommandRecord& record) {
    const std::string press = DescribePress(record, show_.GetSession().GetShow());
    if (!record.IsTaken()) {
        Print_(DescribeRefusal(record, press));
    } else if (record.command.source.door != stage::Door::Automatic &&
               record.command.source.door != stage::Door::Replay) {
        Print_("pressed: " + press);
    }
}

// Countdowns are told when they begin.
void PlayAccount::OnNotification(const notify::GuiNotification& notification) {
    using Type = notify::GuiNotificationType;
    if (notification.type == Type::NoNextSong) return Print_("there is no next song");
    if (notification.type != Type::StatusFlowControl || notification.text == status_) return;
    status_ = notification.text;
    if (!status_.empty()) Print_(fmt::format("status: {} {}", stage::DescribeStatusName(status_), notification.number));
}

void PlayAccount::OnMessage(const std::string& sentence) {
    Print_(sentence);
}

void PlayAccount::Print_(const std::string& line) {
    std::cout << line << std::endl;
    // Whoever read it may be back.
    if (!std::cout) std::cout.clear();
}

std::string PlayAccount::Place_(std::uint32_t tick) const {
    return positions_ ? "bar " + positions_->DescribeTick(tick) : fmt::format("tick {}", tick);
}
