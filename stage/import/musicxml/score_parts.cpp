#include "stage/import/musicxml/score_parts.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "stage/import/musicxml/instruments.h"
#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr std::size_t MaxPartBars = 4'000'000;

/// The parts by their ids, in the order in which music for them is found.
class PartCollector {
public:
    PartCollector(Reading& reading, const pugi::xml_node& score) : reading_(reading) {
        for (const pugi::xml_node& node : score.child("part-list").children("score-part"))
            if (listed_.size() <= MaxParts) listed_.emplace(node.attribute("id").value(), node);
    }

    /// The part of this id; a new one is made where it was not seen yet.
    PartReading& Find(const pugi::xml_node& part) {
        const std::string id = part.attribute("id").value();
        const auto [found, isNew] = indexes_.try_emplace(id, reading_.parts.size());
        if (isNew) Add(id);
        return reading_.parts[found->second];
    }

    void WarnOfParts() const {
        for (const auto& [id, node] : listed_)
            if (!indexes_.contains(id))
                reading_.Warn(fmt::format("the part {} has no music and is left out", MakeLine(id)));
    }

private:
    void Add(const std::string& id) {
        if (reading_.parts.size() == MaxParts) reading_.Fail(fmt::format("the score has more than {} parts", MaxParts));
        PartReading& part = reading_.parts.emplace_back();
        part.index = static_cast<std::uint16_t>(reading_.parts.size() - 1);
        WrittenPart& written = reading_.score.parts.emplace_back();
        written.id = MakeLine(id);
        const auto listed = listed_.find(id);
        const pugi::xml_node node = listed == listed_.end() ? pugi::xml_node() : listed->second;
        if (!node) reading_.Warn(fmt::format("the part {} is not in the list of parts", written.id));
        written.name = ReadLine(node.child("part-name"));
        part.place = written.name.empty() ? fmt::format("part {}", written.id)
                                          : fmt::format("part {} ({})", written.id, written.name);
        ReadInstruments(reading_, part, written, node);
    }

    Reading& reading_;
    std::map<std::string, pugi::xml_node> listed_;
    std::map<std::string, std::size_t> indexes_;
};

void AddMeasure(Reading& reading, PartReading& part, const pugi::xml_node& measure) {
    if (part.measures.size() >= MaxBars)
        reading.Fail(fmt::format("the {} has more than {} measures", part.place, MaxBars));
    part.measures.push_back(measure);
}

void CheckSize(const Reading& reading, std::size_t bars) {
    if (bars * reading.parts.size() > MaxPartBars)
        reading.Fail(fmt::format("{} parts of {} measures are more than can be read", reading.parts.size(), bars));
}

void ReadPartwise(Reading& reading, PartCollector& parts, const pugi::xml_node& score) {
    for (const pugi::xml_node& node : score.children("part")) {
        PartReading& part = parts.Find(node);
        if (!part.measures.empty()) reading.Fail(fmt::format("the {} stands twice in the score", part.place));
        for (const pugi::xml_node& measure : node.children("measure"))
            AddMeasure(reading, part, measure);
    }
}

/// The parts' own elements become their measures; those of a measure that lacks a part stay without.
void ReadTimewise(Reading& reading, PartCollector& parts, const pugi::xml_node& score) {
    std::size_t bars = 0;
    for (const pugi::xml_node& measure : score.children("measure")) {
        CheckSize(reading, bars);
        for (const pugi::xml_node& node : measure.children("part")) {
            PartReading& part = parts.Find(node);
            if (part.measures.size() > bars)
                reading.Fail(fmt::format("the {} stands twice in measure {}", part.place,
                                         ReadLine(measure.attribute("number"))));
            part.measures.resize(bars);
            AddMeasure(reading, part, node);
        }
        ++bars;
    }
}

/// That of the movement, which is the song, else of the work.
std::string ReadTitle(const pugi::xml_node& score) {
    const std::string movement = ReadLine(score.child("movement-title"));
    return movement.empty() ? ReadLine(score.child("work").child("work-title")) : movement;
}

}  // namespace

std::size_t ReadParts(Reading& reading, const pugi::xml_node& document) {
    const pugi::xml_node partwise = document.child("score-partwise");
    const pugi::xml_node score = partwise ? partwise : document.child("score-timewise");
    if (!score) reading.Fail("this is not a MusicXML score");
    reading.score.title = ReadTitle(score);
    PartCollector parts(reading, score);
    if (partwise)
        ReadPartwise(reading, parts, score);
    else
        ReadTimewise(reading, parts, score);
    if (reading.parts.empty()) reading.Fail("the score has no parts");
    parts.WarnOfParts();
    std::size_t bars = 0;
    for (const PartReading& part : reading.parts)
        bars = std::max(bars, part.measures.size());
    if (bars == 0) reading.Fail("the score has no measures");
    CheckSize(reading, bars);
    for (PartReading& part : reading.parts) {
        if (part.measures.size() < bars && partwise)
            reading.Warn(
                fmt::format("the {} has {} of the score's {} measures", part.place, part.measures.size(), bars));
        part.measures.resize(bars);
    }
    return bars;
}

}  // namespace stage::musicxml
