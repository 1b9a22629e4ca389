#include "stage/import/musicxml/attributes_reader.h"

#include <fmt/format.h>

#include <algorithm>

#include "stage/import/musicxml/divisions.h"
#include "stage/import/musicxml/meters_and_keys.h"
#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr std::int64_t MostShift = 127;

int ReadShift(const pugi::xml_node& node, std::int64_t most = MostShift) {
    return static_cast<int>(std::clamp(ReadWhole(node.child_value()).value_or(0), -most, most));
}

void ReadTranspose(PartReading& part, const pugi::xml_node& node) {
    const int octaves = ReadShift(node.child("octave-change"), 10);
    const int semitones = ReadShift(node.child("chromatic"));
    const pugi::xml_node steps = node.child("diatonic");
    const Transposition transposition{semitones + 12 * octaves,
                                      GetFifths(semitones, steps ? std::optional(ReadShift(steps)) : std::nullopt)};
    if (const pugi::xml_attribute staff = node.attribute("number")) {
        part.staffTranspositions[static_cast<int>(
            std::clamp<std::int64_t>(ReadWhole(staff.value()).value_or(1), 1, 1000))] = transposition;
    } else {
        part.transposition = transposition;
        part.staffTranspositions.clear();
    }
}

/// The first of the elements that stands for the part's first staff.
pugi::xml_node FindFirstStaff(const pugi::xml_node& attributes, const char* name) {
    for (const pugi::xml_node& node : attributes.children(name))
        if (!node.attribute("number") || ReadWhole(node.attribute("number").value()) == 1) return node;
    return {};
}

void WarnOfChangeInside(Reading& reading, const char* what) {
    reading.Warn(fmt::format("a change of {} inside the measure is read at the next one", what));
}

/// Where a change stands inside the bar it holds from the next one on.
void ReadTime(Reading& reading, PartReading& part, bool isInside, const pugi::xml_node& time) {
    const std::optional<WrittenMeter> meter = ReadMeter(time);
    if (!meter) {
        reading.Warn("a meter cannot be read and is left out");
    } else if (!isInside) {
        part.meter = meter;
        part.statesMeter = true;
    } else if (*meter != part.meter.value_or(CommonTime)) {
        if (part.index == 0) WarnOfChangeInside(reading, "meter");
        part.nextMeter = meter;
    }
}

void ReadKeySignature(Reading& reading, const PartReading& part, BarDraft& bar, bool isInside,
                      const pugi::xml_node& node) {
    const std::optional<WrittenKey> key = ReadKey(node, part.transposition.fifths);
    if (!key) {
        reading.Warn("a key that is not one of 7 flats to 7 sharps is left out");
        return;
    }
    const bool isFirst = part.index == 0 || (bar.index == 0 && !bar.bar.key);
    if (isFirst && !isInside) {
        bar.bar.key = reading.key = *key;
    } else if (isFirst && *key != reading.key) {
        WarnOfChangeInside(reading, "key");
        reading.nextKey = key;
    } else if (!isFirst && !isInside && key->fifths != reading.key.fifths) {
        reading.Warn(fmt::format("the part's key, {}, differs from {}, which is the score's", DescribeKey(*key),
                                 DescribeKey(reading.key)));
    }
}

}  // namespace

void ReadAttributes(Reading& reading, PartReading& part, BarDraft& bar, Units cursor,
                    const pugi::xml_node& attributes) {
    for (const pugi::xml_node& node : attributes.children("divisions"))
        ReadDivisions(reading, part, node);
    for (const pugi::xml_node& node : attributes.children("transpose"))
        ReadTranspose(part, node);
    if (const pugi::xml_node time = FindFirstStaff(attributes, "time")) ReadTime(reading, part, cursor > 0, time);
    if (const pugi::xml_node key = FindFirstStaff(attributes, "key"))
        ReadKeySignature(reading, part, bar, cursor > 0, key);
}

}  // namespace stage::musicxml
