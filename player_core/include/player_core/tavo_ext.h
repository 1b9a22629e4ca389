#pragma once

#include <stdexcept>
#include <string>

#include "tavo_core/change_log.h"
#include "tavo_core/song_log.h"
#include "tavo_core/timeline.h"

/// Steps through a show and through a song. Pure functions of what they are given: they take no lock, the caller holds
/// the guard that the data needs.
namespace tavo_ext {

/// No song follows.
class EndOfShow : public std::out_of_range {
public:
    /// `message` becomes what(), word for word.
    explicit EndOfShow(const std::string& message) : std::out_of_range(message) {}
};

/// No song comes before.
class StartOfShow : public std::out_of_range {
public:
    /// `message` becomes what(), word for word.
    explicit StartOfShow(const std::string& message) : std::out_of_range(message) {}
};

/// No marker follows. Not a logic error, unlike the two ends of the show.
class NoNextMarker : public std::runtime_error {
public:
    /// `message` becomes what(), word for word.
    explicit NoNextMarker(const std::string& message) : std::runtime_error(message) {}
};

/// The next song in show order that is not passed over (attacca 2); throws EndOfShow. `songNumber` need not exist.
[[nodiscard]] std::string get_song_after(const CL::ChangeLog& changeLog, const std::string& songNumber);
/// The same backwards; throws StartOfShow.
[[nodiscard]] std::string get_song_before(const CL::ChangeLog& changeLog, const std::string& songNumber);

/// The first marker after `tickIndex`; throws NoNextMarker.
[[nodiscard]] unsigned int get_next_marker_time(unsigned int tickIndex, const CL::SongLog& songLog);
/// The last marker before `tickIndex`; 0, the song's start, where there is none. Never throws.
[[nodiscard]] unsigned int get_previous_marker_time(unsigned int tickIndex, const CL::SongLog& songLog);

/// A timeline with copies of the source's five sequences; title, start and end are not carried over.
[[nodiscard]] TL::Timeline copy_timeline(const TL::Timeline& timeline);

}  // namespace tavo_ext
