#include "stage/import/musicxml/score_file.h"

#include <fmt/format.h>

#include <memory>
#include <stdexcept>
#include <utility>

#include "stage/import/musicxml/divisions.h"
#include "stage/import/musicxml/dynamics.h"
#include "stage/import/musicxml/local_meters.h"
#include "stage/import/musicxml/measure_reader.h"
#include "stage/import/musicxml/mxl_archive.h"
#include "stage/import/musicxml/reading.h"
#include "stage/import/musicxml/score_parts.h"
#include "stage/import/musicxml/xml_document.h"

namespace stage::musicxml {

namespace {

std::unique_ptr<pugi::xml_document> LoadScore(std::string_view bytes, const std::string& name) {
    const std::string place = fmt::format("\"{}\"", name);
    if (IsArchive(bytes)) return ParseXml(ReadScoreMember(bytes, name), place);
    if (bytes.size() > MaxScoreFileBytes)
        throw std::runtime_error(fmt::format("{} is larger than {} MB", place, MaxScoreFileBytes >> 20U));
    return ParseXml(bytes, place);
}

/// A score that marks pages, or systems, begins with one.
void MarkFirstBar(Reading& reading) {
    WrittenBar& first = reading.score.bars.front();
    first.startsPage = reading.marksPages;
    first.startsSystem = reading.marksSystems || reading.marksPages;
    for (WrittenBar& bar : reading.score.bars)
        bar.startsSystem = bar.startsSystem || bar.startsPage;
}

}  // namespace

WrittenScore ReadScore(std::string_view bytes, const std::string& name) {
    const std::unique_ptr<pugi::xml_document> document = LoadScore(bytes, name);
    Reading reading;
    reading.name = name;
    const std::size_t bars = ReadParts(reading, *document);
    ChooseUnits(reading);
    FindFittedBars(reading);
    reading.score.bars.reserve(bars);
    for (std::size_t index = 0; index < bars; ++index) {
        BarDraft bar = BeginBar(reading, static_cast<std::uint32_t>(index));
        for (PartReading& part : reading.parts)
            ReadMeasure(reading, part, bar, part.measures[index]);
        FinishBar(reading, std::move(bar));
    }
    MarkFirstBar(reading);
    SetVelocities(reading);
    return std::move(reading.score);
}

}  // namespace stage::musicxml
