#include "stage/cli/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <iostream>
#include <utility>

#include "kit/words.h"
#include "stage/cli/text_table.h"

Progress::Progress()
    : isTerminal_(::isatty(STDERR_FILENO) == 1), next_(std::chrono::steady_clock::now() + std::chrono::seconds(1)) {}

Progress::~Progress() {
    Clear();
}

void Progress::Report(std::size_t done, std::size_t total, const std::string& next) {
    Tell([&] { return fmt::format("{} of {} done, {}", done, total, next); });
}

void Progress::Tell(const std::function<std::string()>& describe) {
    if (!isTerminal_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + std::chrono::milliseconds(50);
    isShown_ = true;
    // The last column stays free: a character there would move some terminals on to the next line.
    std::cerr << "\r\033[K" << kit::CutToColumns(MakePrintable(describe()), GetTerminalColumns(STDERR_FILENO) - 1)
              << std::flush;
}

void Progress::Clear() {
    if (std::exchange(isShown_, false)) std::cerr << "\r\033[K" << std::flush;
}
