#include "tavo_core/edit_rules.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

constexpr unsigned int Bar = 1920;

/// Ten bars of 4/4 from tick 0.
TL::Timeline MakeTimeline() {
    TL::Timeline timeline(0, 10 * Bar);
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
    EXPECT_EQ("", Check(CL::Vamp(0, 10 * Bar)));
    EXPECT_NE("", Check(CL::Vamp(0, 10 * Bar + 1)));
    EXPECT_NE("", Check(CL::Vamp(Bar, Bar)));
    EXPECT_NE("", Check(CL::Vamp(2 * Bar, Bar)));
    EXPECT_EQ("", Check(CL::Vamp(Bar, Bar + 1)));
    EXPECT_EQ("", Check(CL::Osc(10 * Bar - 1, "", "/x")));
    EXPECT_NE("", Check(CL::Osc(10 * Bar, "", "/x")));
    EXPECT_NE("", Check(CL::Osc(4294967295U, "", "/x")));
}

TEST(EditRules, MarkersAndCaesuras_MayStandAtTheEnd) {
    EXPECT_EQ("", Check(CL::Marker(10 * Bar, "Fine")));
    EXPECT_EQ("", Check(CL::Caesura(10 * Bar, "", 0)));
    EXPECT_NE("", Check(CL::Marker(10 * Bar + 1, "Fine")));
}

TEST(EditRules, ASoundThatRingsOut_EndsWhereItStarts) {
    EXPECT_EQ("", Check(CL::Sfx(Bar, Bar, "a.wav")));
    EXPECT_NE("", Check(CL::SfxAmbient(Bar, Bar, "a.wav")));
    EXPECT_NE("", Check(CL::Sfx(10 * Bar, 10 * Bar, "a.wav")));
}

TEST(EditRules, ValuesHaveExactEnds) {
    const auto isAllowed = [](const auto& edit) { return Check(edit).empty(); };
    EXPECT_FALSE(isAllowed(CL::Vamp(0, Bar, -1)));
    EXPECT_TRUE(isAllowed(CL::Vamp(0, Bar, 0)));
    EXPECT_TRUE(isAllowed(CL::Vamp(0, Bar, 9999)));
    EXPECT_FALSE(isAllowed(CL::Vamp(0, Bar, 10000)));
    EXPECT_FALSE(isAllowed(CL::Repeat(0, Bar, 1)));
    EXPECT_TRUE(isAllowed(CL::Repeat(0, Bar, 2)));
    EXPECT_FALSE(isAllowed(CL::Repeat(0, Bar, 10000)));
    EXPECT_FALSE(isAllowed(CL::TempoScale(0, Bar, 0.499F)));
    EXPECT_TRUE(isAllowed(CL::TempoScale(0, Bar, 0.5F)));
    EXPECT_TRUE(isAllowed(CL::TempoScale(0, Bar, 2.0F)));
    EXPECT_FALSE(isAllowed(CL::TempoScale(0, Bar, 2.001F)));
    EXPECT_FALSE(isAllowed(CL::TempoScale(0, Bar, std::nanf(""))));
    EXPECT_FALSE(isAllowed(CL::Transposition(0, Bar, -25)));
    EXPECT_TRUE(isAllowed(CL::Transposition(0, Bar, -24)));
    EXPECT_TRUE(isAllowed(CL::Transposition(0, Bar, 24)));
    EXPECT_FALSE(isAllowed(CL::Transposition(0, Bar, 25)));
    EXPECT_TRUE(isAllowed(CL::Click(0, Bar, 4)));
    EXPECT_TRUE(isAllowed(CL::Click(0, Bar, 32)));
    EXPECT_FALSE(isAllowed(CL::Click(0, Bar, 12)));
    EXPECT_FALSE(isAllowed(CL::Click(0, Bar, 0)));
    EXPECT_FALSE(isAllowed(CL::Sfx(0, Bar, "a.wav", -60.1F)));
    EXPECT_TRUE(isAllowed(CL::Sfx(0, Bar, "a.wav", 12.0F)));
    EXPECT_FALSE(isAllowed(CL::Sfx(0, Bar, "a.wav", 12.1F)));
    EXPECT_TRUE(isAllowed(CL::Marker(0, std::string(4096, 'a'))));
    EXPECT_FALSE(isAllowed(CL::Marker(0, std::string(4097, 'a'))));
    EXPECT_FALSE(isAllowed(CL::Marker(0, "\xff")));
    EXPECT_FALSE(isAllowed(CL::Marker(0, "")));
}

