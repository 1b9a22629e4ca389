// What playback tells, when, and what whoever is told may do; operations of other threads while a block is rendered.

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "player_core/gui_update.h"
#include "stage/engine/song_plan_keeper.h"
#include "stage/engine/sound_font.h"
#include "stage/engine/stage_player.h"
#include "stage/session/stepped_feed.h"
#include "tests/support/show_builder.h"

using stage::EngineEvent;
using test_support::TestShow;

namespace {

constexpr std::int64_t FramesPerBar = 96000;
using Kind = EngineEvent::Kind;

const std::map<Kind, std::string> Names{
    {Kind::BlockBegins, "block"}, {Kind::Started, "started"},   {Kind::Stopped, "stopped"},
    {Kind::Put, "put"},           {Kind::Jumped, "jumped"},     {Kind::Arrived, "arrived"},
    {Kind::Held, "held"},         {Kind::Released, "released"}, {Kind::StoppedAtCaesura, "caesura"},
    {Kind::SongPutIn, "song"},    {Kind::SongEnded, "ended"},   {Kind::Cue, "cue"},
    {Kind::FadeDone, "faded"}};

/// A player that a test renders; it writes down what it is told besides blocks and arrivals, places in bars.
class Stage : public stage::EngineSubscriber {
public:
    explicit Stage(TestShow& show, stage::Synth& synth = TheSynth())
        : synth_(synth), player("", Activated(show), synth_, 48000) {
        SetGuiUpdate(std::make_unique<stage::SteppedFeed>(
            player, [this](unsigned int* tick) { return player.ReportPosition(tick); }));
        player.GetEngine().Subscribe(*this);
        player.LoadSong("1");
    }
    ~Stage() {
        player.HaltOutput();
        player.GetEngine().FinishRendering();
        SetGuiUpdate(nullptr);
        SetActiveChangeLog(nullptr);
    }

    void OnEngineEvent(const EngineEvent& event) override {
        ++told[event.kind];
        EXPECT_LE(event.frame, player.GetEngine().GetFrame());
        if (event.kind != Kind::BlockBegins && event.kind != Kind::Arrived) {
            events += Names.at(event.kind) + " " + std::to_string(event.frame / 48) + " ms, bar " + Bar(event.tick);
            events += event.kind == Kind::Jumped ? " from " + Bar(event.fromTick) + "\n" : "\n";
        }
        if (answer) answer(event);
    }

    void Render(std::int64_t frames, std::uint32_t piece = 480) {
        std::vector<float> left(piece);
        std::vector<float> right(piece);
        for (; frames > 0; frames -= piece)
            player.GetEngine().Render(left.data(), right.data(), piece);
    }
    [[nodiscard]] std::size_t CountSoundingNotes() {
        player.GetEngine().FinishRendering();
        return synth_.CountSoundingNotes();
    }
    std::string Take() { return std::exchange(events, {}); }

    static std::string Bar(std::uint32_t tick) {
        const std::uint32_t rest = tick % TestShow::BarTicks;
        return std::to_string(1 + tick / TestShow::BarTicks) + (rest == 0 ? "" : "+" + std::to_string(rest));
    }

private:
    static const tavo_midi::ShowData& Activated(TestShow& show) {
        show.Activate();
        return show.GetShowData();
    }
    /// Opened once: that takes longer than all else.
    static stage::Synth& TheSynth() {
        static stage::Synth synth(stage::FindDefaultSoundFont(), 48000, 16);
        return synth;
    }

