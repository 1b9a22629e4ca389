#pragma once

#include <string>
#include <vector>

#include "stage/picture/flow_picture.h"
#include "stage/picture/flow_picture_layout.h"

/// What a picture shows, gathered from the song and its edits; only flow_picture*.cpp and their tests use it.
namespace stage::flow {

/// Something that stands at a tick, or covers the ticks up to `endTick`, inside the song.
struct Item {
    unsigned int startTick = 0;
    unsigned int endTick = 0;
    Ink ink = Ink::Text;
    std::string label;

    [[nodiscard]] bool IsPoint() const { return endTick <= startTick; }
};

struct Sheet {
    unsigned int startTick = 0;
    unsigned int endTick = 0;
    unsigned int ticksPerQuarter = 480;
    std::vector<TL::BarPositions::Bar> bars;
    std::vector<TL::Meter> meters;
    /// As the performers hear them, click edits applied.
    std::vector<unsigned int> beatTicks;
    std::vector<TempoStep> tempos;
    std::vector<bool> isTempoTold;
    /// Of what is heard and what is written.
    double lowestTempo = 0;
    double highestTempo = 0;

    /// Pages, keys and markers.
    std::vector<Item> signposts;
    std::vector<Item> loops;
    /// Cuts, fermatas and caesuras.
    std::vector<Item> holds;
    /// The beats that count down to caesuras, labelled with what is left.
    std::vector<Item> countdown;
    /// Tempo scales, transpositions, clicks, ambiences, sounds and cues: a group a kind.
    std::vector<std::vector<Item>> groups;

    [[nodiscard]] bool Has(Ink ink) const;
};

[[nodiscard]] Sheet MakeSheet(const tavo_midi::SongData& song, const CL::SongLog& edits);

/// The unit that tempos are given in at a place: the click of the meter where it is a plain note, else a quarter note.
struct TempoUnit {
    Sign::Kind note = Sign::Kind::Note;
    double quarters = 1;
};
[[nodiscard]] TempoUnit FindTempoUnit(const std::vector<TL::Meter>& meters, unsigned int tick);

}  // namespace stage::flow
