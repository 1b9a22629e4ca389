#include "stage/cli/play_headless.h"

#include <fmt/format.h>

#include <iostream>

PlayHeadless::PlayHeadless(stage::LiveShow& show, bool printsBeats)
    : show_(show),
      json_(show.GetSession().GetShow(), show.GetSession().GetOptions().framesPerSecond),
      printsBeats_(printsBeats),
      lines_(show, [](const std::string& sentence) { Print_(stage::LiveJson::WriteMessage("error", sentence)); }) {
    lines_.SetStatusListener([this] { Print_(stage::LiveJson::WriteStatus(show_.GetStatus())); });
}

void PlayHeadless::Run() {
    const stage::LiveStatus status = show_.GetStatus();
    Print_(stage::LiveJson::WriteMessage(
        "ready", fmt::format("{} plays on {}{}{}.", status.showTitle, status.output.name,
                             status.output.isPlaying ? "" : ", which is waited for: ", status.output.problem)));
    if (!show_.GetTakePath().empty()) Print_(stage::LiveJson::WriteMessage("take", show_.GetTakePath()));
    while (show_.Deliver(*this))
        show_.Attempt([this] { lines_.Read(); });
    static_cast<void>(show_.Deliver(*this));
}

void PlayHeadless::PrintEnd(const std::string& takePath) {
    std::cout << stage::LiveJson::WriteMessage(
                     "end", takePath.empty() ? "The show has ended." : "The show has ended, and its take is complete.")
              << std::endl;
}

void PlayHeadless::OfferResume(const stage::Take& take) {
    lines_.OfferResume(take);
    Print_(stage::LiveJson::WriteMessage(
        "resumable", fmt::format("The last performance broke off in song {}: \"resume\" goes on from there.",
                                 take.lastState->song)));
}

void PlayHeadless::OnLiveEvent(const stage::LiveEvent& event) {
    const std::string line = json_.Write(event);
    const bool isBeat = event.kind == stage::LiveEvent::Kind::Beat && line.find("\"event\":\"beat\"") == 1;
    if (!line.empty() && (printsBeats_ || !isBeat)) Print_(line);
}

void PlayHeadless::OnRecord(const stage::CommandRecord& record) {
    Print_(json_.Write(record));
}

void PlayHeadless::OnNotification(const notify::GuiNotification& notification) {
    if (const std::string line = json_.Write(notification); !line.empty()) Print_(line);
}

void PlayHeadless::OnMessage(const std::string& sentence) {
    Print_(stage::LiveJson::WriteMessage("message", sentence));
}

void PlayHeadless::Print_(const std::string& line) {
    std::cout << line << std::endl;
    // Whoever read it may be back.
    if (!std::cout) std::cout.clear();
}