    stage::Synth& synth_;

public:
    stage::StagePlayer player;
    std::function<void(const EngineEvent&)> answer;
    std::string events;
    std::map<Kind, int> told;
};

TEST(EngineEvents, EachKindIsToldOnceAtItsFrame) {
    TestShow show;
    show.Song("1", 7).Edits("repeat 1 1 2\nfermata 2 2\ncut 4 4\nosc 5 /go\ncaesura 6\nattacca").Song("2", 1);
    Stage stage(show);
    stage.player.Play();
    stage.Render(4 * FramesPerBar);
    EXPECT_EQ("song 0 ms, bar 1\nstarted 0 ms, bar 1\njumped 2000 ms, bar 1 from 2\nheld 6000 ms, bar 3\n",
              stage.Take());
    stage.player.FlowControlExit();
    stage.Render(4 * FramesPerBar);
    EXPECT_EQ("released 8000 ms, bar 3\njumped 10000 ms, bar 5 from 4\ncue 10000 ms, bar 5\ncaesura 12000 ms, bar 6\n",
              stage.Take());
    stage.player.Seek(6 * TestShow::BarTicks);
    stage.player.Play();
    stage.Render(FramesPerBar / 2);
    EXPECT_EQ("put 16000 ms, bar 7\nstarted 16000 ms, bar 7\njumped 16000 ms, bar 7 from 6\n", stage.Take());
    stage.player.Fade({}, 0.5F);
    stage.Render(FramesPerBar * 2);
    EXPECT_EQ(
        "faded 17500 ms, bar 7+1439\nended 18000 ms, bar 8\nsong 18000 ms, bar 1\nended 20000 ms, bar 2\n"
        "stopped 20000 ms, bar 2\n",
        stage.Take());
}

TEST(EngineEvents, StoppedAndPausedByAnOperation_AreToldAtTheNextFrame) {
    TestShow show;
    show.Song("1", 2);
    Stage stage(show);
    stage.player.Play();
    stage.Render(FramesPerBar / 4);
    stage.Take();
    stage.player.Pause(false);
    EXPECT_EQ("", stage.Take());
    stage.player.Play();
    stage.player.Pause(false);
    stage.Render(480);
    EXPECT_EQ("stopped 500 ms, bar 1+479\n", stage.Take()) << "a start that nobody heard of was none";
}

TEST(EngineEvents, ManySongsPutInWhileNobodyRenders_OnlyTheLastIsTold) {
    TestShow show;
    show.Song("1", 2).Song("2", 2);
    Stage stage(show);
    for (int i = 0; i < 10000; ++i)
        stage.player.LoadSong(i % 2 == 0 ? "1" : "2");
    stage.Render(480);
    EXPECT_EQ("song 0 ms, bar 1\n", stage.Take());
}

struct Answer {
    const char* name;
    std::function<void(stage::StagePlayer&)> act;
};

const Answer Answers[] = {
    {"stop", [](stage::StagePlayer& player) { player.UserRequestedStop(); }},
    {"pause", [](stage::StagePlayer& player) { player.Pause(true); }},
    {"play", [](stage::StagePlayer& player) { player.Play(); }},
    {"exit", [](stage::StagePlayer& player) { player.FlowControlExit(); }},
    {"seek", [](stage::StagePlayer& player) { player.Seek(TestShow::BarTicks + 100); }},
    {"load", [](stage::StagePlayer& player) { player.LoadSong("2"); }},
    {"load and play",
     [](stage::StagePlayer& player) {
         player.LoadSong("1");
         player.Play();
     }},
    {"edit", [](stage::StagePlayer& player) { player.NotifyNewChangeLog(); }},
    {"fade", [](stage::StagePlayer& player) { player.Fade([] {}, 0.1F); }},
    {"volume", [](stage::StagePlayer& player) { player.SetVolume(0.5, tavo_audio::Master); }},
    {"next", [](stage::StagePlayer& player) { player.NextSong(); }},
};

// Time goes on whatever subscribers do, and nothing sounds on when all is over.
TEST(EngineEvents, AnyOperationInsideAnyEvent_NeitherHangsNorLeavesANoteSounding) {
    TestShow show;
    show.Song("1", 7).Edits("repeat 1 1 2\nfermata 2 2\ncut 4 4\nosc 5 /go\ncaesura 6\nattacca").Song("2", 1);
    for (const auto& named : Names) {
        const EngineEvent::Kind kind = named.first;
        const std::string& name = named.second;
        for (const Answer& answer : Answers) {
            Stage stage(show);
            int answers = 0;
            stage.answer = [&, kind](const EngineEvent& event) {
                // Not for ever: each answer may bring the next.
                if (event.kind == kind && ++answers <= 100) answer.act(stage.player);
            };
            const char* context = answer.name;
            SCOPED_TRACE(name + ": " + context);
            stage.player.Play();
            stage.Render(5 * FramesPerBar, 4800);
            stage.player.FlowControlExit();
            stage.Render(3 * FramesPerBar, 4800);
            stage.player.Fade({}, 0.1F);
            stage.Render(FramesPerBar, 4800);
            stage.player.Pause(false);
            stage.player.Seek(0);
            stage.player.Play();
            stage.Render(FramesPerBar, 4800);
            EXPECT_EQ(10 * FramesPerBar, stage.player.GetEngine().GetFrame());
            stage.answer = {};
            stage.player.HaltOutput();
            EXPECT_EQ(0U, stage.CountSoundingNotes());
            stage.player.LoadSong("1");
            stage.player.Play();
            stage.Render(FramesPerBar / 4);
            EXPECT_EQ(480U, stage.player.GetEngine().GetPosition() + 1) << "playback goes on as ever";
        }
    }
}

TEST(EngineBlocks, HoweverManyFramesAreAskedFor_AnotherThreadsStopComesWithinABlock) {
    TestShow show;
    show.Song("1", 8);
    Stage stage(show);
    stage.player.Play();
    std::mutex mutex;
    std::condition_variable changed;
    bool isRendering = false;
    std::thread host([&] {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return isRendering; });
        stage.player.Pause(true);
    });
    stage.answer = [&](const EngineEvent& event) {
        if (event.kind != Kind::Started) return;
        const std::lock_guard lock(mutex);
        isRendering = true;
        changed.notify_all();
    };
    stage.Render(8 * FramesPerBar, static_cast<std::uint32_t>(8 * FramesPerBar));
    host.join();
    const std::string events = stage.Take();
    ASSERT_NE(std::string::npos, events.find("stopped")) << events;
    EXPECT_EQ(PlayerState::Paused, stage.player.GetPlayerState());
    EXPECT_EQ(0U, stage.CountSoundingNotes());
}

