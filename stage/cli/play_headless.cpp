#include "stage/cli/play_headless.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <exception>
#include <iostream>

namespace {

constexpr int DeliveryMilliseconds = 4;
constexpr std::size_t LongestLine = 4U << 20U;

std::atomic<bool> isAskedToEnd{false};

void AskToEnd(int /*signal*/) {
    isAskedToEnd = true;
}

}  // namespace

PlayHeadless::PlayHeadless(stage::LiveShow& show, bool printsBeats)
    : show_(show),
      json_(show.GetSession().GetShow(), show.GetSession().GetOptions().framesPerSecond),
      printsBeats_(printsBeats) {
    isAskedToEnd = false;
    std::signal(SIGTERM, AskToEnd);
    std::signal(SIGINT, AskToEnd);
    // A reader that has gone away does not end the show.
    std::signal(SIGPIPE, SIG_IGN);
}

PlayHeadless::~PlayHeadless() {
    // The show is being ended already.
    std::signal(SIGTERM, SIG_IGN);
    std::signal(SIGINT, SIG_IGN);
}

void PlayHeadless::Run() {
    const stage::LiveStatus status = show_.GetStatus();
    Print_(stage::LiveJson::WriteMessage(
        "ready", fmt::format("{} plays on {}{}{}.", status.showTitle, status.output.name,
                             status.output.isPlaying ? "" : ", which is waited for: ", status.output.problem)));
    if (!show_.GetTakePath().empty()) Print_(stage::LiveJson::WriteMessage("take", show_.GetTakePath()));
    bool isQuitPressed = false;
    while (show_.Deliver(*this)) {
        ReadInput_();
        if (isAskedToEnd && !std::exchange(isQuitPressed, true))
            show_.Press(show_.Read("quit", {stage::Door::Terminal, "signal"}));
    }
    static_cast<void>(show_.Deliver(*this));
}

void PlayHeadless::PrintEnd() {
    std::cout << stage::LiveJson::WriteMessage("end", "The show has ended, and its take is complete.") << std::endl;
}

void PlayHeadless::OfferResume(const stage::Take& take) {
    offered_ = &take;
    Print_(stage::LiveJson::WriteMessage(
        "resumable", fmt::format("The last performance broke off in song {}: \"resume\" goes on from there.",
                                 take.lastState->song)));
}

// Waits for it a little: this is the pace of the loop.
void PlayHeadless::ReadInput_() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    const int ready = poll(&input, hasInput_ ? 1 : 0, DeliveryMilliseconds);
    if (ready <= 0 || !hasInput_) return;
    std::array<char, 4096> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) {
        hasInput_ = false;
        return;
    }
    input_.append(bytes.data(), static_cast<std::size_t>(count));
    for (std::size_t end = input_.find('\n'); end != std::string::npos; end = input_.find('\n')) {
        const std::string line = input_.substr(0, end);
        input_.erase(0, end + 1);
        DoLine_(line);
    }
    if (input_.size() > LongestLine) {
        input_.clear();
        Print_(stage::LiveJson::WriteMessage("error", "The line is too long and was not read."));
    }
}

void PlayHeadless::DoLine_(const std::string& line) {
    const auto words = stage::SplitWords(line);
    if (words.empty()) return;
    if (words.size() == 1 && words.front() == "status") return Print_(stage::LiveJson::WriteStatus(show_.GetStatus()));
    try {
        if (words.size() == 1 && words.front() == "resume" && offered_ != nullptr)
            return show_.Resume(*std::exchange(offered_, nullptr));
        show_.Press(show_.Read(line, {stage::Door::Terminal, "input"}));
    } catch (const std::exception& problem) {
        Print_(stage::LiveJson::WriteMessage("error", fmt::format("\"{}\": {}.", line, problem.what())));
    }
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
