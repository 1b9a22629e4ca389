#include "tavo_core/as_string.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace {

constexpr unsigned int ClocksPerQuarter = 24;

std::string WithTwoDecimalsAtMost(double number) {
    std::string text = fmt::format("{:.2f}", number);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text;
}

double ClicksPerMinute(const TL::Tempo& tempo, unsigned int clocksPerClick) {
    const std::uint32_t microseconds = std::max<std::uint32_t>(tempo.microseconds_per_quarter(), 1);
    return 60e6 / microseconds * ClocksPerQuarter / clocksPerClick;
}

}  // namespace

std::string as_string(const TL::BarsBeats& entry) {
    return fmt::format("{}:{}", entry.bar_number(), entry.beat());
}

std::string as_string(const TL::Key& entry) {
    static constexpr std::array<const char*, 15> MajorNames{"Cb", "Gb", "Db", "Ab", "Eb", "Bb", "F", "C",
                                                            "G",  "D",  "A",  "E",  "B",  "F#", "C#"};
    static constexpr std::array<const char*, 15> MinorNames{"Ab", "Eb", "Bb", "F",  "C",  "G",  "D", "A",
                                                            "E",  "B",  "F#", "C#", "G#", "D#", "A#"};
    const auto index = static_cast<std::size_t>(std::clamp(entry.sharps(), -7, 7) + 7);
    return entry.minor() ? fmt::format("{} minor", MinorNames[index]) : fmt::format("{} major", MajorNames[index]);
}

std::string as_string(const TL::Meter& entry) {
    return fmt::format("{}/{}", entry.numerator(), entry.denominator());
}

std::string as_string(const TL::Tempo& entry, const TL::Meter& meter) {
    const unsigned int clocksPerClick = meter.clocks_per_click() == 0 ? ClocksPerQuarter : meter.clocks_per_click();
    return WithTwoDecimalsAtMost(ClicksPerMinute(entry, clocksPerClick));
}

std::string as_string(const TL::Tempo& entry) {
    return WithTwoDecimalsAtMost(ClicksPerMinute(entry, ClocksPerQuarter));
}

std::string as_string(const TL::PageNum& entry) {
    return std::to_string(entry.page_number());
}