TEST(EngineGroups, OneBeyondTheInstruments_IsSilentAndLeavesTheirsAsTheyAre) {
    TestShow show;
    show.Song("1", 1);
    const auto render = [&show](std::size_t groups) {
        stage::Synth synth(stage::FindDefaultSoundFont(), 48000, 16);
        Stage stage(show, synth);
        stage.player.Play();
        std::vector<std::vector<float>> sound(2 * groups, std::vector<float>(48000, 1.0F));
        std::vector<stage::StereoBuffer> buffers;
        for (std::size_t group = 0; group < groups; ++group)
            buffers.push_back({sound[2 * group].data(), sound[2 * group + 1].data()});
        stage.player.GetEngine().Render(buffers, 48000);
        return sound;
    };
    const auto one = render(1);
    const auto three = render(3);
    EXPECT_EQ(one[0], three[0]);
    EXPECT_EQ(one[1], three[1]);
    for (std::size_t i = 2; i < 6; ++i)
        EXPECT_EQ(std::vector<float>(48000, 0.0F), three[i]);
}

TEST(WantedTick, WhereTheAdvanceBegan_IsNotArrivedAtAgain) {
    TestShow show;
    show.Song("1", 2);
    Stage stage(show);
    std::vector<std::uint32_t> arrivals;
    stage.answer = [&](const EngineEvent& event) {
        if (event.kind != Kind::Arrived) return;
        const bool isFirst = arrivals.empty() || arrivals.back() != event.tick;
        arrivals.push_back(event.tick);
        if (isFirst) stage.player.GetEngine().SetWantedTicks(event.tick);
    };
    stage.player.Play();
    stage.Render(FramesPerBar / 2);
    ASSERT_GT(arrivals.size(), 10U);
    EXPECT_EQ(arrivals.end(), std::adjacent_find(arrivals.begin(), arrivals.end()));
}

