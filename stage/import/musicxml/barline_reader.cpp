#include "stage/import/musicxml/barline_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "stage/import/musicxml/bar_marks.h"
#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr int MaxTimes = 1000;

enum class Side { Left, Middle, Right };

Side GetSide(const pugi::xml_node& barline) {
    const std::string_view location = barline.attribute("location").value();
    if (location == "left") return Side::Left;
    return location == "middle" ? Side::Middle : Side::Right;
}

void EndRepeat(Reading& reading, WrittenBar& bar, const pugi::xml_node& repeat) {
    // Another part's mark at the same place says nothing new.
    if (bar.endsRepeat) return;
    bar.endsRepeat = true;
    bar.repeatsAfterJump = IsYes(repeat.attribute("after-jump"));
    if (const pugi::xml_attribute attribute = repeat.attribute("times")) {
        const std::int64_t times = ReadWhole(attribute.value()).value_or(0);
        if (times >= 1 && times <= MaxTimes)
            bar.repeatTimes = static_cast<int>(times);
        else
            reading.Warn(fmt::format("a passage cannot be played {} times; it is played twice", ReadLine(attribute)));
    }
}

void ReadRepeat(Reading& reading, BarDraft& bar, Side side, const pugi::xml_node& repeat) {
    const bool isForward = std::string_view(repeat.attribute("direction").value()) == "forward";
    if (side == Side::Middle) {
        reading.Warn("a repeat sign inside a measure is not read");
    } else if (isForward) {
        (side == Side::Left ? bar.bar.startsRepeat : reading.nextStartsRepeat) = true;
    } else if (side == Side::Right) {
        EndRepeat(reading, bar.bar, repeat);
    } else if (!reading.score.bars.empty()) {
        EndRepeat(reading, reading.score.bars.back(), repeat);
    } else {
        reading.Warn("a repeat ends before the first measure and is not read");
    }
}

void ReadEnding(Reading& reading, BarDraft& bar, Side side, const pugi::xml_node& node) {
    WrittenEnding ending{ReadNumbers(node.attribute("number").value())};
    if (ending.numbers.empty()) ending.numbers = ReadNumbers(node.child_value());
    const bool isStart = std::string_view(node.attribute("type").value()) == "start";
    if (isStart) {
        std::optional<WrittenEnding>& start = side == Side::Right ? reading.nextEndingStart : bar.bar.endingStart;
        if (!start) start = std::move(ending);
    } else if (side == Side::Left && !reading.score.bars.empty()) {
        std::optional<WrittenEnding>& stop = reading.score.bars.back().endingStop;
        if (!stop) stop = std::move(ending);
    } else if (!bar.bar.endingStop) {
        bar.bar.endingStop = std::move(ending);
    }
}

}  // namespace

void ReadBarline(Reading& reading, BarDraft& bar, Units cursor, const pugi::xml_node& barline) {
    const Side side = GetSide(barline);
    const auto addMark = [&](MarkKind kind, std::string text) {
        DraftMark mark;
        mark.mark.kind = kind;
        mark.mark.position = side == Side::Left ? 0 : cursor;
        mark.mark.text = std::move(text);
        mark.isAtEnd = side == Side::Right;
        AddMark(reading, bar, std::move(mark));
    };
    for (const pugi::xml_node& node : barline.children()) {
        const std::string_view name = node.name();
        if (name == "repeat")
            ReadRepeat(reading, bar, side, node);
        else if (name == "ending")
            ReadEnding(reading, bar, side, node);
        else if (name == "fermata")
            addMark(MarkKind::Fermata, {});
        else if (name == "segno" && !barline.attribute("segno"))
            addMark(MarkKind::Segno, {});
        else if (name == "coda" && !barline.attribute("coda"))
            addMark(MarkKind::Coda, {});
    }
    if (const pugi::xml_attribute segno = barline.attribute("segno")) addMark(MarkKind::Segno, ReadLine(segno));
    if (const pugi::xml_attribute coda = barline.attribute("coda")) addMark(MarkKind::Coda, ReadLine(coda));
}

}  // namespace stage::musicxml
