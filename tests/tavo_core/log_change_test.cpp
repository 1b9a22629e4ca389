#include "tavo_core/log_change.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "change_log_samples.h"
#include "tavo_core/edit_text.h"
#include "tests/tavo_core/test_timelines.h"

using CL::ChangeLog;
using test_support::Bar;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const test_support::TestTimelines& Show() {
    static const auto show = test_support::TestTimelines().Song("7", 20).Song("8", 20);
    return show;
}

std::vector<std::string> Describe(const ChangeLog& before, const ChangeLog& after) {
    return DescribeChange(Compare(before, after), Show());
}

/// Edits that crowd in a few bars, so that many share a place.
ChangeLog MakeCrowd(std::mt19937& random) {
    ChangeLog log;
    CL::SongLog& song = log.GetSongLogs()["7"];
    for (std::size_t count = random() % 12; count > 0; --count) {
        const auto from = static_cast<unsigned int>(1 + random() % 3);
        const auto to = from + static_cast<unsigned int>(1 + random() % 3);
        switch (random() % 3) {
            case 0:
                song.GetVamps().Add(CL::Vamp(Bar(from), Bar(to), static_cast<int>(random() % 2)));
                break;
            case 1:
                song.GetRepeats().Add(CL::Repeat(Bar(from), Bar(to), 2));
                break;
            default:
                song.GetMarkers().Add(CL::Marker(Bar(from), random() % 2 == 0 ? "A" : "B"));
        }
    }
    return log;
}

/// The rule of pairs in plain words: what is both removed and added is not told; each removed edit goes with the first
/// added one of its kind that shares a start or an end.
std::vector<std::string> DescribePlainly(const CL::SongChange& change) {
    std::vector<CL::AnyEdit> removed = change.removed;
    std::vector<CL::AnyEdit> added = change.added;
    const auto take = [&added](const auto& isMeant) {
        const auto found = std::find_if(added.begin(), added.end(), isMeant);
        std::optional<CL::AnyEdit> taken;
        if (found != added.end()) taken = *found, added.erase(found);
        return taken;
    };
    std::erase_if(removed, [&](const CL::AnyEdit& edit) {
        return take([&](const CL::AnyEdit& other) { return IsSameEdit(edit, other); }).has_value();
    });
    const TL::BarPositions positions(Show().GetTimelineOf("7"));
    const auto describe = [&](const CL::AnyEdit& edit) { return CL::DescribeEdit(EventOf(edit), positions); };
    std::vector<std::pair<unsigned int, std::string>> lines;
    for (const CL::AnyEdit& edit : removed) {
        const auto successor = take([&](const CL::AnyEdit& other) {
            return edit.index() == other.index() &&
                   (EventOf(edit).start() == EventOf(other).start() || EventOf(edit).end() == EventOf(other).end());
        });
        lines.emplace_back(EventOf(edit).abs_time(),
                           describe(edit) + (successor ? " changed to " + describe(*successor) : " removed"));
    }
    for (const CL::AnyEdit& edit : added)
        lines.emplace_back(EventOf(edit).abs_time(), describe(edit) + " added");
    std::stable_sort(lines.begin(), lines.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> told;
    for (const auto& [tick, line] : lines)
        told.push_back("song 7: " + line);
    return told;
}

}  // namespace

TEST(DescribeChange, EachKindOfDifference_ReadsAsASentence) {
    ChangeLog none;
    ChangeLog one;
    one.GetSongLogs()["7"].GetVamps().Add(CL::Vamp(Bar(12), Bar(17)));
    EXPECT_THAT(Describe(one, none), ElementsAre("song 7: vamp bars 12 to 16 removed"));
    EXPECT_THAT(Describe(none, one), ElementsAre("song 7: vamp bars 12 to 16 added"));

    ChangeLog longer;
    longer.GetSongLogs()["7"].GetVamps().Add(CL::Vamp(Bar(12), Bar(19)));
    EXPECT_THAT(Describe(one, longer), ElementsAre("song 7: vamp bars 12 to 16 changed to vamp bars 12 to 18"));
    ChangeLog earlier;
    earlier.GetSongLogs()["7"].GetVamps().Add(CL::Vamp(Bar(10), Bar(17), 4));
    EXPECT_THAT(Describe(one, earlier),
                ElementsAre("song 7: vamp bars 12 to 16 changed to vamp bars 10 to 16, at most 4 times"));
    ChangeLog elsewhere;
    elsewhere.GetSongLogs()["7"].GetVamps().Add(CL::Vamp(Bar(2), Bar(3)));
    EXPECT_THAT(Describe(one, elsewhere),
                ElementsAre("song 7: vamp bar 2 added", "song 7: vamp bars 12 to 16 removed"));
    ChangeLog otherKind;
    otherKind.GetSongLogs()["7"].GetCuts().Add(CL::Cut(Bar(12), Bar(17)));
    EXPECT_THAT(Describe(one, otherKind),
                ElementsAre("song 7: vamp bars 12 to 16 removed", "song 7: cut bars 12 to 16 added"));
    EXPECT_THAT(Describe(one, one), IsEmpty());
}

