#include "stage/cli/play_terminal.h"

#include <fmt/format.h>

#include <csignal>
#include <exception>
#include <stdexcept>
#include <utility>
#include <vector>

#include "stage/live/describe_press.h"
#include "tavo_core/bar_positions.h"

namespace {

constexpr std::chrono::milliseconds KeyWait{4};
constexpr std::chrono::milliseconds DrawingInterval{50};
constexpr std::size_t KeptLines = 100;

std::vector<stage::ScreenSong> ListSongs(const tavo_midi::ShowData& show) {
    std::vector<stage::ScreenSong> songs;
    for (const std::string& number : show.GetSongNumbers())
        songs.push_back({number, show.GetSongData(number).GetTitle()});
    return songs;
}

}  // namespace

PlayTerminal::PlayTerminal(stage::LiveShow& show) : show_(show), control_(ListSongs(show.GetSession().GetShow())) {}

PlayTerminal::~PlayTerminal() {
    // The show is being ended already.
    std::signal(SIGTERM, SIG_IGN);
    std::signal(SIGINT, SIG_IGN);
}

void PlayTerminal::Run() {
    while (show_.Deliver(*this)) {
        show_.Attempt([this] { FollowTerminal_(std::chrono::steady_clock::now()); });
        terminal_.Wait(KeyWait, show_.GetWakeUp().GetDescriptor());
    }
    static_cast<void>(show_.Deliver(*this));
}

void PlayTerminal::FollowTerminal_(Moment now) {
    ReadKeys_(now);
    for (const std::string& line : terminal_.TakeOutput())
        OnMessage(line);
    if (stage::ScreenTerminal::IsAskedToEnd() && !isQuitPressed_) {
        show_.Press(show_.Read("quit", {stage::Door::Terminal, "signal"}));
        isQuitPressed_ = true;
    }
    if (isChanged_ || now - drawn_ >= DrawingInterval) Draw_(now);
}

void PlayTerminal::OfferResume(const stage::Take& take) {
    const FlowState& state = *take.lastState;
    try {
        const TL::BarPositions positions(show_.GetSession().GetShow().GetSongData(state.song).GetTimeline());
        control_.AskToResume(fmt::format("The last show broke off in song {} at bar {}. Go on from there (Y/N)?",
                                         state.song, positions.DescribeTick(state.tick)));
        offered_ = &take;
    } catch (const std::out_of_range& problem) {
        OnMessage(fmt::format("The last show broke off and cannot be resumed: {}", problem.what()));
    }
}

void PlayTerminal::ReadKeys_(Moment now) {
    while (const auto key = terminal_.ReadKey()) {
        isChanged_ = true;
        Do_(control_.Press(*key, show_.GetStatus(), now), now);
    }
}

void PlayTerminal::Do_(const stage::ScreenAction& action, Moment now) {
    using Kind = stage::ScreenAction::Kind;
    try {
        if (action.kind == Kind::Resume && offered_ != nullptr) show_.Resume(*std::exchange(offered_, nullptr));
        if (action.kind == Kind::Press) show_.Press(show_.Read(action.line, {stage::Door::Terminal, "keys"}));
    } catch (const std::exception& problem) {
        control_.NoteRefusal(fmt::format("REFUSED {}: {}.", action.line, problem.what()), now);
    }
}

void PlayTerminal::Draw_(Moment now) {
    stage::LiveStatus status = show_.GetStatus();
    status.messages = messages_;
    control_.Follow(status, now);
    terminal_.Draw(LayOutScreen(status, control_.GetState(), terminal_.GetSize()));
    drawn_ = now;
    isChanged_ = false;
}

void PlayTerminal::OnLiveEvent(const stage::LiveEvent& /*event*/) {
    isChanged_ = true;
}

void PlayTerminal::OnRecord(const stage::CommandRecord& record) {
    control_.NoteRecord(record, DescribePress(record, show_.GetSession().GetShow()), std::chrono::steady_clock::now());
    isChanged_ = true;
}

void PlayTerminal::OnNotification(const notify::GuiNotification& /*notification*/) {
    isChanged_ = true;
}

void PlayTerminal::OnMessage(const std::string& sentence) {
    messages_.push_back(sentence);
    if (messages_.size() > KeptLines) messages_.pop_front();
    isChanged_ = true;
}
