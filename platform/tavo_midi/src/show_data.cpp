#include "tavo_midi/show_data.h"
#include "kit/words.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace tavo_midi {

namespace {

template <class Songs>
auto FindSong(Songs& songs, const std::string& number) {
    return std::find_if(songs.begin(), songs.end(),
                        [&](const SongData& song) { return song.GetSongNumber() == number; });
}

template <class Songs>
auto& GetSong(Songs& songs, const std::string& number) {
    const auto song = FindSong(songs, number);
    if (song == songs.end()) throw std::out_of_range("the show has no song " + kit::Quote(number));
    return *song;
}

}  // namespace

SongData& ShowData::AddSong(SongData song) {
    if (FindSong(songs_, song.GetSongNumber()) != songs_.end())
        throw std::invalid_argument("the show has a song \"" + song.GetSongNumber() + "\" already");
    return songs_.emplace_back(std::move(song));
}

const SongData& ShowData::GetSongData(const std::string& number) const {
    return GetSong(songs_, number);
}

SongData& ShowData::GetSongData(const std::string& number) {
    return GetSong(songs_, number);
}

std::vector<std::string> ShowData::GetSongNumbers() const {
    std::vector<std::string> numbers;
    for (const SongData& song : songs_)
        numbers.push_back(song.GetSongNumber());
    return numbers;
}

const TL::Timeline& ShowData::GetTimelineOf(const std::string& songNumber) const {
    return GetSongData(songNumber).GetTimeline();
}

}  // namespace tavo_midi
