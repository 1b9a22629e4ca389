#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tavo_core/song_log.h"
#include "tavo_midi/show_file.h"

namespace stage {

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

/// MusicXML, plain and compressed. A file is one song: with its repeats and jumps played out, or, `asWritten`, with
/// each bar once and first edits for its repeats, holds and stops. The title is the score's, else what the file name
/// says.
[[nodiscard]] std::unique_ptr<SongFileReader> MakeMusicXmlReader(bool asWritten);

/// What the name of a score file says: "12a_The_Ferry.mid" is number "12a", title "The Ferry". Leading zeros are left
/// out of the number; without leading digits it is empty.
struct SongFileName {
    std::string number;
    std::string title;
};
[[nodiscard]] SongFileName ParseSongFileName(const std::string& path);

}  // namespace stage