TEST(DescribeChange, FollowingOnAndSeveralSongs_AreToldInOrder) {
    ChangeLog before;
    before.GetSongLogs()["10"].SetAttacca(CL::AttaccaSkip);
    ChangeLog after;
    after.GetSongLogs()["8"].SetAttacca(CL::AttaccaNext);
    after.GetSongLogs()["8"].GetMarkers().Add(CL::Marker(Bar(3), "Verse"));
    EXPECT_THAT(Describe(before, after),
                ElementsAre("song 8: normal changed to attacca", "song 8: marker 3, \"Verse\" added",
                            "song 10: skip changed to normal"));
}

TEST(DescribeChange, SongThatTheShowDoesNotHave_IsToldInTicks) {
    ChangeLog after;
    after.GetSongLogs()["99"].GetCuts().Add(CL::Cut(0, 960));
    EXPECT_THAT(Describe(ChangeLog(), after), ElementsAre("song 99: cut t0 up to t960 added"));
}

TEST(DescribeChange, RemovingOneOfATick_TellsOnlyOfThatOne) {
    ChangeLog both;
    both.GetSongLogs()["7"].GetMarkers().Add(CL::Marker(0, "A"));
    both.GetSongLogs()["7"].GetMarkers().Add(CL::Marker(0, "B"));
    ChangeLog second;
    second.GetSongLogs()["7"].GetMarkers().Add(CL::Marker(0, "B"));
    EXPECT_THAT(Describe(both, second), ElementsAre("song 7: marker 1, \"A\" removed"));
}

TEST(DescribeChange, CrowdedEdits_ArePairedByTheRule) {
    std::mt19937 random(5);
    int pairs = 0;
    for (int round = 0; round < 1000; ++round) {
        const CL::LogChange change = Compare(MakeCrowd(random), MakeCrowd(random));
        if (change.IsEmpty()) continue;
        const std::vector<std::string> told = DescribeChange(change, Show());
        ASSERT_EQ(DescribePlainly(change.songs.at(0)), told) << round;
        for (const std::string& line : told)
            pairs += line.find(" changed to ") == std::string::npos ? 0 : 1;
    }
    EXPECT_GT(pairs, 1000);
}

TEST(DescribeChange, ManyDifferences_AreNotSlowToTell) {
    ChangeLog before;
    ChangeLog after;
    constexpr unsigned int Count = 40000;
    for (unsigned int tick = 0; tick < Count; ++tick) {
        before.GetSongLogs()["7"].GetMarkers().Add(CL::Marker(2 * tick, "old"));
        after.GetSongLogs()["7"].GetMarkers().Add(CL::Marker(2 * tick + 1, "new"));
    }
    EXPECT_EQ(2 * Count, Describe(before, after).size());
}

TEST(LogChange, CompareOfRandomLogs_AppliesExactlyAndIsTakenBackExactly) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        const ChangeLog a = change_log_samples::MakeRandom(random);
        ChangeLog b = change_log_samples::MakeRandom(random);
        // Some of the one in the other, so that parts stay.
        for (const auto& [number, song] : a.GetSongLogs()) {
            if (random() % 2 == 0) b.GetSongLogs()[number] = song;
        }
        const CL::LogChange change = Compare(a, b);
        ChangeLog log = a;
        Apply(change, log);
        ASSERT_TRUE(Compare(log, b).IsEmpty()) << round;
        ASSERT_TRUE(Compare(b, log).IsEmpty()) << round;
        Apply(Invert(change), log);
        ASSERT_TRUE(Compare(log, a).IsEmpty()) << round;
        ASSERT_TRUE(IsSameChange(change, Invert(Invert(change))));
        ASSERT_TRUE(IsSameChange(Compare(b, a), Invert(change)));
    }
}

