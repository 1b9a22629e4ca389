#include "tavo_core/edit_rules.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

constexpr unsigned int TicksPerBar = 1920;

/// Ten bars of 4/4 from tick 0.
TL::Timeline MakeTimeline() {
    TL::Timeline timeline(0, 10 * TicksPerBar);
    timeline.GetMeters().Append(TL::Meter(0, 4, 4));
    for (unsigned int beat = 0; beat < 40; ++beat)
        timeline.GetBarsBeats().Append(TL::BarsBeats(beat * 480, beat % 4 + 1, std::to_string(beat / 4 + 1)));
    return timeline;
}

template <class Edit>
std::string Check(const Edit& edit, const CL::SongLog& songLog = {}) {
    return CL::CheckEdit(edit, songLog, MakeTimeline());
}

TEST(EditRules, PlacesInTheSong_HaveExactEnds) {
    EXPECT_EQ("", Check(CL::Vamp(0, 10 * TicksPerBar)));
    EXPECT_NE("", Check(CL::Vamp(0, 10 * TicksPerBar + 1)));
    EXPECT_NE("", Check(CL::Vamp(TicksPerBar, TicksPerBar)));
    EXPECT_NE("", Check(CL::Vamp(2 * TicksPerBar, TicksPerBar)));
    EXPECT_EQ("", Check(CL::Vamp(TicksPerBar, TicksPerBar + 1)));
    EXPECT_EQ("", Check(CL::Osc(10 * TicksPerBar - 1, "", "/x")));
    EXPECT_NE("", Check(CL::Osc(10 * TicksPerBar, "", "/x")));
    EXPECT_NE("", Check(CL::Osc(4294967295U, "", "/x")));
}

TEST(EditRules, MarkersAndCaesuras_MayStandAtTheEnd) {
    EXPECT_EQ("", Check(CL::Marker(10 * TicksPerBar, "Fine")));
    EXPECT_EQ("", Check(CL::Caesura(10 * TicksPerBar, "", 0)));
    EXPECT_NE("", Check(CL::Marker(10 * TicksPerBar + 1, "Fine")));
}

TEST(EditRules, ASoundThatRingsOut_EndsWhereItStarts) {
    EXPECT_EQ("", Check(CL::Sfx(TicksPerBar, TicksPerBar, "a.wav")));
    EXPECT_NE("", Check(CL::SfxAmbient(TicksPerBar, TicksPerBar, "a.wav")));
    EXPECT_NE("", Check(CL::Sfx(10 * TicksPerBar, 10 * TicksPerBar, "a.wav")));
}

TEST(EditRules, ValuesHaveExactEnds) {
    const auto isAllowed = [](const auto& edit) { return Check(edit).empty(); };
    EXPECT_FALSE(isAllowed(CL::Vamp(0, TicksPerBar, -1)));
    EXPECT_TRUE(isAllowed(CL::Vamp(0, TicksPerBar, 0)));
    EXPECT_TRUE(isAllowed(CL::Vamp(0, TicksPerBar, 9999)));
    EXPECT_FALSE(isAllowed(CL::Vamp(0, TicksPerBar, 10000)));
    EXPECT_FALSE(isAllowed(CL::Repeat(0, TicksPerBar, 1)));
    EXPECT_TRUE(isAllowed(CL::Repeat(0, TicksPerBar, 2)));
    EXPECT_FALSE(isAllowed(CL::Repeat(0, TicksPerBar, 10000)));
    EXPECT_FALSE(isAllowed(CL::TempoScale(0, TicksPerBar, 0.499F)));
    EXPECT_TRUE(isAllowed(CL::TempoScale(0, TicksPerBar, 0.5F)));
    EXPECT_TRUE(isAllowed(CL::TempoScale(0, TicksPerBar, 2.0F)));
    EXPECT_FALSE(isAllowed(CL::TempoScale(0, TicksPerBar, 2.001F)));
    EXPECT_FALSE(isAllowed(CL::TempoScale(0, TicksPerBar, std::nanf(""))));
    EXPECT_FALSE(isAllowed(CL::Transposition(0, TicksPerBar, -25)));
    EXPECT_TRUE(isAllowed(CL::Transposition(0, TicksPerBar, -24)));
    EXPECT_TRUE(isAllowed(CL::Transposition(0, TicksPerBar, 24)));
    EXPECT_FALSE(isAllowed(CL::Transposition(0, TicksPerBar, 25)));
    EXPECT_TRUE(isAllowed(CL::Click(0, TicksPerBar, 4)));
    EXPECT_TRUE(isAllowed(CL::Click(0, TicksPerBar, 32)));
    EXPECT_FALSE(isAllowed(CL::Click(0, TicksPerBar, 12)));
    EXPECT_FALSE(isAllowed(CL::Click(0, TicksPerBar, 0)));
    EXPECT_FALSE(isAllowed(CL::Sfx(0, TicksPerBar, "a.wav", -60.1F)));
    EXPECT_TRUE(isAllowed(CL::Sfx(0, TicksPerBar, "a.wav", 12.0F)));
    EXPECT_FALSE(isAllowed(CL::Sfx(0, TicksPerBar, "a.wav", 12.1F)));
    EXPECT_TRUE(isAllowed(CL::Marker(0, std::string(4096, 'a'))));
    EXPECT_FALSE(isAllowed(CL::Marker(0, std::string(4097, 'a'))));
    EXPECT_FALSE(isAllowed(CL::Marker(0, "\xff")));
    EXPECT_FALSE(isAllowed(CL::Marker(0, "")));
}

