#pragma once

#include <map>
#include <string>

#include "kit/numeric_string_compare.h"
#include "tavo_core/song_log.h"
#include "tavo_core/tavo_version.h"

namespace CL {

/// All edits of a production: one song log a song, keyed by song number in numeric order. The file form is `.logdata`:
/// JSON text (RFC 8259) with a stable order of keys and one edit a line, one file a version. A value; not thread-safe:
/// the guards of active_change_log.h protect the one in use.
class ChangeLog {
public:
    /// "2" before "2a" before "10"; this is the order in which songs follow one another.
    using SongLogs = std::map<std::string, SongLog, kit::NumericStringCompare>;

    /// A log without songs at version 1.0.
    ChangeLog() = default;

    /// Reads a `.logdata` file. Throws std::runtime_error with one sentence that names the file, the place in it and
    /// what is wrong there: unreadable, too large, not JSON, wrong type, value out of range, unknown key.
    /// Blocks on the disk.
    static ChangeLog Load(const std::string& path);
    /// The same from memory; `name` stands for the file in the sentences.
    static ChangeLog Parse(const std::string& text, const std::string& name);

    /// The text of the log as a file holds it.
    [[nodiscard]] std::string AsText() const;

    /// Writes the log as a new file and returns its full path. An empty `path` chooses the name in the directory the
    /// log came from: the show's name, '-', the version, ".logdata"; where a file of that version is there already,
    /// another name of that version that comes later in the order of names, so that a scan of the directory takes this
    /// one. Durable when it returns (the file's and the directory's data are flushed). A file that exists is never
    /// overwritten: kit::FileExistsError, one sentence, also where another program takes the chosen name meanwhile. On
    /// any other failure std::runtime_error; nothing is then left behind. Blocks for the disk.
    std::string Save(const std::string& path);

    /// 1.0 in a new log; what the file says, not its name, in one that was read. Save does not raise it.
    [[nodiscard]] const cmn::TAVOVersion& GetVersion() const { return version_; }
    /// To raise before Save, so that the file gets a number of its own.
    cmn::TAVOVersion& GetVersion() { return version_; }

    /// The show's name, first part of the file names that Save chooses.
    [[nodiscard]] const std::string& GetShowName() const { return showName_; }
    /// At most 4096 bytes of UTF-8, or Save refuses. In file names '_' stands for what cannot be in one.
    void SetShowName(std::string name) { showName_ = std::move(name); }
    /// The directory that Save("") writes to: that of the file read, or what is set here. Empty in a log that came from
    /// neither; Save("") then throws.
    [[nodiscard]] const std::string& GetDirectory() const { return directory_; }
    /// Not looked at before Save.
    void SetDirectory(std::string directory) { directory_ = std::move(directory); }

    /// Edits for songs that the show lacks are kept. A song of the show that is missing here cannot be played.
    [[nodiscard]] const SongLogs& GetSongLogs() const { return songLogs_; }
    /// To be changed; its operator[] adds a song without edits.
    SongLogs& GetSongLogs() { return songLogs_; }

    /// The log of a song; an unknown number throws std::out_of_range with a sentence that names it.
    [[nodiscard]] const SongLog& GetSongLog(const std::string& songNumber) const;
    /// The same, to be changed.
    SongLog& GetSongLog(const std::string& songNumber);

private:
    cmn::TAVOVersion version_{1, 0};
    std::string showName_ = "show";
    std::string directory_;
    SongLogs songLogs_;
};

}  // namespace CL
