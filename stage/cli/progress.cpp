#include "stage/cli/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

#include "stage/cli/text_table.h"

Progress::Progress() : isTerminal_(::isatty(STDERR_FILENO) == 1), last_(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
    if (isShown_) std::cerr << "\r\033[K" << std::flush;
}

void Progress::Report(std::size_t done, std::size_t total, const std::string& next) {
    const auto now = std::chrono::steady_clock::now();
    const auto interval = isTerminal_ ? std::chrono::milliseconds(50) : std::chrono::milliseconds(1000);
    if (now - last_ < interval) return;
    last_ = now;
    const std::string text = fmt::format("{} of {} done, {}", done, total, MakePrintable(next));
    if (isTerminal_) {
        isShown_ = true;
        std::cerr << "\r\033[K" << text << std::flush;
    } else {
        std::cerr << text << std::endl;
    }
}