TEST(EditRules, SoundsLieInTheShow) {
    EXPECT_EQ("", Check(CL::Sfx(0, TicksPerBar, "sounds/a..b.wav")));
    for (const std::string sound : {"", "/etc/a.wav", "../a.wav", "sounds/../../a.wav", "sounds/.."})
        EXPECT_NE("", Check(CL::Sfx(0, TicksPerBar, sound))) << sound;
}

TEST(EditRules, OscMessages_HaveAddressesAndFiniteArguments) {
    EXPECT_EQ("", Check(CL::Osc(0, "lights", "/cue/{1,2}*/go", {1, 0.5F, std::string("x")})));
    for (const std::string address : {"", "/", "go", "/a b", "/a#b"})
        EXPECT_NE("", Check(CL::Osc(0, "", address))) << address;
    EXPECT_NE("", Check(CL::Osc(0, "", "/x", {std::nanf("")})));
    EXPECT_NE("", Check(CL::Osc(0, "", "/x", {std::string("\xff")})));
}

/// Two edits of one kind, and whether they may stand beside each other.
template <class Edit>
bool MayMeet(unsigned int aStart, unsigned int aEnd, unsigned int bStart, unsigned int bEnd,
             const std::function<Edit(unsigned int, unsigned int)>& make) {
    CL::SongLog songLog;
    songLog.ForEachSequence([&](auto& sequence) {
        using Element = typename std::decay_t<decltype(sequence)>::value_type;
        if constexpr (std::is_same_v<Element, Edit>) sequence.Add(make(aStart, aEnd));
    });
    const bool oneWay = CL::CheckEdit(make(bStart, bEnd), songLog, MakeTimeline()).empty();
    // The whole log must say the same as the single edit.
    songLog.ForEachSequence([&](auto& sequence) {
        using Element = typename std::decay_t<decltype(sequence)>::value_type;
        if constexpr (std::is_same_v<Element, Edit>) sequence.Add(make(bStart, bEnd));
    });
    EXPECT_EQ(oneWay, CL::CheckSongLog(songLog, MakeTimeline()).empty());
    return oneWay;
}

template <class Edit>
void ExpectExcludesItself(const std::function<Edit(unsigned int, unsigned int)>& make) {
    EXPECT_TRUE(MayMeet<Edit>(TicksPerBar, 2 * TicksPerBar, 2 * TicksPerBar, 3 * TicksPerBar, make));
    EXPECT_TRUE(MayMeet<Edit>(TicksPerBar, 2 * TicksPerBar, 0, TicksPerBar, make));
    EXPECT_FALSE(MayMeet<Edit>(TicksPerBar, 2 * TicksPerBar, 2 * TicksPerBar - 1, 3 * TicksPerBar, make));
    EXPECT_FALSE(MayMeet<Edit>(TicksPerBar, 4 * TicksPerBar, 2 * TicksPerBar, 3 * TicksPerBar, make));
    EXPECT_FALSE(MayMeet<Edit>(TicksPerBar, 2 * TicksPerBar, TicksPerBar, 2 * TicksPerBar, make));
}

