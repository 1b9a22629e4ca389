#pragma once

#include <rapidcheck.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace properties {

/// One edit of a random song. Positions lie on a grid of half beats, moved by a tick or two now and then, so that edits
/// meet often; nothing keeps a range from being empty or backwards.
struct EditSpec {
    unsigned char code = 0;
    unsigned int start = 0;  ///< tick
    unsigned int end = 0;    ///< tick; unused by caesuras and markers
    int value = 0;           ///< passes, click length, semitones or version target
};

/// One random song with the edits of two versions of its change log.
struct SongSpec {
    unsigned int ticksPerQuarter = 480;
    std::vector<int> beatsOfBars;
    unsigned int startTick = 0;
    unsigned int endTick = 0;
    unsigned char attacca = 0;
    std::vector<EditSpec> versions[2];
};

using ShowSpec = std::vector<SongSpec>;

std::ostream& operator<<(std::ostream& out, const EditSpec& edit);
std::ostream& operator<<(std::ostream& out, const SongSpec& song);

/// Shows of two songs.
rc::Gen<ShowSpec> RandomShow();

/// "1", "2", ...
std::string SongNumber(std::size_t index);

tavo_midi::ShowData BuildShowData(const ShowSpec& show);
std::shared_ptr<CL::ChangeLog> BuildChangeLog(const ShowSpec& show, std::size_t version);

}  // namespace properties