TEST(AttaccaPlan, IsReadyBeforeItIsNeeded) {
    TestShow show;
    show.Song("1", 1).Edits("attacca").Song("2", 1).Edits("attacca").Song("3", 1);
    Stage stage(show);
    stage.player.Play();
    for (int song = 1; song <= 3; ++song) {
        stage.player.WaitForPreparation();
        stage.Render(FramesPerBar);
    }
    EXPECT_EQ("3", stage.player.GetActiveSongNumberRef().Get());
    EXPECT_EQ(0U, stage.player.GetLatePlanCount());
}

TEST(AttaccaPlan, OfEditsThatWereChangedInPlace_IsMadeWhenItIsNeeded) {
    TestShow show;
    show.Song("1", 1).Edits("attacca").Song("2", 1);
    Stage stage(show);
    stage.player.WaitForPreparation();
    {
        const ActiveChangeLogExclusive log;
        log->GetSongLog("2").GetOscs().Add(CL::Osc(480, "", "/late"));
    }
    stage.player.Play();
    stage.Render(2 * FramesPerBar);
    EXPECT_EQ(1, stage.told[Kind::Cue]);
    EXPECT_EQ(1U, stage.player.GetLatePlanCount());
}

TEST(SongPlans, OfTheSongsAfterAndBefore_AreReady) {
    TestShow show;
    show.Song("1", 1).Song("2", 1).Song("3", 1).Song("4", 1);
    Stage stage(show);  // its log is the active one
    stage::SongPlanKeeper plans(show.GetShowData(), nullptr, [] { return stage::SongPlanKeeper::OldPlans(); });
    plans.PrepareNeighbours("2");
    plans.Wait();
    EXPECT_EQ(nullptr, plans.TakeIfReady("4"));
    EXPECT_NE(nullptr, plans.TakeIfReady("3"));
    EXPECT_NE(nullptr, plans.TakeIfReady("1"));
    EXPECT_EQ(nullptr, plans.TakeIfReady("1")) << "it was given out";

    plans.PrepareNeighbours("1");
    plans.Wait();
    EXPECT_NE(nullptr, plans.TakeIfReady("2"));
}

// Under the thread sanitizer this is about races; everywhere that nothing hangs, sounds on or stands in two places.
TEST(EngineThreads, OperatedFromThreeThreadsWhileRendered_NoNoteSoundsOnAndThePositionIsRight) {
    TestShow show;
    show.Song("1", 7).Edits("repeat 1 1 2\nvamp 2 3\nfermata 4 4\ncaesura 6\nattacca").Song("2", 2);
    Stage stage(show);
    std::atomic<bool> ends{false};
    std::thread renderer([&] {
        std::vector<float> left(4096);
        std::vector<float> right(4096);
        while (!ends)
            stage.player.GetEngine().Render(left.data(), right.data(), 4096);
    });
    std::vector<std::thread> hosts;
    for (unsigned int seed = 1; seed <= 3; ++seed) {
        hosts.emplace_back([&stage, seed] {
            unsigned int state = seed;
            for (int i = 0; i < 300; ++i) {
                state = state * 1103515245U + 12345U;
                Answers[(state >> 16U) % std::size(Answers)].act(stage.player);
            }
        });
    }
    for (std::thread& host : hosts)
        host.join();
    ends = true;
    renderer.join();
    stage.player.HaltOutput();
    EXPECT_EQ(0U, stage.CountSoundingNotes());
    stage.player.LoadSong("2");
    stage.player.Play();
    stage.Render(FramesPerBar / 4);
    EXPECT_EQ(480U, stage.player.GetEngine().GetPosition() + 1);
}

}  // namespace