TEST(EditRules, EffectsWithOneValueAtAPlace_DoNotOverlap) {
    ExpectExcludesItself<CL::Cut>([](unsigned int a, unsigned int b) { return CL::Cut(a, b); });
    ExpectExcludesItself<CL::Fermata>([](unsigned int a, unsigned int b) { return CL::Fermata(a, b); });
    ExpectExcludesItself<CL::TempoScale>([](unsigned int a, unsigned int b) { return CL::TempoScale(a, b, 0.9F); });
    ExpectExcludesItself<CL::Transposition>([](unsigned int a, unsigned int b) { return CL::Transposition(a, b, 1); });
    ExpectExcludesItself<CL::Click>([](unsigned int a, unsigned int b) { return CL::Click(a, b, 4); });
}

TEST(EditRules, Loops_NestButDoNotCross) {
    const std::function<CL::Vamp(unsigned int, unsigned int)> make = [](unsigned int a, unsigned int b) {
        return CL::Vamp(a, b);
    };
    EXPECT_TRUE(MayMeet<CL::Vamp>(TicksPerBar, 2 * TicksPerBar, 2 * TicksPerBar, 3 * TicksPerBar, make))
        << "side by side";
    EXPECT_TRUE(MayMeet<CL::Vamp>(TicksPerBar, 4 * TicksPerBar, 2 * TicksPerBar, 3 * TicksPerBar, make)) << "inside";
    EXPECT_TRUE(MayMeet<CL::Vamp>(TicksPerBar, 4 * TicksPerBar, TicksPerBar, 3 * TicksPerBar, make))
        << "inside, one start";
    EXPECT_TRUE(MayMeet<CL::Vamp>(TicksPerBar, 4 * TicksPerBar, 2 * TicksPerBar, 4 * TicksPerBar, make))
        << "inside, one end";
    EXPECT_FALSE(MayMeet<CL::Vamp>(TicksPerBar, 3 * TicksPerBar, 2 * TicksPerBar, 4 * TicksPerBar, make)) << "crossing";
    EXPECT_FALSE(MayMeet<CL::Vamp>(2 * TicksPerBar, 4 * TicksPerBar, TicksPerBar, 3 * TicksPerBar, make))
        << "crossing the other way";
    EXPECT_FALSE(MayMeet<CL::Vamp>(TicksPerBar, 2 * TicksPerBar, TicksPerBar, 2 * TicksPerBar, make)) << "the same";
}

TEST(EditRules, AVampAndARepeat_DoNotCrossEither) {
    CL::SongLog songLog;
    songLog.GetVamps().Add(CL::Vamp(TicksPerBar, 3 * TicksPerBar));
    EXPECT_EQ("the repeat over bars 3 to 4 crosses the vamp over bars 2 to 3",
              Check(CL::Repeat(2 * TicksPerBar, 4 * TicksPerBar, 2), songLog));
    EXPECT_EQ("", Check(CL::Repeat(TicksPerBar, 3 * TicksPerBar, 2), songLog))
        << "a vamp and a repeat over the same bars";
    songLog.GetRepeats().Add(CL::Repeat(2 * TicksPerBar, 4 * TicksPerBar, 2));
    EXPECT_EQ(1U, CL::CheckSongLog(songLog, MakeTimeline()).size());
}

