#include "change_log_writer.h"

#include <fmt/format.h>

#include <cmath>
#include <string_view>
#include <type_traits>
#include <variant>

#include "change_log_format.h"
#include "number_text.h"

namespace tavo_core {

namespace {

using logdata::Field;

std::string Quote(std::string_view text) {
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            quoted += '\\';
            quoted += character;
        } else if (static_cast<unsigned char>(character) < 0x20) {
            quoted += fmt::format("\\u{:04x}", static_cast<unsigned int>(character));
        } else {
            quoted += character;
        }
    }
    return quoted += '"';
}

// JSON has no word for what is no number; the reader refuses the null.
std::string AsJson(float number) {
    return std::isfinite(number) ? ShortestText(number) : "null";
}
std::string AsJson(int number) {
    return std::to_string(number);
}
std::string AsJson(unsigned int number) {
    return std::to_string(number);
}
std::string AsJson(const std::string& text) {
    return Quote(text);
}

std::string AsJson(const std::vector<CL::OscArgument>& arguments) {
    std::string list = "[";
    for (const CL::OscArgument& argument : arguments) {
        if (list.size() > 1) list += ',';
        list += std::visit([](const auto& value) { return AsJson(value); }, argument);
    }
    return list += ']';
}

/// One edit as one line.
class EditLine {
public:
    explicit EditLine(unsigned char code) : line_(" {\"kind\":" + Quote(codes::EditName(code))) {}

    template <class Value>
    EditLine& Add(Field field, const Value& value) {
        line_.append(",\"").append(logdata::NameOf(field)).append("\":").append(AsJson(value));
        return *this;
    }
    EditLine& AddRange(const CL::PairedEvent& edit) {
        return Add(Field::Start, edit.start()).Add(Field::End, edit.end());
    }
    std::string Finish() { return std::move(line_) + '}'; }

private:
    std::string line_;
};

void AddFields(EditLine& line, const CL::Vamp& edit) {
    line.AddRange(edit).Add(Field::MaxCount, edit.int_value());
}
void AddFields(EditLine& line, const CL::Repeat& edit) {
    line.AddRange(edit).Add(Field::Count, edit.int_value());
}
void AddFields(EditLine& line, const CL::Cut& edit) {
    line.AddRange(edit);
}
void AddFields(EditLine& line, const CL::Fermata& edit) {
    line.AddRange(edit);
}
void AddFields(EditLine& line, const CL::Transposition& edit) {
    line.AddRange(edit).Add(Field::Semitones, edit.int_value());
}
void AddFields(EditLine& line, const CL::TempoScale& edit) {
    line.AddRange(edit).Add(Field::Scale, edit.float_value());
}
void AddFields(EditLine& line, const CL::Click& edit) {
    line.AddRange(edit).Add(Field::ThirtySecondsPerClick, edit.int_value());
}
void AddFields(EditLine& line, const CL::Caesura& edit) {
    line.Add(Field::Tick, edit.abs_time()).Add(Field::Text, edit.value());
    line.Add(Field::VersionTarget, edit.VersionTarget());
}
void AddFields(EditLine& line, const CL::Sfx& edit) {
    line.AddRange(edit).Add(Field::Sound, edit.sound()).Add(Field::GainDb, edit.gain_db());
}
void AddFields(EditLine& line, const CL::Osc& edit) {
    line.Add(Field::Tick, edit.abs_time()).Add(Field::Target, edit.target());
    line.Add(Field::Address, edit.address()).Add(Field::Arguments, edit.arguments());
}
void AddFields(EditLine& line, const CL::Marker& edit) {
    line.Add(Field::Tick, edit.abs_time()).Add(Field::Text, edit.value());
}

}  // namespace

std::string WriteSong(const std::string& number, const CL::SongLog& songLog) {
    std::string edits;
    songLog.ForEachSequence([&edits](const auto& sequence) {
        for (const auto& edit : sequence) {
            EditLine line(edit.code());
            AddFields(line, edit);
            edits.append(edits.empty() ? "\n" : ",\n").append(line.Finish());
        }
    });
    if (!edits.empty()) edits += '\n';
    return fmt::format("{{\"number\":{},\"attacca\":{},\"edits\":[{}]}}", Quote(number), songLog.GetAttacca(), edits);
}

std::string WriteChangeLog(const CL::ChangeLog& log) {
    std::string songs;
    for (const auto& [number, songLog] : log.GetSongLogs())
        songs.append(songs.empty() ? "\n" : ",\n").append(WriteSong(number, songLog));
    if (!songs.empty()) songs += '\n';
    return fmt::format(
        "{{\"format\":\"{}\",\"formatVersion\":{},\n\"show\":{},\n\"version\":\"{}\",\n\"songs\":[{}]}}\n",
        logdata::formatName, logdata::formatVersion, Quote(log.GetShowName()), log.GetVersion().GetAsString(), songs);
}

}  // namespace tavo_core
