#include <gtest/gtest.h>

#include "tavo_core/event_codes.h"
#include "tests/properties/flow_rig.h"

// Songs that would go round for ever if an edit without length had more than one turn. The rig ends them by itself and
// throws when that takes too long.
namespace {

using properties::EditSpec;
using properties::FlowRig;
using properties::ShowSpec;
using properties::SongSpec;

// Eight bars in 4/4, 480 ticks a quarter.
void PlayToTheEnd(std::vector<EditSpec> edits) {
    SongSpec song;
    song.beatsOfBars.assign(8, 4);
    song.endTick = 8 * 1920;
    song.versions[0] = std::move(edits);
    const ShowSpec show{song, song};
    EXPECT_NO_THROW(FlowRig(show).PlayToTheEnd());
}

constexpr unsigned char Vamp = codes::Vamp;
constexpr unsigned char Cut = codes::Cut;
constexpr unsigned char Fermata = codes::Fermata;
constexpr unsigned char Caesura = codes::Caesura;

TEST(EndlessSong, FermataOfNoLengthInAVampWithAMaximum_Ends) {
    PlayToTheEnd({{{Vamp, 960, 3840, 1}, {Fermata, 1920, 1920, 0}}});
}

TEST(EndlessSong, FermataSkippedByACutInsideAVampAndACutBackwards_Ends) {
    PlayToTheEnd({{Vamp, 960, 7680, 1}, {Fermata, 1920, 2400, 0}, {Cut, 2000, 2880, 0}, {Cut, 3840, 1440, 0}});
}

TEST(EndlessSong, FermataSkippedByACutBeforeARepeatAndAVampWithAMaximum_TheOperatorSeeksOut) {
    PlayToTheEnd({{Vamp, 6960, 7200, 1}, {Cut, 2400, 2880, 0}, {codes::Repeat, 2400, 6960, 2}, {Fermata, 0, 2640, 0}});
}

TEST(EndlessSong, CaesuraInFrontOfACutBackwards_Ends) {
    PlayToTheEnd({{{Caesura, 5760, 0, 0}, {Cut, 7680, 1920, 0}}});
}

TEST(EndlessSong, CaesuraOnTheSecondBeat_IsPassedAfterItsStop) {
    PlayToTheEnd({{{Caesura, 480, 0, 0}}});
}

TEST(EndlessSong, CaesuraBetweenTheFirstTwoBeats_IsMetTooLateAndHoldsNothing) {
    PlayToTheEnd({{{Caesura, 1, 0, 0}}});
}

TEST(EndlessSong, LoopsAndCutsOfNoLength_HaveOneTurn) {
    PlayToTheEnd({{Vamp, 960, 960, 0}, {Vamp, 3840, 1920, 0}, {Cut, 2880, 2880, 0}, {Cut, 5760, 0, 0}});
}

}  // namespace
