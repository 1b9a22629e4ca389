#include "stage/picture/song_picture.h"

#include <fmt/format.h>

#include <algorithm>

#include "stage/show/song_json.h"
#include "stage/show/song_length.h"

namespace stage {

flow::Drawing DrawSong(const tavo_midi::ShowData& show, const CL::ChangeLog& log, const tavo_midi::SongData& song) {
    std::string nextSong;
    const auto& songs = show.GetSongs();
    const auto next = std::ranges::find(songs, song.GetSongNumber(), &tavo_midi::SongData::GetSongNumber) + 1;
    if (next < songs.end()) nextSong = next->GetSongNumber() + (next->GetTitle().empty() ? "" : " " + next->GetTitle());
    const flow::Subject subject{song,
                                FindSongLog(log, song.GetSongNumber()),
                                show.GetTitle(),
                                log.GetVersion().GetAsString(),
                                DescribeLength(GetWrittenSeconds(song)),
                                nextSong};
    return flow::Draw(subject);
}

std::string MakeSongPicture(const tavo_midi::ShowData& show, const CL::ChangeLog& log,
                            const tavo_midi::SongData& song) {
    return flow::AsSvg(DrawSong(show, log, song),
                       fmt::format("{}: {} {}", show.GetTitle(), song.GetSongNumber(), song.GetTitle()));
}

}  // namespace stage
