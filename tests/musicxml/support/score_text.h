#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "stage/import/musicxml/score_file.h"

/// Small scores for the reader's tests, put together from pieces of text.
namespace test_support {

inline const std::string Divisions = "<attributes><divisions>4</divisions></attributes>";

/// A note of four divisions a quarter: "C4", "F#5", "Bb3", or "rest"; `extra` stands inside it.
inline std::string Note(const std::string& pitch, int duration, const std::string& extra = {}) {
    const std::string length = fmt::format("<duration>{}</duration>", duration);
    if (pitch == "rest") return "<note><rest/>" + length + extra + "</note>";
    const bool isAltered = pitch.size() == 3;
    const std::string alter = isAltered ? fmt::format("<alter>{}</alter>", pitch[1] == '#' ? 1 : -1) : "";
    const std::string chord = extra.starts_with("<chord/>") || extra.starts_with("<grace") ? extra : "";
    return "<note>" + chord + "<pitch><step>" + pitch.substr(0, 1) + "</step>" + alter + "<octave>" + pitch.back() +
           "</octave></pitch>" + (extra.starts_with("<grace") ? "" : length) + (chord.empty() ? extra : "") + "</note>";
}

inline std::string Time(const std::string& beats, const std::string& beatType) {
    return "<attributes><time><beats>" + beats + "</beats><beat-type>" + beatType + "</beat-type></time></attributes>";
}

inline std::string Direction(const std::string& type, const std::string& behind = {}) {
    return "<direction><direction-type>" + type + "</direction-type>" + behind + "</direction>";
}

inline std::string Measure(const std::string& number, const std::string& content, const std::string& attributes = {}) {
    return "<measure number=\"" + number + "\" " + attributes + ">" + content + "</measure>";
}

inline std::string Partwise(const std::string& partList, const std::string& parts) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><score-partwise version=\"4.0\"><part-list>" + partList +
           "</part-list>" + parts + "</score-partwise>";
}

/// A score of one part, a violin, whose measures are numbered from 1. Divisions are stated in the first.
inline std::string Score(const std::vector<std::string>& measures) {
    std::string text;
    for (std::size_t index = 0; index < measures.size(); ++index)
        text += Measure(std::to_string(index + 1), (index == 0 ? Divisions : "") + measures[index]);
    return Partwise("<score-part id=\"P1\"><part-name>Violin</part-name></score-part>",
                    "<part id=\"P1\">" + text + "</part>");
}

/// A score of two parts, a violin and a horn, of one measure each.
inline std::string TwoParts(const std::string& first, const std::string& second) {
    return Partwise(
        "<score-part id=\"P1\"><part-name>Violin</part-name></score-part>"
        "<score-part id=\"P2\"><part-name>Horn in F</part-name></score-part>",
        "<part id=\"P1\">" + Measure("1", Divisions + first) + "</part><part id=\"P2\">" +
            Measure("1", Divisions + second) + "</part>");
}

inline stage::musicxml::WrittenScore Read(const std::string& text) {
    return stage::musicxml::ReadScore(text, "a.xml");
}

/// The sentence with which a file is refused.
inline std::string Refuse(std::string_view bytes) {
    try {
        static_cast<void>(stage::musicxml::ReadScore(bytes, "a.xml"));
        return "read";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string::npos, std::string(error.what()).find('\n')) << error.what();
        return error.what();
    }
}

/// A place in quarter notes.
inline double InQuarters(const stage::musicxml::WrittenScore& score, stage::musicxml::Units units) {
    return static_cast<double>(units) / static_cast<double>(score.unitsPerQuarter);
}

inline const char* NameOf(stage::musicxml::MarkKind kind) {
    using stage::musicxml::MarkKind;
    switch (kind) {
        case MarkKind::Tempo:
            return "tempo";
        case MarkKind::Fermata:
            return "fermata";
        case MarkKind::Breath:
            return "breath";
        case MarkKind::Caesura:
            return "caesura";
        case MarkKind::Rehearsal:
            return "rehearsal";
        case MarkKind::Words:
            return "words";
        case MarkKind::Segno:
            return "segno";
        case MarkKind::Coda:
            return "coda";
        case MarkKind::ToCoda:
            return "to coda";
        case MarkKind::DaCapo:
            return "da capo";
        case MarkKind::DalSegno:
            return "dal segno";
        case MarkKind::Fine:
            return "fine";
    }
    return "?";
}

/// The marks of a bar as text: "0 tempo 120, 1 fermata, 2 words Vamp"; positions in quarter notes.
inline std::string MarksOf(const stage::musicxml::WrittenScore& score, std::size_t bar) {
    std::string text;
    for (const stage::musicxml::WrittenMark& mark : score.bars.at(bar).marks) {
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", InQuarters(score, mark.position), NameOf(mark.kind));
        if (mark.value != 0) text += fmt::format(" {}", mark.value);
        if (!mark.text.empty()) text += " " + mark.text;
        if (mark.length != 0) text += fmt::format(" for {}", InQuarters(score, mark.length));
        for (const int pass : mark.passes)
            text += fmt::format(" #{}", pass);
    }
    return text;
}

/// The notes of a score as text, "key@position+length" with bars from 1: "60@1:0+1".
inline std::string NotesOf(const stage::musicxml::WrittenScore& score) {
    std::string text;
    for (const stage::musicxml::WrittenNote& note : score.notes)
        text += fmt::format("{}{}@{}:{}+{}", text.empty() ? "" : " ", note.key, note.bar + 1,
                            InQuarters(score, note.position), InQuarters(score, note.length));
    return text;
}

}  // namespace test_support
