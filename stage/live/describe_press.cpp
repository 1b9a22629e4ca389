#include "stage/live/describe_press.h"

#include <fmt/format.h>

#include <stdexcept>

#include "tavo_core/bar_positions.h"

namespace stage {

std::string DescribePress(const CommandRecord& record, const tavo_midi::ShowData& show) {
    const Command& command = record.command;
    std::string text = AsText(command);
    // A state is for a program to read.
    if (command.verb == Verb::Restore) text = GetVerbRow(command.verb).name;
    if (command.verb == Verb::Seek && !record.place.song.empty()) {
        try {
            const TL::BarPositions positions(show.GetSongData(record.place.song).GetTimeline());
            text = fmt::format("seek {}", positions.DescribeTick(command.GetTick()));
        } catch (const std::logic_error&) {
            // The text with its tick is true as well.
        }
    }
    const CommandSource& source = command.source;
    if (source.door == Door::Terminal) return text;
    return fmt::format("{}  ({}{}{})", text, GetDoorName(source.door), source.name.empty() ? "" : " ", source.name);
}

std::string DescribeRefusal(const CommandRecord& record, const std::string& press) {
    if (record.IsTaken()) return "";
    // The desk's sentences begin with the verb, which is told already.
    const std::string opening = fmt::format("\"{}\" is refused: ", GetVerbRow(record.command.verb).name);
    const std::string_view sentence = record.sentence;
    return fmt::format("{} {}: {}", record.outcome == CommandRecord::Outcome::Refused ? "REFUSED" : "FAILED", press,
                       sentence.starts_with(opening) ? sentence.substr(opening.size()) : sentence);
}

}  // namespace stage
