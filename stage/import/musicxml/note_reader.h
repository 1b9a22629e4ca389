#pragma once

#include <pugixml.hpp>

#include "stage/import/musicxml/note_style.h"
#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// The notes of one part in one bar, one after another.
class NoteReader {
public:
    NoteReader(Reading& reading, PartReading& part, BarDraft& bar) : reading_(reading), part_(part), bar_(bar) {}

    /// Reads a <note> at the cursor and returns where the cursor goes from there: on by its duration, nowhere for a
    /// grace note or a further note of a chord.
    [[nodiscard]] Units Read(Units cursor, const pugi::xml_node& node);

private:
    void ReadStyleMarks(const pugi::xml_node& node);
    [[nodiscard]] bool IsSilent(const pugi::xml_node& node);
    [[nodiscard]] int ReadKey(const pugi::xml_node& node, std::uint16_t instrument);
    [[nodiscard]] int ReadPitch(const pugi::xml_node& pitch, int staff);
    [[nodiscard]] int ReadUnpitched(std::uint16_t instrument);
    [[nodiscard]] std::uint16_t FindInstrument(const pugi::xml_node& node);
    void ReadTies(WrittenNote& note, const pugi::xml_node& node) const;

    Reading& reading_;
    PartReading& part_;
    BarDraft& bar_;
    /// Of the chord that is being read.
    Units onset_ = 0;
    Units length_ = 0;
    NoteStyle style_;
    bool hasChord_ = false;
};

}  // namespace stage::musicxml
