#include "change_log_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <iterator>
#include <limits>
#include <string_view>
#include <variant>

#include "change_log_format.h"
#include "number_text.h"

namespace tavo_core {

namespace {

using logdata::Field;

// Every text is made in one go, in the text that is written to: a save waits for it.

void Append(std::string& to, std::string_view text) {
    to += '"';
    for (;;) {
        const auto special = std::find_if(text.begin(), text.end(), [](char character) {
            return character == '"' || character == '\\' || static_cast<unsigned char>(character) < 0x20;
        });
        to.append(text.begin(), special);
        if (special == text.end()) break;
        if (static_cast<unsigned char>(*special) < 0x20)
            fmt::format_to(std::back_inserter(to), "\\u{:04x}", static_cast<unsigned int>(*special));
        else
            to.append({'\\', *special});
        text.remove_prefix(static_cast<std::size_t>(special - text.begin()) + 1);
    }
    to += '"';
}

// JSON has no word for what is not a number; the reader refuses the null.
void Append(std::string& to, float number) {
    to += std::isfinite(number) ? ShortestText(number) : "null";
}

template <std::integral Number>
void Append(std::string& to, Number number) {
    std::array<char, std::numeric_limits<Number>::digits10 + 3> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    to.append(digits.data(), result.ptr);
}

void Append(std::string& to, const std::vector<CL::OscArgument>& arguments) {
    to += '[';
    for (bool isFirst = true; const CL::OscArgument& argument : arguments) {
        if (!isFirst) to += ',';
        isFirst = false;
        std::visit([&to](const auto& value) { Append(to, value); }, argument);
    }
    to += ']';
}

/// What stands before the value of a field.
const std::string& HeadOf(Field field) {
    // Never destroyed, as all tables here: threads may still write while the process ends.
    static const auto& heads = []() -> const auto& {
        auto& made = *new std::array<std::string, logdata::FieldCount>;
        for (std::size_t i = 0; i < made.size(); ++i)
            made[i] = fmt::format(",\"{}\":", logdata::FieldNames[i]);
        return made;
    }
    ();
    return heads[static_cast<std::size_t>(field)];
}

/// One edit as one line at the end of a text.
class EditLine {
public:
    /// `head` is what edits of the kind begin with.
    EditLine(std::string& text, std::string_view head) : text_(text) { text_ += head; }

    template <class Value>
    EditLine& Add(Field field, const Value& value) {
        text_ += HeadOf(field);
        Append(text_, value);
        return *this;
    }
    EditLine& AddRange(const CL::PairedEvent& edit) {
        return Add(Field::Start, edit.start()).Add(Field::End, edit.end());
    }
    void Finish() { text_ += '}'; }

private:
    std::string& text_;
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

void AppendSong(std::string& text, const std::string& number, const CL::SongLog& songLog) {
    text += "{\"number\":";
    Append(text, number);
    text += ",\"attacca\":";
    Append(text, songLog.GetAttacca());
    text += ",\"edits\":[";
    bool isFirst = true;
    songLog.ForEachSequence([&](const auto& sequence) {
        if (sequence.empty()) return;
        const std::string head = fmt::format(",\n {{\"kind\":\"{}\"", codes::EditName(sequence[0].code()));
        for (const auto& edit : sequence) {
            EditLine line(text, std::string_view(head).substr(isFirst ? 1 : 0));
            isFirst = false;
            AddFields(line, edit);
            line.Finish();
        }
    });
    text += isFirst ? "]}" : "\n]}";
}

}  // namespace

std::string WriteSong(const std::string& number, const CL::SongLog& songLog) {
    std::string text;
    AppendSong(text, number, songLog);
    return text;
}

std::string WriteChangeLog(const CL::ChangeLog& log) {
    std::string text = fmt::format("{{\"format\":\"{}\",\"formatVersion\":{},\n\"show\":", logdata::FormatName,
                                   logdata::FormatVersion);
    Append(text, log.GetShowName());
    text += fmt::format(",\n\"version\":\"{}\",\n\"songs\":[", log.GetVersion().GetAsString());
    for (bool isFirst = true; const auto& [number, songLog] : log.GetSongLogs()) {
        text += isFirst ? "\n" : ",\n";
        isFirst = false;
        AppendSong(text, number, songLog);
    }
    text += log.GetSongLogs().empty() ? "]}\n" : "\n]}\n";
    return text;
}

}  // namespace tavo_core