TEST(EditRules, ACutAndAFermata_DoNotCross) {
    struct Row {
        unsigned int from, to;
        bool isAllowed;
    };
    for (const Row& row : {Row{0, 2 * TicksPerBar, true}, Row{4 * TicksPerBar, 5 * TicksPerBar, true},
                           Row{TicksPerBar, 5 * TicksPerBar, true}, Row{2 * TicksPerBar, 3 * TicksPerBar, true},
                           Row{3 * TicksPerBar, 5 * TicksPerBar, false}, Row{TicksPerBar, 3 * TicksPerBar, false}}) {
        CL::SongLog songLog;
        songLog.GetFermatas().Add(CL::Fermata(2 * TicksPerBar, 4 * TicksPerBar));
        EXPECT_EQ(row.isAllowed, Check(CL::Cut(row.from, row.to), songLog).empty()) << row.from;
        songLog.GetCuts().Add(CL::Cut(row.from, row.to));
        EXPECT_EQ(row.isAllowed, CL::CheckSongLog(songLog, MakeTimeline()).empty()) << row.from;
        songLog.GetFermatas().RemoveAt(0);
        EXPECT_EQ(row.isAllowed, Check(CL::Fermata(2 * TicksPerBar, 4 * TicksPerBar), songLog).empty()) << row.from;
    }
}

TEST(EditRules, NothingIsThereTwice) {
    CL::SongLog songLog;
    songLog.GetCaesuras().Add(CL::Caesura(TicksPerBar, "a", 0));
    songLog.GetMarkers().Add(CL::Marker(TicksPerBar, "Verse"));
    songLog.GetSfxs().Add(CL::Sfx(TicksPerBar, TicksPerBar, "a.wav"));
    songLog.GetOscs().Add(CL::Osc(TicksPerBar, "lights", "/go", {1}));
    EXPECT_EQ("the caesura at 2 is there already", Check(CL::Caesura(TicksPerBar, "b", 1), songLog));
    EXPECT_EQ("the marker at 2 is there already", Check(CL::Marker(TicksPerBar, "Verse"), songLog));
    EXPECT_EQ("", Check(CL::Marker(TicksPerBar, "Chorus"), songLog));
    EXPECT_EQ("the sfx over bar 2 is there already",
              Check(CL::Sfx(TicksPerBar, 2 * TicksPerBar, "a.wav", -3), songLog));
    EXPECT_EQ("", Check(CL::SfxAmbient(TicksPerBar, 2 * TicksPerBar, "a.wav"), songLog));
    EXPECT_EQ("the OSC at 2 is there already", Check(CL::Osc(TicksPerBar, "lights", "/go", {1}), songLog));
    EXPECT_EQ("", Check(CL::Osc(TicksPerBar, "lights", "/go", {2}), songLog));
}

TEST(EditRules, AnEditOfTheLog_IsNotComparedWithItself) {
    CL::SongLog songLog;
    const CL::Cut& cut = songLog.GetCuts().Add(CL::Cut(TicksPerBar, 2 * TicksPerBar));
    EXPECT_EQ("", CL::CheckEdit(cut, songLog, MakeTimeline()));
    EXPECT_TRUE(CL::CheckSongLog(songLog, MakeTimeline()).empty());
}

TEST(EditRules, AWholeLog_NamesEveryProblem) {
    CL::SongLog songLog;
    songLog.GetCuts().Add(CL::Cut(2 * TicksPerBar, TicksPerBar));
    songLog.GetTempoScales().Add(CL::TempoScale(0, TicksPerBar, 3));
    songLog.GetMarkers().Add(CL::Marker(11 * TicksPerBar, "late"));
    EXPECT_EQ((std::vector<std::string>{
                  "the cut's end, 2, does not lie after its start, 3",
                  "a tempo scale of 300% is not from 50% to 200%",
                  "the marker at tick 21120 lies outside the song, whose ticks are 0 to 19200",
              }),
              CL::CheckSongLog(songLog, MakeTimeline()));
}

TEST(EditRules, AHugeLog_IsCheckedInOnePass) {
    CL::SongLog songLog;
    constexpr unsigned int Count = 30000;
    const TL::Timeline timeline(0, 2 * Count);
    for (unsigned int i = 0; i < Count; ++i) {
        songLog.GetVamps().Add(CL::Vamp(i, 2 * Count - i));
        songLog.GetMarkers().Add(CL::Marker(i, "m"));
    }
    EXPECT_TRUE(CL::CheckSongLog(songLog, timeline).empty());
}

}  // namespace
