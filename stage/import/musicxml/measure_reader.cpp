#include "stage/import/musicxml/measure_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "stage/import/musicxml/attributes_reader.h"
#include "stage/import/musicxml/bar_marks.h"
#include "stage/import/musicxml/barline_reader.h"
#include "stage/import/musicxml/direction_reader.h"
#include "stage/import/musicxml/divisions.h"
#include "stage/import/musicxml/local_meters.h"
#include "stage/import/musicxml/meters_and_keys.h"
#include "stage/import/musicxml/note_reader.h"
#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

/// Reads the elements of a measure one after another. The cursor says where the next one stands.
class MeasureReader {
public:
    MeasureReader(Reading& reading, PartReading& part, BarDraft& bar)
        : reading_(reading), part_(part), bar_(bar), notes_(reading, part, bar) {}

    void Read(const pugi::xml_node& measure) {
        for (const pugi::xml_node& node : measure.children())
            ReadElement(node);
    }

private:
    void ReadElement(const pugi::xml_node& node);
    void ReadPrint(const pugi::xml_node& print);
    void MoveBack(Units duration);
    void MoveTo(Units cursor);

    Reading& reading_;
    PartReading& part_;
    BarDraft& bar_;
    NoteReader notes_;
    Units cursor_ = 0;
};

void MeasureReader::ReadElement(const pugi::xml_node& node) {
    const std::string_view name = node.name();
    if (name == "note")
        MoveTo(notes_.Read(cursor_, node));
    else if (name == "backup")
        MoveBack(ReadDuration(reading_, part_, node));
    else if (name == "forward")
        MoveTo(cursor_ + ReadDuration(reading_, part_, node));
    else if (name == "attributes")
        ReadAttributes(reading_, part_, bar_, cursor_, node);
    else if (name == "direction")
        ReadDirection(reading_, part_, bar_, cursor_, node);
    else if (name == "sound")
        ReadSound(reading_, part_, bar_, cursor_, node);
    else if (name == "barline")
        ReadBarline(reading_, bar_, cursor_, node);
    else if (name == "print" && part_.index == 0)
        ReadPrint(node);
}

void MeasureReader::ReadPrint(const pugi::xml_node& print) {
    WrittenBar& bar = bar_.bar;
    if (IsYes(print.attribute("new-page"))) bar.startsPage = reading_.marksPages = true;
    if (IsYes(print.attribute("new-system"))) bar.startsSystem = reading_.marksSystems = true;
    if (const pugi::xml_attribute number = print.attribute("page-number")) bar.pageNumber = ReadLine(number);
}

void MeasureReader::MoveBack(Units duration) {
    if (duration > cursor_) reading_.Warn("a backup goes back beyond the beginning of the measure");
    cursor_ = std::max(Units{0}, cursor_ - duration);
}

void MeasureReader::MoveTo(Units cursor) {
    if (cursor > MaxBarQuarters * reading_.score.unitsPerQuarter)
        reading_.Fail(fmt::format("the measure is longer than {} quarter notes", MaxBarQuarters));
    cursor_ = cursor;
    bar_.filled = std::max(bar_.filled, cursor);
}

/// "12", or as it is printed instead.
std::string ReadLabel(const pugi::xml_node& measure) {
    const pugi::xml_attribute text = measure.attribute("text");
    return ReadLine(text ? text : measure.attribute("number"));
}

/// What the first part that has the bar says of it. In a timewise score the measure stands around the part.
void ReadHead(BarDraft& bar, const pugi::xml_node& node) {
    bar.bar.label = ReadLabel(node);
    bar.bar.isImplicit = IsYes(node.attribute("implicit"));
}

void SortNotes(std::vector<DraftNote>& notes) {
    std::stable_sort(notes.begin(), notes.end(), [](const DraftNote& left, const DraftNote& right) {
        if (left.note.position != right.note.position) return left.note.position < right.note.position;
        return left.note.grace != GraceKind::None && right.note.grace == GraceKind::None;
    });
}

}  // namespace

void ReadMeasure(Reading& reading, PartReading& part, BarDraft& bar, const pugi::xml_node& measure) {
    if (!measure) return;
    const pugi::xml_node head = std::string_view(measure.name()) == "part" ? measure.parent() : measure;
    reading.part = &part;
    reading.label = ReadLabel(head);
    if (!bar.hasHead) ReadHead(bar, head);
    bar.hasHead = true;
    bar.notes.clear();
    const std::size_t firstPedal = bar.pedals.size();
    MeasureReader(reading, part, bar).Read(measure);
    SortNotes(bar.notes);
    for (const DraftNote& draft : bar.notes) {
        reading.score.notes.push_back(draft.note);
        reading.loudness.push_back(draft.loudness);
    }
    std::stable_sort(
        bar.pedals.begin() + static_cast<std::ptrdiff_t>(firstPedal), bar.pedals.end(),
        [](const WrittenPedal& left, const WrittenPedal& right) { return left.position < right.position; });
    reading.part = nullptr;
}

BarDraft BeginBar(Reading& reading, std::uint32_t index) {
    BarDraft bar;
    bar.index = index;
    reading.bar = index;
    reading.label.clear();
    bar.bar.startsRepeat = std::exchange(reading.nextStartsRepeat, false);
    bar.bar.endingStart = std::exchange(reading.nextEndingStart, std::nullopt);
    bar.bar.key = std::exchange(reading.nextKey, std::nullopt);
    if (bar.bar.key) reading.key = *bar.bar.key;
    for (PartReading& part : reading.parts) {
        part.statesMeter = part.nextMeter.has_value();
        if (part.nextMeter) part.meter = std::exchange(part.nextMeter, std::nullopt);
    }
    return bar;
}

void FinishBar(Reading& reading, BarDraft bar) {
    SettleMeter(reading, bar);
    const Units unitsPerQuarter = reading.score.unitsPerQuarter;
    const Units meterUnits = GetMeterUnits(reading.meter, unitsPerQuarter);
    bar.bar.length = bar.filled > 0 ? bar.filled : meterUnits > 0 ? meterUnits : 4 * unitsPerQuarter;
    if (meterUnits > 0 && bar.filled > meterUnits)
        reading.Warn(
            fmt::format("{} is longer than its meter, {}", reading.GetMeasure(), DescribeMeter(reading.meter)));
    bar.bar.marks = MergeMarks(std::move(bar.marks), bar.bar.length);
    for (WrittenPedal& pedal : bar.pedals)
        pedal.position = std::min(pedal.position, bar.bar.length);
    reading.score.pedals.insert(reading.score.pedals.end(), bar.pedals.begin(), bar.pedals.end());
    reading.score.bars.push_back(std::move(bar.bar));
}

}  // namespace stage::musicxml
