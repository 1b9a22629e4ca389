// A show that is open: evenings told through the façade, and edits made while the music plays.

#include "stage/session/show_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "stage/session/stepped_feed.h"
#include "tavo_core/edit_journal.h"
#include "tests/player_core/support/test_interface.h"
#include "tests/support/notification_log.h"

using test_support::MakeShowSong;
using test_support::NotificationLog;
using test_support::ShowFiles;
using test_support::TicksPerBar;

namespace {

constexpr std::uint32_t FramesPerSecond = 48000;
constexpr double SecondsPerBar = 2;

constexpr unsigned int Bar(unsigned int number) {
    return (number - 1) * TicksPerBar;
}

/// A show of two songs with sixteen bars each, two seconds a bar, and somebody who renders it by a clock of their own.
class Evening {
public:
    explicit Evening(const ShowFiles& files) : session(files.Show(), files.Settings(), WithoutRunningFeed()) {}

    void Play(double seconds) {
        for (auto frames = static_cast<int>(seconds * FramesPerSecond); frames > 0; frames -= PieceFrames) {
            session.GetStagePlayer().GetEngine().Render(left_, right_, PieceFrames);
            static_cast<stage::SteppedFeed&>(GetGuiUpdate()).MakePass();
        }
    }
    void PlayBars(double bars) { Play(bars * SecondsPerBar); }
    [[nodiscard]] double BarAtPlayhead() const {
        return 1 + static_cast<double>(GetGuiUpdate().GetTickIndex()) / TicksPerBar;
    }

    stage::ShowSession session;

private:
    static constexpr int PieceFrames = 480;

    static stage::ShowSession::Options WithoutRunningFeed() {
        stage::ShowSession::Options options;
        options.hasRunningFeed = false;
        return options;
    }

    float left_[PieceFrames] = {};
    float right_[PieceFrames] = {};
};

class ShowSessionTest : public testing::Test {
protected:
    ShowSessionTest() { files_.WriteMusic("evening.showdata", {MakeShowSong("1", 16), MakeShowSong("2", 16)}); }

    void WriteLog(const std::function<void(CL::ChangeLog&)>& edit = {}) const {
        files_.WriteLog("evening-1.3.logdata", {1, 3}, edit);
    }
    void PlayAWholeEvening() const;
    [[nodiscard]] bool Exists(const std::string& name) const { return std::filesystem::exists(files_.PathOf(name)); }

