#include "stage/import/musicxml/local_meters.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string_view>

#include "stage/import/musicxml/divisions.h"
#include "stage/import/musicxml/meters_and_keys.h"
#include "stage/import/musicxml/metronome.h"
#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

/// A part on the way through its bars: its meter, and how far the bar is filled.
class PartWalk {
public:
    explicit PartWalk(Units unitsPerQuarter) : unitsPerQuarter_(unitsPerQuarter) {}

    void Read(const pugi::xml_node& measure) {
        double cursor = 0;
        fill_ = 0;
        for (const pugi::xml_node& node : measure.children()) {
            const std::string_view name = node.name();
            if (name == "attributes") ReadAttributes(node);
            const bool isNote = name == "note" && !node.child("chord") && !node.child("grace");
            if (!isNote && name != "backup" && name != "forward") continue;
            const double duration = ReadDecimal(node.child("duration").child_value()).value_or(0);
            cursor += name == "backup" ? -duration : duration;
            fill_ = std::max(fill_, cursor);
        }
    }

    /// 0 before the part states a meter.
    [[nodiscard]] Units GetMeterLength() const { return meterLength_; }
    [[nodiscard]] double GetFill() const {
        return divisions_ == 0 ? 0 : fill_ * static_cast<double>(unitsPerQuarter_) / static_cast<double>(divisions_);
    }

private:
    void ReadAttributes(const pugi::xml_node& attributes) {
        if (const pugi::xml_node node = attributes.child("divisions"))
            divisions_ = ReadWhole(node.child_value()).value_or(0);
        if (const pugi::xml_node time = attributes.child("time"))
            if (const std::optional<WrittenMeter> meter = ReadMeter(time))
                meterLength_ = GetMeterUnits(*meter, unitsPerQuarter_);
    }

    Units unitsPerQuarter_;
    std::int64_t divisions_ = 0;
    Units meterLength_ = 0;
    double fill_ = 0;
};

/// Nothing where no part has a meter.
const PartReading* FindLeader(const Reading& reading, Units filled) {
    const PartReading* first = nullptr;
    for (const PartReading& part : reading.parts) {
        if (!part.meter) continue;
        if (first == nullptr) first = &part;
        if (filled > 0 && GetMeterUnits(*part.meter, reading.score.unitsPerQuarter) == filled) return &part;
    }
    return first;
}

void WarnOfOwnMeters(Reading& reading) {
    for (PartReading& part : reading.parts) {
        if (!part.statesMeter || *part.meter == reading.meter || part.hasOwnMeter) continue;
        part.hasOwnMeter = true;
        reading.part = &part;
        reading.Warn(
            fmt::format("the part's meter {} differs from {}, which is the score's; the part is not named again",
                        DescribeMeter(*part.meter), DescribeMeter(reading.meter)));
    }
    reading.part = nullptr;
}

}  // namespace

void FindFittedBars(Reading& reading) {
    std::vector<PartWalk> walks(reading.parts.size(), PartWalk(reading.score.unitsPerQuarter));
    std::vector<bool> fits(reading.parts.size(), false);
    for (std::size_t bar = 0; bar < reading.parts.front().measures.size(); ++bar) {
        Units shortest = 0;
        for (std::size_t part = 0; part < walks.size(); ++part) {
            walks[part].Read(reading.parts[part].measures[bar]);
            const Units length = walks[part].GetMeterLength();
            if (length > 0 && (shortest == 0 || length < shortest)) shortest = length;
        }
        for (std::size_t part = 0; part < walks.size(); ++part) {
            const Units own = walks[part].GetMeterLength();
            if (own <= shortest) continue;
            const double fill = walks[part].GetFill();
            if (fill == static_cast<double>(shortest)) fits[part] = true;
            if (fill > static_cast<double>(shortest))
                reading.parts[part].fittedBars[static_cast<std::uint32_t>(bar)] = {shortest, own};
        }
    }
    for (std::size_t part = 0; part < walks.size(); ++part)
        if (!fits[part]) reading.parts[part].fittedBars.clear();
}

void SettleMeter(Reading& reading, BarDraft& bar) {
    const PartReading* leader = FindLeader(reading, bar.filled);
    if (leader == nullptr) return;
    if (leader->statesMeter || *leader->meter != reading.meter) bar.bar.meter = reading.meter = *leader->meter;
    WarnOfOwnMeters(reading);
}

Units FitLength(const Reading& reading, const BarFit& fit, Units length, const pugi::xml_node& note) {
    int dots = 0;
    for (pugi::xml_node dot = note.child("dot"); dot && dots < 4; dot = dot.next_sibling("dot"))
        ++dots;
    double look =
        GetNoteQuarters(ReadLine(note.child("type")), dots) * static_cast<double>(reading.score.unitsPerQuarter);
    if (const pugi::xml_node tuplet = note.child("time-modification")) {
        const double actual = ReadDecimal(tuplet.child("actual-notes").child_value()).value_or(0);
        const double normal = ReadDecimal(tuplet.child("normal-notes").child_value()).value_or(0);
        if (actual > 0 && normal > 0) look *= normal / actual;
    }
    if (std::abs(look - static_cast<double>(length)) > 0.5) return length;
    return std::llround(static_cast<double>(length) * static_cast<double>(fit.length) /
                        static_cast<double>(fit.meterLength));
}

}  // namespace stage::musicxml
