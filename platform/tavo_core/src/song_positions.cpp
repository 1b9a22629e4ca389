#include "song_positions.h"

#include <limits>
#include <stdexcept>

namespace CL {

TL::BarPositions PositionsOf(const std::string& songNumber, const TL::ShowTimelines& timelines) {
    try {
        return TL::BarPositions(timelines.GetTimelineOf(songNumber));
    } catch (const std::out_of_range&) {
        return TL::BarPositions(TL::Timeline(0, std::numeric_limits<unsigned int>::max()));
    }
}

}  // namespace CL
