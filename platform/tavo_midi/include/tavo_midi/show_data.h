#pragma once

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "tavo_core/show_timelines.h"
#include "tavo_midi/song_data.h"

namespace tavo_midi {

/// The music of a show: its songs in show order. The file form is `.showdata`: a ZIP archive that holds `show.json`
/// (RFC 8259) and one Standard MIDI File (RP-001) a song. A value; reading is thread-safe while nobody writes.
class ShowData final : public TL::ShowTimelines {
public:
    ShowData() = default;
    /// Reads a `.showdata` file. Throws std::runtime_error with one sentence that names the file, the member and what
    /// is wrong with it. Blocks while it reads.
    explicit ShowData(const std::string& path);

    /// UTF-8; empty for a show without one.
    [[nodiscard]] const std::string& GetTitle() const { return title_; }
    /// Taken as it stands.
    void SetTitle(std::string title) { title_ = std::move(title); }

    /// The songs in show order. A song keeps its address while others are added after it.
    [[nodiscard]] const std::deque<SongData>& GetSongs() const { return songs_; }
    /// Appends; a number that is there already throws std::invalid_argument.
    SongData& AddSong(SongData song);

    /// An unknown number throws std::out_of_range with a sentence that names it.
    /// The reference is good as long as the show.
    [[nodiscard]] const SongData& GetSongData(const std::string& number) const;
    /// The same for whoever changes the song.
    SongData& GetSongData(const std::string& number);

    /// In show order.
    [[nodiscard]] std::vector<std::string> GetSongNumbers() const override;
    /// Throws as GetSongData does.
    [[nodiscard]] const TL::Timeline& GetTimelineOf(const std::string& songNumber) const override;

    /// What was wrong with the songs' files and could be read all the same, a sentence each.
    [[nodiscard]] const std::vector<std::string>& GetWarnings() const { return warnings_; }
    /// One sentence that names file and place.
    void AddWarning(std::string sentence) { warnings_.push_back(std::move(sentence)); }

private:
    std::string title_;
    std::deque<SongData> songs_;
    std::vector<std::string> warnings_;
};

}  // namespace tavo_midi
