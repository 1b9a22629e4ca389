#include "stage/import/musicxml/dynamics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr int Loudest = 127;
constexpr int Step = 16;
/// What ppp has: a hairpin alone makes nothing softer, or it could not be heard.
constexpr int SoftestOfHairpin = 16;
/// How far after a hairpin the mark may stand that it leads to.
constexpr Units ReachQuarters = 2;

struct NamedLevel {
    std::string_view name;
    int level;
    /// Velocity at the place itself; 0 where it is the level.
    int sudden;
};

/// For fp and its like `level` is what remains; sf and its like leave the level as it is (0).
constexpr auto Levels = std::to_array<NamedLevel>({
    {"pppppp", 2, 0},  {"ppppp", 5, 0},    {"pppp", 10, 0},  {"ppp", 16, 0},   {"pp", 33, 0},     {"p", 49, 0},
    {"mp", 64, 0},     {"mf", 80, 0},      {"f", 96, 0},     {"ff", 112, 0},   {"fff", 126, 0},   {"ffff", 127, 0},
    {"fffff", 127, 0}, {"ffffff", 127, 0}, {"n", 1, 0},      {"fp", 49, 96},   {"pf", 96, 49},    {"sf", 0, 112},
    {"sfz", 0, 112},   {"sff", 0, 120},    {"sffz", 0, 126}, {"sfp", 49, 112}, {"sfpp", 33, 112}, {"sfzp", 49, 112},
    {"fz", 0, 112},    {"rf", 0, 104},     {"rfz", 0, 104},
});

struct Hairpin {
    Units end = 0;
    int from = 0;
    int to = 0;
};

/// The loudness of one part over the whole song, in units from its beginning.
class Loudness {
public:
    Loudness(const Reading& reading, const PartReading& part, const std::vector<Units>& barStarts)
        : reach_(ReachQuarters * reading.score.unitsPerQuarter) {
        const auto placeOf = [&](const DynamicEvent& event) { return barStarts[event.bar] + event.position; };
        std::vector<DynamicEvent> events = part.dynamics;
        std::stable_sort(events.begin(), events.end(), [&](const DynamicEvent& left, const DynamicEvent& right) {
            return placeOf(left) < placeOf(right);
        });
        for (const DynamicEvent& event : events) {
            if (event.kind == DynamicEvent::Kind::Level) levels_[placeOf(event)] = event.velocity;
            if (event.kind == DynamicEvent::Kind::Sudden) sudden_[placeOf(event)] = event.velocity;
        }
        std::map<int, std::pair<Units, DynamicEvent::Kind>> open;
        for (const DynamicEvent& event : events) {
            if (event.kind == DynamicEvent::Kind::Crescendo || event.kind == DynamicEvent::Kind::Diminuendo)
                open[event.number] = {placeOf(event), event.kind};
            const auto begun = open.find(event.number);
            if (event.kind != DynamicEvent::Kind::WedgeStop || begun == open.end()) continue;
            AddHairpin(begun->second.first, placeOf(event), begun->second.second == DynamicEvent::Kind::Crescendo);
            open.erase(begun);
        }
    }

    [[nodiscard]] int GetVelocity(Units place) const {
        if (const auto sudden = sudden_.find(place); sudden != sudden_.end()) return sudden->second;
        auto hairpin = hairpins_.upper_bound(place);
        if (hairpin == hairpins_.begin()) return GetLevel(place);
        --hairpin;
        const auto& [begin, how] = *hairpin;
        if (place >= how.end) return GetLevel(place);
        const double share = static_cast<double>(place - begin) / static_cast<double>(how.end - begin);
        return how.from + static_cast<int>(std::lround(share * (how.to - how.from)));
    }

private:
    [[nodiscard]] int GetLevel(Units place) const {
        const auto next = levels_.upper_bound(place);
        return next == levels_.begin() ? PlainVelocity : std::prev(next)->second;
    }

    void AddHairpin(Units begin, Units end, bool isLouder) {
        if (end <= begin) return;
        const int from = GetLevel(begin);
        const auto goal = levels_.lower_bound(end);
        int to = isLouder ? std::min(from + Step, Loudest) : std::min(from, std::max(from - Step, SoftestOfHairpin));
        // A mark against the hairpin's direction, p after a crescendo, is a new beginning.
        const bool leadsThere =
            goal != levels_.end() && goal->first <= end + reach_ && (goal->second > from) == isLouder;
        if (leadsThere) to = goal->second;
        if (goal == levels_.end() || goal->first != end) levels_[end] = to;
        hairpins_[begin] = {end, from, to};
    }

    Units reach_;
    std::map<Units, int> levels_;
    std::map<Units, int> sudden_;
    std::map<Units, Hairpin> hairpins_;
};

}  // namespace

bool AddDynamics(Reading& reading, PartReading& part, std::uint32_t bar, Units position, const pugi::xml_node& dynamics,
                 std::optional<int> sounding) {
    bool isKnown = false;
    for (const pugi::xml_node& mark : dynamics.children()) {
        const std::string_view name = mark.name();
        const auto known =
            std::find_if(Levels.begin(), Levels.end(), [&](const NamedLevel& row) { return row.name == name; });
        if (known == Levels.end()) continue;
        isKnown = true;
        DynamicEvent event{DynamicEvent::Kind::Level, bar, position, known->level, 1};
        if (known->sudden == 0 && sounding) event.velocity = *sounding;
        if (event.velocity > 0) AddDynamicEvent(reading, part, event);
        if (known->sudden == 0) continue;
        event.kind = DynamicEvent::Kind::Sudden;
        event.velocity = sounding.value_or(known->sudden);
        AddDynamicEvent(reading, part, event);
    }
    return isKnown;
}

void AddDynamicEvent(Reading& reading, PartReading& part, const DynamicEvent& event) {
    reading.CountMark();
    part.dynamics.push_back(event);
}

std::optional<int> ReadVelocity(const pugi::xml_attribute& share) {
    const std::optional<double> forte = ReadDecimal(share.value());
    if (!forte || *forte < 0) return std::nullopt;
    return static_cast<int>(std::clamp(std::lround(std::min(*forte, 200.0) * 0.9), 1L, static_cast<long>(Loudest)));
}

void SetVelocities(Reading& reading) {
    WrittenScore& score = reading.score;
    std::vector<Units> barStarts;
    Units start = 0;
    for (const WrittenBar& bar : score.bars) {
        barStarts.push_back(start);
        start += bar.length;
    }
    std::vector<Loudness> parts;
    parts.reserve(reading.parts.size());
    for (const PartReading& part : reading.parts)
        parts.emplace_back(reading, part, barStarts);
    for (std::size_t index = 0; index < score.notes.size(); ++index) {
        WrittenNote& note = score.notes[index];
        const NoteLoudness& own = reading.loudness[index];
        const int level =
            own.velocity > 0 ? own.velocity : parts[note.part].GetVelocity(barStarts[note.bar] + note.position);
        note.velocity = static_cast<std::uint8_t>(std::clamp(level + own.accent, 1, Loudest));
    }
}

}  // namespace stage::musicxml