    ShowFiles files_;
};

TEST_F(ShowSessionTest, UnknownKeysInMidiSettings_AreAmongTheWarnings) {
    WriteLog();
    std::ofstream(files_.Settings() + "/midiCommandSettings") << R"({"pedal": "left"})";
    std::ofstream(files_.Settings() + "/midiTimeCodeSettings") << R"({"rate": 25})";
    stage::ShowSession show(files_.Show(), files_.Settings());
    EXPECT_EQ((std::vector<std::string>{"midiCommandSettings: pedal is not a known key and is ignored",
                                        "midiTimeCodeSettings: rate is not a known key and is ignored"}),
              show.GetWarnings());
}

TEST_F(ShowSessionTest, ShutdownEndsAnEveningThatPlays) {
    WriteLog();
    stage::ShowSession show(files_.Show(), files_.Settings());
    show.LoadSong("1");
    show.Play();
    EXPECT_TRUE(show.GetIsPlaying());
    show.Shutdown();
    EXPECT_TRUE(show.IsStopped());
}

TEST_F(ShowSessionTest, EditElsewhereInTheSong_LeavesAVampGoingRound) {
    WriteLog([](CL::ChangeLog& log) { log.GetSongLog("1").GetVamps().Add(CL::Vamp(Bar(2), Bar(4))); });
    Evening evening(files_);
    evening.session.LoadSong("1");
    evening.session.Play();
    evening.PlayBars(2);
    evening.session.AddEdit("1", CL::Marker(Bar(9), "Dance"));
    EXPECT_TRUE(evening.session.GetIsPlaying());
    evening.PlayBars(2);
    EXPECT_NEAR(3, evening.BarAtPlayhead(), 0.02) << "in the second pass";
    evening.session.FlowControlExit();
    evening.session.AddEdit("1", CL::Marker(Bar(10), "Song"));
    evening.PlayBars(2);
    EXPECT_NEAR(5, evening.BarAtPlayhead(), 0.02) << "the exit was not forgotten";
}

TEST_F(ShowSessionTest, EditElsewhereInTheSong_KeepsTheCountOfARepeat) {
    WriteLog([](CL::ChangeLog& log) { log.GetSongLog("1").GetRepeats().Add(CL::Repeat(Bar(2), Bar(3), 3)); });
    Evening evening(files_);
    evening.session.LoadSong("1");
    evening.session.Play();
    evening.PlayBars(3.5);  // in the third pass
    evening.session.AddEdit("1", CL::Marker(Bar(9), "Dance"));
    evening.PlayBars(1);
    EXPECT_NEAR(3.5, evening.BarAtPlayhead(), 0.02);
}

TEST_F(ShowSessionTest, EditElsewhereInTheSong_KeepsAFermataHoldingAndACaesuraCountingDown) {
    WriteLog([](CL::ChangeLog& log) {
        log.GetSongLog("1").GetFermatas().Add(CL::Fermata(Bar(2), Bar(3)));
        log.GetSongLog("1").GetCaesuras().Add(CL::Caesura(Bar(5), "", 0));
    });
    Evening evening(files_);
    evening.session.LoadSong("1");
    evening.session.Play();
    evening.PlayBars(4);
    EXPECT_NEAR(3, evening.BarAtPlayhead(), 0.02) << "held";
    evening.session.AddEdit("1", CL::Marker(Bar(9), "Dance"));
    evening.PlayBars(1);
    EXPECT_NEAR(3, evening.BarAtPlayhead(), 0.02) << "still held";
    evening.session.FlowControlExit();
    evening.PlayBars(1.9);
    evening.session.AddEdit("1", CL::Marker(Bar(10), "Song"));  // within the caesura's countdown
    evening.PlayBars(2);
    EXPECT_NEAR(5, evening.BarAtPlayhead(), 0.02) << "at the caesura";
    EXPECT_TRUE(evening.session.GetIsPaused());
}

TEST_F(ShowSessionTest, EditBeforeTheEngineFollowsASeek_LeavesTheSeekStanding) {
    WriteLog();
    Evening evening(files_);
    evening.session.LoadSong("1");
    evening.session.Play();
    evening.PlayBars(1);
    evening.session.Seek(Bar(9));
    evening.session.AddEdit("1", CL::Marker(Bar(12), "Dance"));
    evening.PlayBars(1);
    EXPECT_NEAR(10, evening.BarAtPlayhead(), 0.02);
}

TEST_F(ShowSessionTest, NewCaesuraBeforeTheOneThatIsCountedDown_IsStoppedAtFirst) {
    WriteLog([](CL::ChangeLog& log) { log.GetSongLog("1").GetCaesuras().Add(CL::Caesura(Bar(5), "", 0)); });
    Evening evening(files_);
    evening.session.LoadSong("1");
    evening.session.Play();
    evening.PlayBars(3 + 0.1);  // into the fourth bar: the countdown has begun
    evening.session.AddEdit("1", CL::Caesura(Bar(4) + TicksPerBar / 2, "", 0));
    evening.PlayBars(2);
    EXPECT_NEAR(4.5, evening.BarAtPlayhead(), 0.02);
    EXPECT_TRUE(evening.session.GetIsPaused());
    evening.session.Continue();
    evening.PlayBars(2);
    EXPECT_NEAR(5, evening.BarAtPlayhead(), 0.02);
    EXPECT_TRUE(evening.session.GetIsPaused());
}

TEST_F(ShowSessionTest, RemovingTheVampThatPlays_LetsTheMusicRunOn) {
    WriteLog([](CL::ChangeLog& log) { log.GetSongLog("1").GetVamps().Add(CL::Vamp(Bar(2), Bar(4))); });
    Evening evening(files_);
    evening.session.LoadSong("1");
    evening.session.Play();
    evening.PlayBars(2);
    NotificationLog display;
    evening.session.RemoveEdits("1", {CL::Vamp(Bar(2), Bar(4))});
    evening.PlayBars(2);
    EXPECT_NEAR(5, evening.BarAtPlayhead(), 0.02);
    const NotificationLog::Lines lines = display.Take();
    EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), "VampOff")) << testing::PrintToString(lines);
}

