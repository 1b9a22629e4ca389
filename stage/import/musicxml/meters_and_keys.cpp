#include "stage/import/musicxml/meters_and_keys.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <string_view>

#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr int MaxBeats = 255;
constexpr int MaxBeatType = 64;
constexpr int MaxFifths = 7;

/// "3+2"; empty where that is not positive numbers.
std::vector<int> ReadBeats(std::string_view text) {
    std::vector<int> groups;
    while (true) {
        const std::size_t plus = text.find('+');
        const std::optional<std::int64_t> beats = ReadWhole(text.substr(0, plus));
        if (!beats || *beats < 1 || *beats > MaxBeats || groups.size() >= MaxBeats) return {};
        groups.push_back(static_cast<int>(*beats));
        if (plus == std::string_view::npos) return groups;
        text.remove_prefix(plus + 1);
    }
}

int ReadBeatType(const pugi::xml_node& node) {
    const std::int64_t type = ReadWhole(node.child_value()).value_or(0);
    const bool isNote = type >= 1 && type <= MaxBeatType && (type & (type - 1)) == 0;
    return isNote ? static_cast<int>(type) : 0;
}

}  // namespace

std::optional<WrittenMeter> ReadMeter(const pugi::xml_node& time) {
    if (time.child("senza-misura")) return WrittenMeter{{}, 4};
    WrittenMeter meter{{}, 1};
    for (pugi::xml_node beats = time.child("beats"); beats; beats = beats.next_sibling("beats")) {
        std::vector<int> groups = ReadBeats(beats.child_value());
        const int type = ReadBeatType(beats.next_sibling("beat-type"));
        if (groups.empty() || type == 0 || meter.groups.size() + groups.size() > MaxBeats) return std::nullopt;
        // Both are powers of two: the greater one counts the other's notes too.
        const int common = std::max(type, meter.groups.empty() ? type : meter.beatType);
        for (int& group : meter.groups)
            group *= common / meter.beatType;
        for (const int group : groups)
            meter.groups.push_back(group * (common / type));
        meter.beatType = common;
    }
    const int sum = std::accumulate(meter.groups.begin(), meter.groups.end(), 0);
    if (sum < 1 || sum > MaxBeats) return std::nullopt;
    return meter;
}

std::optional<WrittenKey> ReadKey(const pugi::xml_node& key, int addedFifths) {
    const std::optional<std::int64_t> fifths = ReadWhole(key.child("fifths").child_value());
    if (!fifths || *fifths < -MaxFifths || *fifths > MaxFifths) return std::nullopt;
    int sounding = static_cast<int>(*fifths) + addedFifths;
    while (sounding > MaxFifths)
        sounding -= 12;
    while (sounding < -MaxFifths)
        sounding += 12;
    const std::string mode = ReadLine(key.child("mode"));
    return WrittenKey{sounding, mode == "minor" || mode == "aeolian" || mode == "dorian" || mode == "phrygian"};
}

int GetFifths(int semitones, std::optional<int> steps) {
    if (steps) return 7 * semitones - 12 * *steps;
    // Without the steps, the way round the circle of fifths that is shorter.
    const int fifths = ((7 * semitones) % 12 + 12) % 12;
    return fifths > 6 ? fifths - 12 : fifths;
}

std::string DescribeMeter(const WrittenMeter& meter) {
    if (meter.groups.empty()) return "senza misura";
    return fmt::format("{}/{}", fmt::join(meter.groups, "+"), meter.beatType);
}

std::string DescribeKey(const WrittenKey& key) {
    const char* mode = key.isMinor ? "minor" : "major";
    if (key.fifths == 0) return fmt::format("no sharps or flats, {}", mode);
    const int count = std::abs(key.fifths);
    return fmt::format("{} {}{}, {}", count, key.fifths > 0 ? "sharp" : "flat", count == 1 ? "" : "s", mode);
}

}  // namespace stage::musicxml
