#include "player_core/tavo_ext.h"

#include <algorithm>
#include <iterator>

namespace tavo_ext {
namespace {

bool IsPassedOver(const CL::SongLog& songLog) {
    return songLog.GetAttacca() == CL::AttaccaSkip;
}

}  // namespace

std::string get_song_after(const CL::ChangeLog& changeLog, const std::string& songNumber) {
    const auto& songLogs = changeLog.GetSongLogs();
    const auto next = std::find_if_not(songLogs.upper_bound(songNumber), songLogs.end(),
                                       [](const auto& song) { return IsPassedOver(song.second); });
    if (next == songLogs.end()) throw EndOfShow("no next song");
    return next->first;
}

std::string get_song_before(const CL::ChangeLog& changeLog, const std::string& songNumber) {
    const auto& songLogs = changeLog.GetSongLogs();
    const auto previous = std::find_if_not(std::make_reverse_iterator(songLogs.lower_bound(songNumber)),
                                           songLogs.rend(), [](const auto& song) { return IsPassedOver(song.second); });
    if (previous == songLogs.rend()) throw StartOfShow("no previous song");
    return previous->first;
}

unsigned int get_next_marker_time(unsigned int tickIndex, const CL::SongLog& songLog) {
    const auto& markers = songLog.GetMarkers();
    if (markers.empty()) throw NoNextMarker("no markers");
    const auto next =
        std::upper_bound(markers.begin(), markers.end(), tickIndex,
                         [](unsigned int tick, const CL::Marker& marker) { return tick < marker.abs_time(); });
    if (next == markers.end()) throw NoNextMarker("no next marker found");
    return next->abs_time();
}

unsigned int get_previous_marker_time(unsigned int tickIndex, const CL::SongLog& songLog) {
    const auto& markers = songLog.GetMarkers();
    const auto firstNotBefore =
        std::lower_bound(markers.begin(), markers.end(), tickIndex,
                         [](const CL::Marker& marker, unsigned int tick) { return marker.abs_time() < tick; });
    // Unlike the next marker, a missing previous one is not an error: the song's start stands for it, so that a step to
    // the left always leads somewhere.
    if (firstNotBefore == markers.begin()) return 0;
    return std::prev(firstNotBefore)->abs_time();
}

TL::Timeline copy_timeline(const TL::Timeline& timeline) {
    TL::Timeline copy;
    copy.GetTempos() = timeline.GetTempos();
    copy.GetBarsBeats() = timeline.GetBarsBeats();
    copy.GetKeys() = timeline.GetKeys();
    copy.GetPageNums() = timeline.GetPageNums();
    copy.GetMeters() = timeline.GetMeters();
    return copy;
}

}  // namespace tavo_ext
