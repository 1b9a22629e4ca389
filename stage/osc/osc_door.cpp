#include "stage/osc/osc_door.h"

#include <fmt/format.h>

#include <exception>
#include <utility>

#include "stage/osc/osc_command.h"

namespace stage {

namespace {

/// So many presses of this door wait between two blocks at most, however fast they come.
constexpr std::size_t MostUndecided = 8;
constexpr std::chrono::milliseconds BetweenValues{20};

}  // namespace

OscDoor::OscDoor(LiveShow& show, const Settings::OscIn& in, OscCues& cues) : show_(show), cues_(cues) {
    show_.AddListener(*this);
    if (!in.isOn) return;
    try {
        server_ = std::make_unique<OscServer>(in, [&show] { show.GetWakeUp().Ring(); });
    } catch (const std::exception& problem) {
        problem_ = fmt::format("OSC is not taken: {}.", problem.what());
        show_.NoteMessage(problem_);
        return;
    }
    const std::optional<SocketAddress> address = ReadNumericAddress(in.address, in.port);
    if (!address->IsLoopback() && in.passcode.empty())
        show_.NoteMessage(
            fmt::format("OSC is taken on {} without a passcode: whoever is in that network can run the show.",
                        server_->GetAddress()));
}

OscDoor::~OscDoor() {
    show_.RemoveListener(*this);
}

void OscDoor::OnDelivered() {
    for (const std::string& report : cues_.TakeReports())
        show_.NoteMessage(report);
    if (server_ == nullptr) return;
    while (askers_.size() < MostUndecided) {
        const std::optional<OscServer::Request> request = server_->TakeRequest();
        if (!request) break;
        Press_(*request);
    }
    for (const std::string& report : server_->TakeReports())
        show_.NoteMessage(report);
    ShowValues_();
}

void OscDoor::Press_(const OscServer::Request& request) {
    OscPress press;
    try {
        ShowSession& session = show_.GetSession();
        press = ReadOscPress(request.message, session.GetShow(), session.GetCurrentSongNumber());
    } catch (const std::exception& problem) {
        return server_->AnswerError(request.peer, request.message.address, problem.what());
    }
    press.command.source = {Door::Osc, request.peer.name};
    press.command.moment = request.arrival.time_since_epoch();
    if (press.isRelease) return show_.GetSession().GetDesk().NoteRelease(press.command.source, press.command.verb);
    press.command.tag = ++lastTag_;
    askers_[lastTag_] = {request.peer, request.message.address};
    show_.Press(std::move(press.command));
}

void OscDoor::Answer_(const CommandRecord& record) {
    if (record.command.source.door != Door::Osc) return;
    const auto found = askers_.find(record.command.tag);
    if (found == askers_.end()) return;
    const Asker& asker = found->second;
    if (record.IsTaken()) {
        server_->Answer(asker.peer, {"/tavo/reply", {asker.address, MakePressEvent(record).arguments.front()}});
    } else {
        server_->AnswerError(asker.peer, asker.address, record.sentence);
    }
    askers_.erase(found);
}

void OscDoor::ShowValues_() {
    const auto now = std::chrono::steady_clock::now();
    bool wantsAll = false;
    if (!server_->IsWatched(wantsAll) || (now < nextValues_ && !wantsAll)) return;
    nextValues_ = now + BetweenValues;
    std::vector<OscMessage> changes = display_.TakeChanges(show_.PeekStatus(), wantsAll);
    if (!changes.empty() || wantsAll) server_->Publish(std::move(changes));
}

void OscDoor::OnRecord(const CommandRecord& record) {
    if (server_ == nullptr) return;
    server_->Announce(MakePressEvent(record), false);
    Answer_(record);
}

void OscDoor::OnNotification(const notify::GuiNotification& notification) {
    if (server_ == nullptr) return;
    OscMessage event = MakeDisplayEvent(notification);
    if (event.address.empty()) return;
    const bool isKept = notification.type != notify::GuiNotificationType::NoNextSong;
    // Flow control says what it is doing at every look; whoever watches is told what is new.
    if (isKept && std::exchange(shown_[event.address], event) == event) return;
    server_->Announce(std::move(event), isKept);
}

void OscDoor::OnMessage(const std::string& sentence) {
    if (server_ != nullptr) server_->Announce({"/tavo/message", {sentence}}, false);
}

void OscDoor::AddToStatus(LiveStatus& status) {
    status.oscTargets = cues_.GetState();
    status.osc.problem = problem_;
    if (server_ == nullptr) return;
    status.osc.address = server_->GetAddress();
    status.osc.subscribers = server_->CountSubscribers();
    status.osc.refused = server_->CountRefused();
}

}  // namespace stage