TEST_F(ShowSessionTest, RemovingTheFermataThatHolds_LetsTheMusicRunOn) {
    WriteLog([](CL::ChangeLog& log) { log.GetSongLog("1").GetFermatas().Add(CL::Fermata(Bar(2), Bar(3))); });
    Evening evening(files_);
    evening.session.LoadSong("1");
    evening.session.Play();
    evening.PlayBars(4);
    evening.session.RemoveEdits("1", {CL::Fermata(Bar(2), Bar(3))});
    evening.PlayBars(1);
    EXPECT_NEAR(4, evening.BarAtPlayhead(), 0.02);
}

TEST_F(ShowSessionTest, NewCutOverThePlayhead_MovesItToOneBeatBefore) {
    WriteLog();
    Evening evening(files_);
    evening.session.LoadSong("1");
    evening.session.Play();
    evening.PlayBars(4.5);
    evening.session.AddEdit("1", CL::Cut(Bar(5), Bar(8)));
    evening.PlayBars(0.75);
    EXPECT_NEAR(8.5, evening.BarAtPlayhead(), 0.02) << "the beat before the cut was played, and the cut skipped";
    EXPECT_TRUE(evening.session.GetIsPlaying());
}

TEST_F(ShowSessionTest, NewCutOverAStandingPlayhead_MovesItToTheCutsEnd) {
    WriteLog();
    Evening evening(files_);
    evening.session.LoadSong("1");
    evening.session.Seek(Bar(6));
    evening.Play(0.1);
    evening.session.AddEdit("1", CL::Cut(Bar(5), Bar(8)));
    evening.Play(0.1);
    EXPECT_NEAR(8, evening.BarAtPlayhead(), 0.02);
}

TEST_F(ShowSessionTest, AttaccaSetWhileTheSongPlays_IsFollowedAtItsEnd) {
    WriteLog();
    Evening evening(files_);
    evening.session.LoadSongAtTime("1", Bar(15));
    evening.session.Play();
    evening.PlayBars(1);
    evening.session.EditAttacca("1", CL::AttaccaNext);
    evening.PlayBars(2);
    EXPECT_EQ("2", evening.session.GetCurrentSongNumber());
    EXPECT_TRUE(evening.session.GetIsPlaying());
}

TEST_F(ShowSessionTest, EditsThatWereNotSaved_AreOfferedAtTheNextStart) {
    WriteLog();
    {
        Evening evening(files_);
        evening.session.AddEdit("1", CL::Vamp(Bar(2), Bar(4)));
        evening.session.EditAttacca("2", CL::AttaccaSkip);
    }
    Evening evening(files_);
    EXPECT_EQ((std::vector<std::string>{"song 1: vamp bars 2 to 3 added", "song 2: normal changed to skip"}),
              evening.session.GetRecoveredEdits());
    EXPECT_THROW(evening.session.AddEdit("1", CL::Marker(0, "x")), std::logic_error);
    evening.session.RecoverEdits();
    EXPECT_TRUE(evening.session.GetRecoveredEdits().empty());
    EXPECT_EQ(CL::AttaccaSkip, evening.session.GetAttacca("2"));
    EXPECT_EQ("1.4", evening.session.Save(false));
    EXPECT_FALSE(std::filesystem::exists(CL::EditJournal::PathFor(files_.PathOf("evening-1.3.logdata"))));
}

TEST_F(ShowSessionTest, EditsThatWereNotSaved_CanBeDiscarded) {
    WriteLog();
    {
        Evening evening(files_);
        evening.session.AddEdit("1", CL::Vamp(Bar(2), Bar(4)));
    }
    {
        Evening evening(files_);
        evening.session.DiscardRecoveredEdits();
        evening.session.AddEdit("1", CL::Marker(Bar(2), "Verse"));
    }
    Evening evening(files_);
    EXPECT_EQ((std::vector<std::string>{"song 1: marker 2, \"Verse\" added"}), evening.session.GetRecoveredEdits());
}

