#include "tavo_core/sequence.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tavo_core/song_log.h"
#include "tavo_core/timeline.h"

namespace {

std::string Texts(const CL::ChangeLogSequence<CL::Marker>& markers) {
    std::string texts;
    for (const CL::Marker& marker : markers)
        texts += marker.value();
    return texts;
}

}  // namespace

TEST(ChangeLogSequence, Added_StandsInOrderOfTicksAndEqualTicksInOrderOfAdding) {
    CL::ChangeLogSequence<CL::Marker> markers;
    markers.Add(CL::Marker(20, "c"));
    markers.Add(CL::Marker(10, "a"));
    EXPECT_EQ("b", markers.Add(CL::Marker(10, "b")).value());
    markers.Add(CL::Marker(20, "d"));
    markers.Add(CL::Marker(0xFFFFFFFFU, "e"));
    EXPECT_EQ("abcde", Texts(markers));
    markers.RemoveAt(1);
    EXPECT_EQ("acde", Texts(markers));
}

TEST(ChangeLogSequence, Element_KeepsItsAddressThroughAddingRemovingAndMoving) {
    CL::ChangeLogSequence<CL::Marker> markers;
    const CL::Marker* kept = &markers.Add(CL::Marker(500, "kept"));
    for (unsigned int tick = 0; tick < 1000; ++tick)
        markers.Add(CL::Marker(tick, ""));
    while (markers.size() > 501)
        markers.RemoveAt(0);
    CL::ChangeLogSequence<CL::Marker> moved(std::move(markers));
    CL::SongLog songLog;
    songLog.GetMarkers() = std::move(moved);
    const CL::SongLog movedLog(std::move(songLog));
    bool found = false;
    for (const CL::Marker& marker : movedLog.GetMarkers())
        found = found || &marker == kept;
    EXPECT_TRUE(found);
    EXPECT_EQ("kept", kept->value());
}

TEST(ChangeLogSequence, Copy_HasElementsOfItsOwn) {
    CL::ChangeLogSequence<CL::Marker> markers;
    markers.Add(CL::Marker(1, "x"));
    CL::ChangeLogSequence<CL::Marker> copy(markers);
    EXPECT_NE(&markers[0], &copy[0]);
    copy[0] = CL::Marker(1, "y");
    EXPECT_EQ("x", Texts(markers));
    const auto& self = copy;
    copy = self;
    EXPECT_EQ("y", Texts(copy));
}

TEST(ChangeLogSequence, Iterators_SearchAsAlgorithmsExpect) {
    CL::ChangeLogSequence<CL::Marker> markers;
    for (const unsigned int tick : {10U, 20U, 30U})
        markers.Add(CL::Marker(tick, ""));
    const auto& constMarkers = markers;
    const auto found = std::upper_bound(constMarkers.begin(), constMarkers.end(), 20U,
                                        [](unsigned int tick, const CL::Marker& m) { return tick < m.abs_time(); });
    EXPECT_EQ(2, found - constMarkers.begin());
    EXPECT_EQ(30U, found->abs_time());
    EXPECT_EQ(20U, constMarkers.begin()[1].abs_time());
    EXPECT_EQ(30U, std::prev(markers.end())->abs_time());
}

TEST(SongLog, ForEachSequence_VisitsAllKindsInPanelOrder) {
    CL::SongLog songLog;
    songLog.GetMarkers().Add(CL::Marker(0, ""));
    songLog.GetOscs().Add(CL::Osc(0, "", "/a"));
    songLog.GetSfxAmbients().Add(CL::SfxAmbient(0, 1, ""));
    songLog.GetSfxs().Add(CL::Sfx(0, 1, ""));
    songLog.GetFermatas().Add(CL::Fermata(0, 1));
    songLog.GetCaesuras().Add(CL::Caesura(0, "", 0));
    songLog.GetClicks().Add(CL::Click(0, 1, 8));
    songLog.GetTempoScales().Add(CL::TempoScale(0, 1, 1));
    songLog.GetTranspositions().Add(CL::Transposition(0, 1, 1));
    songLog.GetCuts().Add(CL::Cut(0, 1));
    songLog.GetRepeats().Add(CL::Repeat(0, 1, 2));
    songLog.GetVamps().Add(CL::Vamp(0, 1));
    std::string codesInOrder;
    songLog.ForEachSequence([&](const auto& sequence) { codesInOrder += static_cast<char>(sequence[0].code()); });
    EXPECT_EQ("@ABCDENMOPQF", codesInOrder);
}

TEST(TimelineSequence, InForce_IsTheLastEntryNotAfterTheTick) {
    const TL::TimelineSequence<TL::Tempo> tempos{TL::Tempo(10, 1), TL::Tempo(20, 2), TL::Tempo(20, 3),
                                                 TL::Tempo(30, 4)};
    EXPECT_EQ(nullptr, tempos.FindInForceAt(9));
    EXPECT_EQ(1U, tempos.FindInForceAt(10)->microseconds_per_quarter());
    EXPECT_EQ(1U, tempos.FindInForceAt(19)->microseconds_per_quarter());
    EXPECT_EQ(3U, tempos.FindInForceAt(20)->microseconds_per_quarter());
    EXPECT_EQ(4U, tempos.FindInForceAt(0xFFFFFFFFU)->microseconds_per_quarter());
    EXPECT_EQ(nullptr, TL::TimelineSequence<TL::Tempo>().FindInForceAt(0));
}
