#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "stage/import/musicxml/played_order.h"
#include "stage/import/musicxml/written_score.h"
#include "tavo_core/change_log_events.h"
#include "tavo_core/timeline.h"
#include "tavo_midi/song_builder.h"

namespace stage::musicxml {

/// Resolution of the MIDI form of a score.
inline constexpr std::uint16_t ScoreTicksPerQuarter = 480;

/// Where everything of a played score lies in ticks: each place is rounded from its exact distance to the beginning, so
/// that no error adds up.
class SongGrid {
public:
    /// Throws std::runtime_error with one sentence if the music is too long for a song.
    SongGrid(const WrittenScore& score, const PlayedOrder& order);

    /// Of the played bar with this index; one more than there are bars is the end.
    [[nodiscard]] Units GetBarStart(std::size_t played) const { return starts_[played]; }
    [[nodiscard]] std::uint32_t GetBarTick(std::size_t played) const { return ToTick(starts_[played]); }
    [[nodiscard]] std::uint32_t GetEndTick() const { return ToTick(starts_.back()); }
    /// Of a place counted from the beginning; a place after the end is the end.
    [[nodiscard]] std::uint32_t ToTick(Units position) const;

private:
    Units unitsPerQuarter_;
    std::vector<Units> starts_;
};

/// What a played score says about time and place.
struct SongLayout {
    std::vector<tavo_midi::SongTempo> tempos;
    std::vector<TL::Meter> meters;
    std::vector<TL::Key> keys;
    /// Rehearsal marks, and words that say how the show goes on; from the second time on with the time, "A (2)".
    std::vector<CL::Marker> markers;
    /// Where another page begins, numbered as the score prints them, else from 1.
    std::vector<TL::PageNum> pages;
    bool printsPageNumbers = false;
    /// Where they are not what counting gives. "12" is "12 (2)" when it is played for the second time.
    std::vector<tavo_midi::BarLabel> labels;
    std::vector<std::string> notes;
};

/// Lays the song out. After a jump meter, key, tempo and page are those that are written there. A bar whose length is
/// not that of its meter gets a meter of its own; one whose length no meter says ends early, with a note.
[[nodiscard]] SongLayout LayOutSong(const WrittenScore& score, const PlayedOrder& order, const SongGrid& grid);

/// What each written bar is called: a bar without a label is the pick-up, the next part of a split bar ("12b"), or
/// counted.
[[nodiscard]] std::vector<std::string> LabelBars(const std::vector<WrittenBar>& bars);

/// Whether one of the words of `text` is `word`, in capitals or not.
[[nodiscard]] bool HoldsWord(const std::string& text, const std::string& word);

}  // namespace stage::musicxml