TEST_F(ShowSessionTest, LogChosenInTheSettings_OpensAndSavingMovesTheChoiceOn) {
    WriteLog();
    files_.WriteLog("evening-2.0.logdata", {2, 0});
    files_.WriteText("settings.json", "{\"changeLog\": \"evening-1.3.logdata\"}");
    {
        Evening evening(files_);
        EXPECT_EQ("1.3", evening.session.GetLogVersion());
        evening.session.AddEdit("1", CL::Marker(Bar(2), "Verse"));
        EXPECT_EQ("1.4", evening.session.Save(false));
    }
    Evening evening(files_);
    EXPECT_EQ("1.4", evening.session.GetLogVersion());
}

TEST_F(ShowSessionTest, RollBackToAnEarlierVersion_IsOneStep) {
    WriteLog([](CL::ChangeLog& log) { log.GetSongLog("1").GetVamps().Add(CL::Vamp(Bar(2), Bar(4))); });
    Evening evening(files_);
    evening.session.RemoveEdits("1", {CL::Vamp(Bar(2), Bar(4))});
    evening.session.AddEdit("1", CL::Cut(Bar(7), Bar(9)));
    EXPECT_EQ("1.4", evening.session.Save(false));
    evening.session.RollBackTo("1.3");
    evening.session.LoadSong("1");
    EXPECT_EQ(1U, evening.session.GetChangeLogPanelEvents().size());
    evening.session.Undo();
    EXPECT_EQ(1U, evening.session.GetChangeLogPanelEvents().size());
    EXPECT_THROW(evening.session.RollBackTo("9.9"), std::out_of_range);
}

TEST_F(ShowSessionTest, WithoutAScore_GetScoreTarSaysSo) {
    WriteLog();
    Evening evening(files_);
    EXPECT_THROW(evening.session.GetScoreTar(), std::runtime_error);
}

TEST_F(ShowSessionTest, VolumesAreThePlayers) {
    WriteLog();
    Evening evening(files_);
    stage::ShowSession& show = evening.session;
    for (const tavo_audio::VolumeType type : show.GetVolumeTypes()) {
        EXPECT_TRUE(show.SetVolume(0.25, type));
        EXPECT_DOUBLE_EQ(0.25, show.GetVolume(type));
        EXPECT_TRUE(show.SetVolume(7, type));
        EXPECT_DOUBLE_EQ(1, show.GetVolume(type));
    }
    EXPECT_TRUE(show.SetVolume(0.5));
    EXPECT_DOUBLE_EQ(0.5, show.GetVolume());
    EXPECT_FALSE(show.SetVolume(0.5, static_cast<tavo_audio::VolumeType>(99)));
    EXPECT_FALSE(show.SetVolume(std::nan(""), tavo_audio::Master));
}

TEST_F(ShowSessionTest, RenderedEditedAndOperatedOnSeveralThreads) {
    WriteLog([](CL::ChangeLog& log) {
        log.GetSongLog("1").GetVamps().Add(CL::Vamp(Bar(2), Bar(4)));
        log.GetSongLog("1").GetFermatas().Add(CL::Fermata(Bar(6), Bar(7)));
    });
    stage::ShowSession show(files_.Show(), files_.Settings());
    show.LoadSong("1");
    show.Play();
    std::atomic<bool> ends = false;
    std::thread engine([&] {
        std::vector<float> left(256);
        std::vector<float> right(256);
        while (!ends)
            show.GetStagePlayer().GetEngine().Render(left.data(), right.data(), 256);
    });
    std::thread commands([&] {
        for (unsigned int i = 0; i < 400; ++i) {
            switch (i % 8) {
                case 0:
                    show.Play();
                    break;
                case 1:
                    show.FlowControlExit();
                    break;
                case 2:
                    show.Seek(Bar(1 + i % 16));
                    break;
                case 3:
                    show.SeekToNextMeasure();
                    break;
                case 4:
                    show.SetTempoScale(1.0 + i % 3 * 0.1);
                    break;
                case 5:
                    show.Continue();
                    break;
                case 6:
                    show.SetVolume(0.5, tavo_audio::Synth);
                    break;
                default:
                    static_cast<void>(show.GetTimeline());
                    break;
            }
        }
    });
    for (unsigned int i = 0; i < 100; ++i) {
        show.AddEdit("1", CL::Marker(Bar(2 + i % 10), "m" + std::to_string(i)));
        if (i % 3 == 0) show.Undo();
    }
    commands.join();
    ends = true;
    engine.join();
    EXPECT_EQ("1.4", show.Save(false));
    show.Shutdown();
}

