#include "stage/cli/press_lines.h"
#include "kit/words.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <exception>
#include <utility>

namespace {

constexpr int WaitMilliseconds = 4;
constexpr std::size_t LongestLine = 4U << 20U;

std::atomic<bool> isAskedToEnd{false};

void AskToEnd(int /*signal*/) {
    isAskedToEnd = true;
}

}  // namespace

PressLines::PressLines(stage::LiveShow& show, ErrorListener onError) : show_(show), onError_(std::move(onError)) {
    isAskedToEnd = false;
    std::signal(SIGTERM, AskToEnd);
    std::signal(SIGINT, AskToEnd);
    std::signal(SIGPIPE, SIG_IGN);
}

PressLines::~PressLines() {
    // The show is being ended already.
    std::signal(SIGTERM, SIG_IGN);
    std::signal(SIGINT, SIG_IGN);
}

void PressLines::Read() {
    if (isAskedToEnd && !isQuitPressed_) {
        show_.Press(show_.Read("quit", {stage::Door::Terminal, "signal"}));
        isQuitPressed_ = true;
    }
    std::array<pollfd, 2> awaited{{{show_.GetWakeUp().GetDescriptor(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    const int ready = poll(awaited.data(), hasInput_ ? 2 : 1, WaitMilliseconds);
    if (ready <= 0 || awaited[1].revents == 0) return;
    std::array<char, 4096> bytes{};
    // What was read is not lost for want of a place.
    input_.reserve(input_.size() + bytes.size());
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) {
        hasInput_ = false;
        return;
    }
    input_.append(bytes.data(), static_cast<std::size_t>(count));
    for (std::size_t end = input_.find('\n'); end != std::string::npos; end = input_.find('\n')) {
        const std::string line = input_.substr(0, end);
        input_.erase(0, end + 1);
        show_.Attempt([&] { DoLine_(line); });
    }
    if (input_.size() > LongestLine) {
        input_.clear();
        onError_("The line is too long and was not read.");
    }
}

void PressLines::DoLine_(const std::string& line) {
    const auto words = stage::SplitWords(line);
    if (words.empty()) return;
    if (onStatus_ && words.size() == 1 && words.front() == "status") return onStatus_();
    try {
        if (words.size() == 1 && words.front() == "resume" && offered_ != nullptr)
            return show_.Resume(*std::exchange(offered_, nullptr));
        show_.Press(show_.Read(line, {stage::Door::Terminal, "input"}));
    } catch (const std::exception& problem) {
        onError_(fmt::format("{}: {}.", kit::Quote(line), problem.what()));
    }
}
