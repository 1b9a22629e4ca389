#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tavo_core/song_log.h"
#include "tavo_midi/show_file.h"

namespace stage {

/// A tempo that the arranger sets, in force up to the next one.
struct TempoSetting {
    /// Label of the bar where it begins; empty: the beginning of the song.
    std::string bar;
    double quartersPerMinute = 120;
};

/// What is taken for tempos that nobody has given, "no tempo is given; 72 quarters a minute are taken from "Andante"";
/// empty where all are given.
struct TempoAccount {
    std::string text;
    /// Not even words say the first tempo, so that it is best set.
    bool isUnknown = false;
};

/// A song as a score file gives it.
struct ImportedSong {
    /// Everything but the song's number, which may stay empty, and a pick-up that only the arranger knows of.
    tavo_midi::ShowSong packed;
    /// Edits that the score itself suggests. Markers among them stand for those of its MIDI form.
    CL::SongLog firstEdits;
    /// Whether the pages bear the numbers that are printed on them; otherwise they count from 1.
    bool printsPageNumbers = false;
    /// What was odd in the file and read all the same, a sentence each.
    std::vector<std::string> notes;
    /// The bars of a score that are never played when its repeats and jumps are played out, a sentence each.
    std::vector<std::string> unplayedBars;
    TempoAccount tempoAccount;
    /// The score that the show keeps to be engraved; empty for a MIDI file.
    std::string scoreFile;
    /// Of each bar of the song the place of its measure in that score, from 0.
    std::vector<std::uint32_t> scoreMeasures;
    /// Makes the same song with tempos that are set at written bars, each time when they are played; leaves in the list
    /// those whose bar is not a written one. Empty for a MIDI file.
    std::function<ImportedSong(std::vector<TempoSetting>&)> makeWithTempos;
    /// Makes the same song with its bars in the other order, played out or as written; empty for a MIDI file.
    std::function<ImportedSong()> makeOtherOrder;
};

/// Reads one kind of score file. Whatever the kind, a song is packed as a Standard MIDI File together with what such a
/// file cannot say (bar labels, pages) and the first edits, so that everything after the reader is the same.
class SongFileReader {
public:
    /// Told what is done next, "reading 01_Overture.mid".
    using ReportStep = std::function<void(const std::string& step)>;

    virtual ~SongFileReader() = default;
    /// Whether files with this extension ("mid", lower case, without the dot) are for this reader.
    [[nodiscard]] virtual bool ReadsExtension(std::string_view extension) const = 0;
    /// The songs of a file. Throws std::runtime_error with one sentence that names it.
    [[nodiscard]] virtual std::vector<ImportedSong> Read(const std::string& path,
                                                         const ReportStep& reportStep) const = 0;
};

/// Standard MIDI Files. A file of format 2 gives a song for each of its sequences. The title is the name of a track
/// that holds no music, else what the file name says.
[[nodiscard]] std::unique_ptr<SongFileReader> MakeMidiFileReader();

/// What the breath marks of a score become.
enum class Breaths {
    Stop,    ///< a stop that the operator ends; only in a song as written
    Lift,    ///< the note before ends a little early
    Ignore,  ///< nothing
};

struct ScoreOptions {
    /// Each bar once, with first edits for repeats, holds and stops, instead of repeats and jumps played out.
    bool asWritten = false;
    Breaths breaths = Breaths::Lift;
};

/// MusicXML, plain and compressed. A file is one song. The title is the score's, else what the file name says.
[[nodiscard]] std::unique_ptr<SongFileReader> MakeMusicXmlReader(const ScoreOptions& options);

/// What the name of a score file says: "12a_The_Ferry.mid" is number "12a", title "The Ferry". Leading zeros are left
/// out of the number; without leading digits it is empty.
struct SongFileName {
    std::string number;
    std::string title;
};
[[nodiscard]] SongFileName ParseSongFileName(const std::string& path);

}  // namespace stage
