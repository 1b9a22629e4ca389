#include "stage/import/musicxml/divisions.h"

#include <fmt/format.h>

#include <cmath>
#include <numeric>

#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr std::int64_t MaxDivisions = 1'000'000;
constexpr Units MaxUnits = 1'000'000'000;
/// Ticks and short notes, made exact too where that costs nothing.
constexpr Units LikedUnits = 480;
constexpr Units MaxLikedUnits = 1'000'000;
/// The shortest note that a meter counts, a 64th.
constexpr Units MeterUnits = 16;

/// 0 if the text is none.
std::int64_t ParseDivisions(const pugi::xml_node& node) {
    const std::optional<std::int64_t> divisions = ReadWhole(node.child_value());
    return divisions && *divisions > 0 && *divisions <= MaxDivisions ? *divisions : 0;
}

/// A number of divisions in units, rounded where the score does not divide so finely.
Units ToUnits(Reading& reading, const PartReading& part, double duration) {
    const Units factor = reading.score.unitsPerQuarter / part.divisions;
    const double units = duration * static_cast<double>(factor);
    const Units rounded = std::llround(units);
    if (static_cast<double>(rounded) != units)
        reading.Warn(fmt::format("the duration {} is not a whole number of divisions and is rounded", duration));
    return rounded;
}

}  // namespace

void ChooseUnits(Reading& reading) {
    Units common = MeterUnits;
    for (const PartReading& part : reading.parts)
        for (const pugi::xml_node& measure : part.measures)
            for (const pugi::xml_node& attributes : measure.children("attributes"))
                for (const pugi::xml_node& node : attributes.children("divisions")) {
                    const std::int64_t divisions = ParseDivisions(node);
                    if (divisions == 0) continue;
                    common = std::lcm(common, divisions);
                    if (common > MaxUnits) reading.Fail("the parts divide the quarter note in too many ways");
                }
    const Units liked = std::lcm(common, LikedUnits);
    reading.score.unitsPerQuarter = liked <= MaxLikedUnits ? liked : common;
}

void ReadDivisions(Reading& reading, PartReading& part, const pugi::xml_node& node) {
    part.divisions = ParseDivisions(node);
    if (part.divisions == 0)
        reading.Fail(
            fmt::format("the divisions \"{}\" are not a whole number from 1 to {}", ReadLine(node), MaxDivisions));
}

Units ReadDuration(Reading& reading, PartReading& part, const pugi::xml_node& element) {
    const pugi::xml_node node = element.child("duration");
    if (!node) reading.Fail(fmt::format("a {} has no duration", element.name()));
    const std::optional<double> duration = ReadDecimal(node.child_value());
    if (!duration)
        reading.Fail(fmt::format("the duration \"{}\" of a {} is not a number", ReadLine(node), element.name()));
    if (*duration < 0) reading.Fail(fmt::format("the duration {} of a {} is negative", *duration, element.name()));
    if (part.divisions == 0)
        reading.Fail(fmt::format("a {} stands before the divisions of a quarter note", element.name()));
    if (*duration > static_cast<double>(MaxBarQuarters * part.divisions))
        reading.Fail(fmt::format("the duration {} of a {} is longer than {} quarter notes", ReadLine(node),
                                 element.name(), MaxBarQuarters));
    return ToUnits(reading, part, *duration);
}

Units ReadOffset(Reading& reading, const PartReading& part, const pugi::xml_node& offset) {
    const std::optional<double> divisions = ReadDecimal(offset.child_value());
    if (!offset || !divisions || part.divisions == 0) return 0;
    if (std::abs(*divisions) > static_cast<double>(MaxBarQuarters * part.divisions)) return 0;
    return ToUnits(reading, part, *divisions);
}

Units GetMeterUnits(const WrittenMeter& meter, Units unitsPerQuarter) {
    return std::accumulate(meter.groups.begin(), meter.groups.end(), Units{0}) * 4 * unitsPerQuarter / meter.beatType;
}

}  // namespace stage::musicxml