TEST(EditRules, SoundsLieInTheShow) {
    EXPECT_EQ("", Check(CL::Sfx(0, Bar, "sounds/a..b.wav")));
    for (const std::string sound : {"", "/etc/a.wav", "../a.wav", "sounds/../../a.wav", "sounds/.."})
        EXPECT_NE("", Check(CL::Sfx(0, Bar, sound))) << sound;
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
    EXPECT_TRUE(MayMeet<Edit>(Bar, 2 * Bar, 2 * Bar, 3 * Bar, make));
    EXPECT_TRUE(MayMeet<Edit>(Bar, 2 * Bar, 0, Bar, make));
    EXPECT_FALSE(MayMeet<Edit>(Bar, 2 * Bar, 2 * Bar - 1, 3 * Bar, make));
    EXPECT_FALSE(MayMeet<Edit>(Bar, 4 * Bar, 2 * Bar, 3 * Bar, make));
    EXPECT_FALSE(MayMeet<Edit>(Bar, 2 * Bar, Bar, 2 * Bar, make));
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
    EXPECT_TRUE(MayMeet<CL::Vamp>(Bar, 2 * Bar, 2 * Bar, 3 * Bar, make)) << "side by side";
    EXPECT_TRUE(MayMeet<CL::Vamp>(Bar, 4 * Bar, 2 * Bar, 3 * Bar, make)) << "inside";
    EXPECT_TRUE(MayMeet<CL::Vamp>(Bar, 4 * Bar, Bar, 3 * Bar, make)) << "inside, one start";
    EXPECT_TRUE(MayMeet<CL::Vamp>(Bar, 4 * Bar, 2 * Bar, 4 * Bar, make)) << "inside, one end";
    EXPECT_FALSE(MayMeet<CL::Vamp>(Bar, 3 * Bar, 2 * Bar, 4 * Bar, make)) << "crossing";
    EXPECT_FALSE(MayMeet<CL::Vamp>(2 * Bar, 4 * Bar, Bar, 3 * Bar, make)) << "crossing the other way";
    EXPECT_FALSE(MayMeet<CL::Vamp>(Bar, 2 * Bar, Bar, 2 * Bar, make)) << "the same";
}

TEST(EditRules, AVampAndARepeat_DoNotCrossEither) {
    CL::SongLog songLog;
    songLog.GetVamps().Add(CL::Vamp(Bar, 3 * Bar));
    EXPECT_EQ("the repeat over bars 3 to 4 crosses the vamp over bars 2 to 3",
              Check(CL::Repeat(2 * Bar, 4 * Bar, 2), songLog));
    EXPECT_EQ("", Check(CL::Repeat(Bar, 3 * Bar, 2), songLog)) << "a vamp and a repeat over the same bars";
    songLog.GetRepeats().Add(CL::Repeat(2 * Bar, 4 * Bar, 2));
    EXPECT_EQ(1U, CL::CheckSongLog(songLog, MakeTimeline()).size());
}

TEST(EditRules, ACutAndAFermata_DoNotCross) {
    struct Row {
        unsigned int from, to;
        bool isAllowed;
    };
    for (const Row& row : {Row{0, 2 * Bar, true}, Row{4 * Bar, 5 * Bar, true}, Row{Bar, 5 * Bar, true},
                           Row{2 * Bar, 3 * Bar, true}, Row{3 * Bar, 5 * Bar, false}, Row{Bar, 3 * Bar, false}}) {
        CL::SongLog songLog;
        songLog.GetFermatas().Add(CL::Fermata(2 * Bar, 4 * Bar));
        EXPECT_EQ(row.isAllowed, Check(CL::Cut(row.from, row.to), songLog).empty()) << row.from;
        songLog.GetCuts().Add(CL::Cut(row.from, row.to));
        EXPECT_EQ(row.isAllowed, CL::CheckSongLog(songLog, MakeTimeline()).empty()) << row.from;
        songLog.GetFermatas().RemoveAt(0);
        EXPECT_EQ(row.isAllowed, Check(CL::Fermata(2 * Bar, 4 * Bar), songLog).empty()) << row.from;
    }
}

TEST(EditRules, NothingIsThereTwice) {
    CL::SongLog songLog;
    songLog.GetCaesuras().Add(CL::Caesura(Bar, "a", 0));
    songLog.GetMarkers().Add(CL::Marker(Bar, "Verse"));
    songLog.GetSfxs().Add(CL::Sfx(Bar, Bar, "a.wav"));
    songLog.GetOscs().Add(CL::Osc(Bar, "lights", "/go", {1}));
    EXPECT_EQ("the caesura at 2 is there already", Check(CL::Caesura(Bar, "b", 1), songLog));
    EXPECT_EQ("the marker at 2 is there already", Check(CL::Marker(Bar, "Verse"), songLog));
    EXPECT_EQ("", Check(CL::Marker(Bar, "Chorus"), songLog));
    EXPECT_EQ("the sfx over bar 2 is there already", Check(CL::Sfx(Bar, 2 * Bar, "a.wav", -3), songLog));
    EXPECT_EQ("", Check(CL::SfxAmbient(Bar, 2 * Bar, "a.wav"), songLog));
    EXPECT_EQ("the OSC at 2 is there already", Check(CL::Osc(Bar, "lights", "/go", {1}), songLog));
    EXPECT_EQ("", Check(CL::Osc(Bar, "lights", "/go", {2}), songLog));
}

TEST(EditRules, AnEditOfTheLog_IsNotComparedWithItself) {
    CL::SongLog songLog;
    const CL::Cut& cut = songLog.GetCuts().Add(CL::Cut(Bar, 2 * Bar));
    EXPECT_EQ("", CL::CheckEdit(cut, songLog, MakeTimeline()));
    EXPECT_TRUE(CL::CheckSongLog(songLog, MakeTimeline()).empty());
}

TEST(EditRules, AWholeLog_NamesEveryProblem) {
    CL::SongLog songLog;
    songLog.GetCuts().Add(CL::Cut(2 * Bar, Bar));
    songLog.GetTempoScales().Add(CL::TempoScale(0, Bar, 3));
    songLog.GetMarkers().Add(CL::Marker(11 * Bar, "late"));
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
