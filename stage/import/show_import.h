#pragma once

#include <map>
#include <string>
#include <vector>

#include "stage/import/import_files.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// What an import is asked to do.
struct ImportRequest {
    /// Score files, and folders whose score files are meant.
    std::vector<std::string> paths;
    /// The show directory: not there yet, or without a show in it.
    std::string showPath;
    /// Empty: the name of the show directory.
    std::string title;
    /// Length of a pick-up in beats by song number.
    std::map<std::string, double> pickupBeats;
    /// By song number; each bar of a song once. 10 to 500 quarter notes a minute.
    std::map<std::string, std::vector<TempoSetting>> tempos = {};
    /// Keep the bars of MusicXML scores as they are written, with first edits, instead of playing repeats and jumps
    /// out.
    bool asWritten = false;
    Breaths breaths = Breaths::Lift;
    ReportImport reportProgress;
};

struct ImportResult {
    std::string title;
    std::vector<tavo_midi::SongData> songs;
    /// What was odd and taken all the same, a sentence each.
    std::vector<std::string> notes;
    /// Bars of scores that are never played, a sentence for each passage; they are told in any case.
    std::vector<std::string> unplayedBars;
    /// What is taken for tempos that no file gives, a sentence for each such song; told in any case.
    std::vector<std::string> guessedTempos;
};

/// Makes a show directory from score files: `<name>.showdata`, `<name>-1.0.logdata` with a log for every song, and
/// `settings.json` unless one is there, and the MusicXML scores as they are (source_scores.h). A MIDI file and a score
/// of one song are joined. Pages without printed numbers are numbered through the show. Files without a number in their
/// names get the numbers after the highest one, in the order of names. Throws std::runtime_error with one sentence for
/// anything that cannot be imported; nothing is left behind then. A show that is there is never touched. A kill while a
/// new directory is made leaves none.
[[nodiscard]] ImportResult ImportShow(const ImportRequest& request);

}  // namespace stage