void ShowSessionTest::PlayAWholeEvening() const {
    WriteLog([](CL::ChangeLog& log) {
        log.GetSongLog("1").GetVamps().Add(CL::Vamp(Bar(2), Bar(4)));
        log.GetSongLog("1").GetCaesuras().Add(CL::Caesura(Bar(7), "wait", 0));
    });
    Evening evening(files_);
    stage::ShowSession& show = evening.session;
    NotificationLog display;

    show.LoadSong("1");
    EXPECT_TRUE(show.GetIsStopped());
    show.Play();
    evening.PlayBars(4.5);
    EXPECT_NEAR(3.5, evening.BarAtPlayhead(), 0.02) << "in the vamp's second pass";
    show.FlowControlExit();
    evening.PlayBars(2);
    EXPECT_NEAR(5.5, evening.BarAtPlayhead(), 0.02) << "beyond the vamp";

    evening.PlayBars(4);
    EXPECT_TRUE(show.GetIsPaused()) << "at the caesura";
    EXPECT_NEAR(7, evening.BarAtPlayhead(), 0.02);
    show.Continue();
    evening.PlayBars(1.5);
    EXPECT_NEAR(8.5, evening.BarAtPlayhead(), 0.02);

    show.Pause(false);
    evening.Play(5);
    EXPECT_TRUE(show.GetIsPaused());
    EXPECT_NEAR(8.5, evening.BarAtPlayhead(), 0.02);
    show.NextSong();
    EXPECT_EQ("2", show.GetCurrentSongNumber());

    show.AddEdit("2", CL::Cut(Bar(3), Bar(5)));
    show.AddEdit("2", CL::Marker(Bar(6), "Dance"));
    EXPECT_EQ(1U, show.GetMarkers().size());
    EXPECT_EQ(std::vector<std::string>{"song 2: marker 6, \"Dance\" removed"}, show.Undo());
    EXPECT_TRUE(show.GetMarkers().empty());
    EXPECT_EQ("1.4", show.Save(false));
    EXPECT_TRUE(Exists("evening-1.4.logdata"));

    show.UseVersion("1.3");
    EXPECT_EQ("1.3", show.GetLogVersion());
    EXPECT_TRUE(show.GetChangeLogPanelEvents().empty()) << "song 2 has no edits in 1.3";
    show.UseVersion("1.4");
    EXPECT_EQ(1U, show.GetChangeLogPanelEvents().size());
    EXPECT_EQ("2.4", show.SaveCopy());
    EXPECT_TRUE(Exists("evening-2.4.logdata"));

    show.LoadSongAtTime("2", Bar(2));
    show.Play();
    evening.PlayBars(2);
    EXPECT_NEAR(6, evening.BarAtPlayhead(), 0.02) << "over the cut";
    show.Stop();
    EXPECT_TRUE(show.GetIsStopped());
    show.PrepareForExit();
}

TEST_F(ShowSessionTest, WholeEveningThroughTheFacade) {
    // In a process of its own: afterwards the display is silent for good, and nobody joins the feed's threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            PlayAWholeEvening();
            std::fflush(stdout);
            std::_Exit(HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ShowSessionTest, PreparedForExitWhilePlayingAndDestroyed_EndsCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    WriteLog();
    EXPECT_EXIT(
        {
            {
                stage::ShowSession show(files_.Show(), files_.Settings());
                show.LoadSong("1");
                show.Play();
                show.PrepareForExit();
            }
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