TEST(LogChange, OrderAmongEditsOfOneTick_IsRestored) {
    const auto logOf = [](const std::vector<std::string>& names) {
        ChangeLog log;
        for (const std::string& name : names)
            log.GetSongLogs()["7"].GetOscs().Add(CL::Osc(0, "", "/" + name));
        return log;
    };
    const std::vector<std::vector<std::string>> orders{{},         {"a"},      {"b", "a"},      {"a", "b", "a"},
                                                       {"a", "a"}, {"b", "b"}, {"c", "b", "a"}, {"a", "b", "c"}};
    for (const auto& from : orders) {
        for (const auto& to : orders) {
            ChangeLog log = logOf(from);
            const CL::LogChange change = Compare(log, logOf(to));
            Apply(change, log);
            ASSERT_TRUE(Compare(log, logOf(to)).IsEmpty());
            Apply(Invert(change), log);
            ASSERT_TRUE(Compare(log, logOf(from)).IsEmpty());
        }
    }
}

TEST(LogChange, EditToBeRemovedThatIsNotThere_ChangesNothing) {
    ChangeLog log = change_log_samples::MakeOneOfEachKind();
    const std::string text = log.AsText();
    CL::LogChange change;
    change.songs.push_back({"2", {CL::Marker(1920, "Verse")}, {CL::Cut(0, 1)}, {}});
    change.songs.push_back({"10", {CL::Marker(5, "never")}, {}, {}});
    EXPECT_THROW(Apply(change, log), std::invalid_argument);
    EXPECT_EQ(text, log.AsText());
}

TEST(LogChange, SongThatTheLogDoesNotKnow_IsAdded) {
    ChangeLog log;
    Apply({{{"5", {}, {CL::Cut(0, 480)}, CL::SongChange::Attacca{0, 2}}}}, log);
    EXPECT_EQ(1U, log.GetSongLog("5").GetCuts().size());
    EXPECT_EQ(CL::AttaccaSkip, log.GetSongLog("5").GetAttacca());
}

TEST(IsSameEdit, FieldsOfEveryKind_Count) {
    using CL::AnyEdit;
    const std::vector<AnyEdit> edits{CL::Vamp(0, 9),
                                     CL::Vamp(0, 8),
                                     CL::Vamp(1, 9),
                                     CL::Vamp(0, 9, 2),
                                     CL::Repeat(0, 9, 2),
                                     CL::Repeat(0, 9, 3),
                                     CL::Cut(0, 9),
                                     CL::Fermata(0, 9),
                                     CL::Transposition(0, 9, 2),
                                     CL::Transposition(0, 9, 3),
                                     CL::TempoScale(0, 9, 0.5F),
                                     CL::TempoScale(0, 9, 0.6F),
                                     CL::Click(0, 9, 4),
                                     CL::Click(0, 9, 8),
                                     CL::Caesura(0, "a", 0),
                                     CL::Caesura(0, "b", 0),
                                     CL::Caesura(0, "a", 1),
                                     CL::Sfx(0, 9, "a"),
                                     CL::Sfx(0, 9, "b"),
                                     CL::Sfx(0, 9, "a", 1),
                                     CL::SfxAmbient(0, 9, "a"),
                                     CL::Osc(0, "", "/a"),
                                     CL::Osc(0, "x", "/a"),
                                     CL::Osc(0, "", "/b"),
                                     CL::Osc(0, "", "/a", {1}),
                                     CL::Osc(0, "", "/a", {1.0F}),
                                     CL::Osc(0, "", "/a", {std::string("1")}),
                                     CL::Osc(0, "", "/a", {-0.0F}),
                                     CL::Osc(0, "", "/a", {0.0F}),
                                     CL::Marker(0, "a"),
                                     CL::Marker(0, "b"),
                                     CL::Marker(1, "a"),
                                     CL::Osc(0, "", "/a", {std::numeric_limits<float>::quiet_NaN()})};
    for (std::size_t i = 0; i < edits.size(); ++i) {
        for (std::size_t j = 0; j < edits.size(); ++j)
            EXPECT_EQ(i == j, IsSameEdit(edits[i], edits[j])) << i << " and " << j;
    }
}
