// A player as a host in C has it: what it plays, what it reports, and that it is what `stage render` plays.

#include <gmock/gmock.h>

#include <thread>

#include "stage/offline/audio_file.h"
#include "tests/c_api/open_player.h"
#include "tests/support/run_program.h"

namespace {

using c_api_test::MadeShow;
using c_api_test::OpenPlayer;
using c_api_test::Say;
using c_api_test::TakeText;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint32_t BarFrames = 96000;

const std::set<std::uint32_t> Flow{TAVO_EVENT_STARTED, TAVO_EVENT_STOPPED, TAVO_EVENT_JUMP,     TAVO_EVENT_HOLD,
                                   TAVO_EVENT_RELEASE, TAVO_EVENT_CAESURA, TAVO_EVENT_SONG_END, TAVO_EVENT_SONG};

MadeShow MakeEvening() {
    test_support::TestShow show;
    show.Song("1", 8).Edits("vamp 2 2\nfermata 4 4\ncaesura 6");
    show.Song("2", 2);
    return MadeShow(show);
}

std::string MakeDemo(const test_support::TemporaryDirectory& directory) {
    const std::string show = directory / "show";
    const auto build = test_support::RunProgram({std::string(SOURCE_DIR) + "/examples/demo/build", STAGE_BINARY, show});
    EXPECT_EQ(0, build.exitCode) << build.err;
    return show;
}

TEST(CPlayer, VampFermataCaesuraAndEnd_AreReportedAndLeftByCommands) {
    const MadeShow show = MakeEvening();
    OpenPlayer player(show.Path());
    EXPECT_EQ(TAVO_MOTION_NO_SONG, static_cast<int>(player.Status().motion));
    EXPECT_EQ("ok", player.Do("load 1"));
    EXPECT_EQ("ok", player.Do("play"));
    // Twice round the vamp, and out of it in its third pass.
    player.Render(3 * BarFrames + BarFrames / 2);
    EXPECT_EQ(1U, player.Status().is_vamp_lamp_on);
    EXPECT_EQ("ok", player.Do("exit"));
    EXPECT_THAT(player.Events(Flow),
                ElementsAre("song 0 Song 1", "started 0", "jump 3840 -> 1920", "jump 3840 -> 1920"));
    player.Render(4 * BarFrames);
    EXPECT_EQ(TAVO_MOTION_HOLDING, static_cast<int>(player.Status().motion));
    EXPECT_THAT(player.Events(Flow), ElementsAre("hold 7680"));
    EXPECT_EQ("ok", player.Do("exit"));
    player.Render(3 * BarFrames);
    EXPECT_EQ(TAVO_MOTION_PAUSED, static_cast<int>(player.Status().motion));
    EXPECT_THAT(player.Events(Flow), ElementsAre("release 7680", "caesura 9600"));
    EXPECT_EQ("ok", player.Do("continue"));
    player.Render(4 * BarFrames);
    const tavo_status status = player.Status();
    EXPECT_EQ(TAVO_MOTION_STOPPED, static_cast<int>(status.motion));
    // The next song stands ready.
    EXPECT_EQ(1U, status.song);
    EXPECT_THAT(player.Events(Flow), ElementsAre("started 9600", "song-end 15360", "stopped 15360", "song 0 Song 2"));
    EXPECT_EQ(static_cast<std::int64_t>(player.left.size()), status.frame);
}

TEST(CPlayer, Display_IsReportedWhenItChanges) {
    const MadeShow show = MakeEvening();
    OpenPlayer player(show.Path());
    EXPECT_EQ("ok", player.Do("load 1"));
    EXPECT_THAT(player.Events({TAVO_EVENT_TITLE, TAVO_EVENT_METER}), ElementsAre("title 0 Song 1", "meter 0 4/4"));
    EXPECT_EQ("ok", player.Do("play"));
    player.Render(2 * BarFrames + BarFrames / 2);
    EXPECT_THAT(player.Events({TAVO_EVENT_STATUS, TAVO_EVENT_VAMP_LAMP, TAVO_EVENT_METER}),
                testing::Contains(testing::MatchesRegex("vamp-lamp 19.. 1")));
}

/// The bytes of a WAV file's sound.
std::string SoundOf(const std::string& path) {
    const std::string file = test_support::ReadAll(path);
    const std::size_t chunk = file.find("data");
    return chunk == std::string::npos ? "" : file.substr(chunk + 8);
}

std::string SoundOf(const std::vector<float>& left, const std::vector<float>& right, std::size_t from) {
    const test_support::TemporaryDirectory directory;
    stage::AudioFile file(directory / "sound.wav", 48000);
    file.Write(left.data() + from, right.data() + from, static_cast<std::uint32_t>(left.size() - from));
    file.Finish();
    return SoundOf(directory / "sound.wav");
}

/// What `stage render` makes of a script, and what a player does to which the same commands are given at the same
/// frames, up to the last of them.
void ExpectSameSound(const std::string& show, const std::string& song,
                     const std::vector<std::pair<std::uint32_t, std::string>>& presses, std::uint32_t block) {
    constexpr std::size_t BytesPerFrame = 6;
    const test_support::TemporaryDirectory directory;
    std::string script;
    for (const auto& [frame, line] : presses)
        script += "at frame " + std::to_string(frame) + " " + line + "\n";
    test_support::WriteAll(directory / "script", script);
    const auto render = test_support::RunStage({"render", show, "--song", song, "--script", directory / "script",
                                                "--click", "--out", directory / "stage.wav"});
    ASSERT_EQ(0, render.exitCode) << render.err;

    tavo_player_options options{};
    options.flags = TAVO_PLAYER_OFFLINE | TAVO_PLAYER_CLICK;
    OpenPlayer player(show, options);
    ASSERT_EQ("ok", player.Do("load " + song));
    ASSERT_EQ("ok", player.Do("play"));
    std::uint32_t latency = 0;
    ASSERT_EQ(TAVO_OK, tavo_player_latency(player.handle, &latency));
    for (const auto& [frame, line] : presses) {
        player.Render(frame - player.left.size(), block);
        ASSERT_EQ("ok", player.Do(line));
    }
    const std::string rendered = SoundOf(player.left, player.right, latency);
    const std::string expected = SoundOf(directory / "stage.wav").substr(0, rendered.size());
    ASSERT_EQ(expected.size(), rendered.size());
    const auto differing = std::mismatch(expected.begin(), expected.end(), rendered.begin()).first;
    EXPECT_TRUE(expected.end() == differing)
        << "they differ at frame " << static_cast<std::size_t>(differing - expected.begin()) / BytesPerFrame;
    EXPECT_GT(std::count_if(player.left.begin(), player.left.end(), [](float value) { return value != 0; }), 100000);
}

TEST(CPlayer, DemoWithScript_SoundsAsStageRendersIt_ToTheSample) {
    const test_support::TemporaryDirectory directory;
    const std::string show = MakeDemo(directory);
    // Tempo, pitch, a seek and a pause, and an exit from the vamp, in blocks that fit nothing.
    ExpectSameSound(show, "2",
                    {{24000, "tempo 110%"},
                     {60001, "transpose +2"},
                     {130000, "exit"},
                     {190007, "seek 5"},
                     {230000, "pause"},
                     {254444, "continue"},
                     {270000, "volume 60%"},
                     {320000, "quit"}},
                    317);
    // Into a hold, and out of it.
    ExpectSameSound(show, "3", {{1000, "seek 20"}, {190000, "exit"}, {240000, "quit"}}, 4099);
}

/// Sound by each of a player's pairs, as long as what was rendered.
class Pairs {
public:
    explicit Pairs(const OpenPlayer& player) : player_(player) {
        std::uint32_t count = 0;
        EXPECT_EQ("ok", Say(tavo_player_pair_count(player.handle, &count)));
        sounds_.resize(count);
    }

    [[nodiscard]] std::vector<std::string> ListNames() const {
        std::vector<std::string> names;
        for (std::uint32_t i = 0; i < sounds_.size(); ++i) {
            const char* name = nullptr;
            EXPECT_EQ("ok", Say(tavo_player_pair_name(player_.handle, i, &name)));
            names.emplace_back(name);
        }
        return names;
    }

    /// Into the first pairs only; the others hear nothing.
    void Render(std::size_t frames, std::uint32_t block, std::size_t count) {
        const std::size_t begin = sounds_.front().left.size();
        for (Sound& sound : sounds_) {
            sound.left.resize(begin + frames);
            sound.right.resize(begin + frames);
        }
        for (std::size_t done = 0; done < frames; done += block) {
            std::vector<tavo_pair> pairs;
            for (std::size_t i = 0; i < count; ++i)
                pairs.push_back({sounds_[i].left.data() + begin + done, sounds_[i].right.data() + begin + done});
            const auto piece = static_cast<std::uint32_t>(std::min<std::size_t>(block, frames - done));
            ASSERT_EQ("ok", Say(tavo_player_render_pairs(player_.handle, pairs.data(),
                                                         static_cast<std::uint32_t>(count), piece)));
        }
    }
    void Render(std::size_t frames, std::uint32_t block) { Render(frames, block, sounds_.size()); }

    [[nodiscard]] const std::vector<float>& LeftOf(std::size_t pair) const { return sounds_[pair].left; }
    [[nodiscard]] std::string SoundOf(std::size_t pair, std::size_t from) const {
        return ::SoundOf(sounds_[pair].left, sounds_[pair].right, from);
    }

private:
    struct Sound {
        std::vector<float> left;
        std::vector<float> right;
    };
    const OpenPlayer& player_;
    std::vector<Sound> sounds_;
};

std::size_t CountSounding(const std::vector<float>& samples) {
    return static_cast<std::size_t>(
        std::count_if(samples.begin(), samples.end(), [](float value) { return value != 0; }));
}

void GiveBandItsOwnPair(const std::string& show) {
    test_support::WriteAll(show + "/settings.json",
                           R"({"groups": [{"name": "band", "channels": [1, 2], "output": "own"}]})");
}

TEST(CPlayer, EachPair_SoundsAsItsFileOfStageRender_ToTheSample) {
    constexpr std::size_t Frames = 300'000;
    const test_support::TemporaryDirectory directory;
    const std::string show = MakeDemo(directory);
    GiveBandItsOwnPair(show);
    test_support::WriteAll(directory / "script", "at frame 100003 seek 5\nat frame 300000 quit\n");
    const auto render = test_support::RunStage(
        {"render", show, "--song", "2", "--script", directory / "script", "--click-everywhere", "--click-out",
         directory / "click.wav", "--group-out", "band=" + (directory / "band.wav"), "--out", directory / "main.wav"});
    ASSERT_EQ(0, render.exitCode) << render.err;
    // The shortest blocks are shorter than what is held back.
    for (const std::uint32_t block : {17U, 512U}) {
        tavo_player_options options{};
        options.flags = TAVO_PLAYER_OFFLINE | TAVO_PLAYER_CLICK_EVERYWHERE;
        OpenPlayer player(show, options);
        Pairs pairs(player);
        ASSERT_THAT(pairs.ListNames(), ElementsAre("main", "click", "band"));
        ASSERT_EQ("ok", player.Do("load 2"));
        ASSERT_EQ("ok", player.Do("play"));
        pairs.Render(100'003, block);
        ASSERT_EQ("ok", player.Do("seek 5"));
        pairs.Render(Frames - 100'003, block);
        std::uint32_t latency = 0;
        ASSERT_EQ(TAVO_OK, tavo_player_latency(player.handle, &latency));
        for (const auto& [pair, file] :
             {std::pair(0, "main.wav"), std::pair(1, "click.wav"), std::pair(2, "band.wav")}) {
            const std::string expected = SoundOf(directory / file);
            const std::string rendered = pairs.SoundOf(static_cast<std::size_t>(pair), latency);
            ASSERT_GE(expected.size(), rendered.size()) << file;
            EXPECT_TRUE(expected.starts_with(rendered)) << file << " in blocks of " << block;
            EXPECT_GT(CountSounding(pairs.LeftOf(static_cast<std::size_t>(pair))), 10'000U) << file;
        }
    }
}

TEST(CPlayer, PairThatIsNotGiven_IsNotHeardAndBeginsWithSilence) {
    const test_support::TemporaryDirectory directory;
    const std::string show = MakeDemo(directory);
    GiveBandItsOwnPair(show);
    OpenPlayer player(show);
    Pairs pairs(player);
    ASSERT_EQ("ok", player.Do("load 2"));
    ASSERT_EQ("ok", player.Do("play"));
    pairs.Render(100'000, 512);
    const std::size_t sounding = CountSounding(pairs.LeftOf(2));
    EXPECT_GT(sounding, 10'000U);
    pairs.Render(10'000, 512, 1);
    pairs.Render(10'000, 512);
    const auto again = pairs.LeftOf(2).begin() + 110'000;
    std::uint32_t latency = 0;
    ASSERT_EQ(TAVO_OK, tavo_player_latency(player.handle, &latency));
    EXPECT_EQ(latency, std::count(pairs.LeftOf(2).begin() + 100'000, again + latency, 0.0F) - 10'000);
    EXPECT_GT(CountSounding({again + latency, again + 10'000}), 5'000U);
}

TEST(CRender, OfDemo_IsThatOfStage_SoundAndTrace) {
    const test_support::TemporaryDirectory directory;
    const std::string show = MakeDemo(directory);
    const std::string script = "at 8:4 volume 100%\n+1s continue\n";
    test_support::WriteAll(directory / "script", script);
    const auto stage =
        test_support::RunStage({"render", show, "--song", "6", "--from", "6", "--script", directory / "script", "--out",
                                directory / "stage.wav", "--trace", directory / "trace"});
    ASSERT_EQ(0, stage.exitCode) << stage.err;

    struct Heard {
        std::vector<float> left;
        std::vector<float> right;
        std::string trace;
    } heard;
    tavo_render_options options{};
    options.size = sizeof options;
    options.first_song = "6";
    options.from = "6";
    options.script = script.c_str();
    options.user = &heard;
    options.on_sound = [](const float* left, const float* right, std::uint32_t frames, void* user) {
        auto& to = *static_cast<Heard*>(user);
        to.left.insert(to.left.end(), left, left + frames);
        to.right.insert(to.right.end(), right, right + frames);
        return 0;
    };
    options.on_trace = [](const char* line, void* user) {
        static_cast<Heard*>(user)->trace += std::string(line) + "\n";
        return 0;
    };
    char* remarks = nullptr;
    ASSERT_EQ("ok", Say(tavo_render(show.c_str(), &options, &remarks)));
    EXPECT_EQ("", TakeText(remarks));
    EXPECT_EQ(test_support::ReadAll(directory / "trace"), heard.trace);
    EXPECT_TRUE(SoundOf(directory / "stage.wav") == SoundOf(heard.left, heard.right, 0));

    // Whoever has heard enough ends it.
    options.on_sound = [](const float*, const float*, std::uint32_t, void*) { return 1; };
    EXPECT_EQ(TAVO_END, tavo_render(show.c_str(), &options, nullptr));
}

TEST(CPlayer, StatePutBack_GoesOnAsTheFirst) {
    test_support::TestShow made;
    made.Song("1", 2).Song("2", 8).Edits("repeat 2 3 4\nvamp 5 5\ncaesura 7");
    const MadeShow show(made);
    std::string state;
    std::vector<std::string> expected;
    {
        OpenPlayer player(show.Path());
        EXPECT_EQ("ok", player.Do("load 2"));
        EXPECT_EQ("ok", player.Do("play"));
        // In the second pass of the repeat, on the second beat of bar 3.
        player.Render(4 * BarFrames + BarFrames / 4);
        char* taken = nullptr;
        ASSERT_EQ("ok", Say(tavo_player_take_state(player.handle, &taken)));
        state = TakeText(taken);
        static_cast<void>(player.Events());
        player.Render(8 * BarFrames);
        EXPECT_EQ("ok", player.Do("exit"));
        player.Render(3 * BarFrames);
        expected = player.Events({TAVO_EVENT_JUMP, TAVO_EVENT_CAESURA, TAVO_EVENT_BEAT});
    }
    EXPECT_THAT(expected, testing::IsSupersetOf({"jump 5760 -> 1920", "jump 9600 -> 7680", "caesura 11520"}));
    OpenPlayer player(show.Path());
    EXPECT_EQ("ok", Say(tavo_player_put_state(player.handle, state.c_str())));
    EXPECT_EQ(1U, player.Status().song);
    EXPECT_EQ(TAVO_MOTION_STOPPED, static_cast<int>(player.Status().motion));
    EXPECT_EQ("ok", player.Do("play"));
    static_cast<void>(player.Events());
    player.Render(8 * BarFrames);
    EXPECT_EQ("ok", player.Do("exit"));
    player.Render(3 * BarFrames);
    std::vector<std::string> events = player.Events({TAVO_EVENT_JUMP, TAVO_EVENT_CAESURA, TAVO_EVENT_BEAT});
    // It is led to its place by a jump, and arrives there once more.
    std::erase_if(events,
                  [&](const std::string& event) { return event.starts_with("jump 0 -> ") || event == "beat 4320"; });
    std::erase(expected, "beat 4320");
    EXPECT_EQ(expected, events);
}

TEST(CPlayer, StateThatIsNone_IsRefusedInOneSentence) {
    const MadeShow show = MakeEvening();
    OpenPlayer player(show.Path());
    char* state = nullptr;
    EXPECT_EQ("failed: no song is loaded", Say(tavo_player_take_state(player.handle, &state)));
    EXPECT_EQ(nullptr, state);
    EXPECT_THAT(Say(tavo_player_put_state(player.handle, "{}")), HasSubstr("failed: "));
    EXPECT_EQ(TAVO_NO_SONG, player.Status().song);
}

TEST(CPlayer, Callback_HearsAllOnTheCallersThread_AndMayCommand) {
    const MadeShow show = MakeEvening();
    OpenPlayer player(show.Path());
    struct Heard {
        tavo_player* player;
        std::thread::id thread;
        std::vector<std::string> events;
        std::string closing;
        int wrongThreads = 0;
    } heard{player.handle, std::this_thread::get_id(), {}, "", 0};
    EXPECT_EQ(TAVO_OK, tavo_player_set_callback(
                           player.handle,
                           [](const tavo_event* event, void* user) {
                               auto& to = *static_cast<Heard*>(user);
                               if (std::this_thread::get_id() != to.thread) ++to.wrongThreads;
                               if (Flow.contains(event->kind)) to.events.push_back(c_api_test::Describe(*event));
                               // The operator's: out of the vamp in its second pass.
                               if (event->kind == TAVO_EVENT_JUMP) {
                                   EXPECT_EQ("ok", Say(tavo_player_command(to.player, "exit")));
                                   to.closing = Say(tavo_player_close(to.player));
                               }
                           },
                           &heard));
    EXPECT_EQ("ok", player.Do("load 1"));
    EXPECT_EQ("ok", player.Do("play"));
    player.Render(5 * BarFrames + BarFrames / 2);
    EXPECT_EQ(0, heard.wrongThreads);
    EXPECT_THAT(heard.events, ElementsAre("song 0 Song 1", "started 0", "jump 3840 -> 1920", "hold 7680"));
    EXPECT_EQ("busy: another call uses the player: close it when that has returned", heard.closing);
    tavo_event event;
    EXPECT_EQ(TAVO_END, tavo_player_next_event(player.handle, &event));
    // Without it they are there to be fetched again.
    EXPECT_EQ(TAVO_OK, tavo_player_set_callback(player.handle, nullptr, nullptr));
    EXPECT_EQ("ok", player.Do("exit"));
    player.Render(BarFrames);
    EXPECT_THAT(player.Events({TAVO_EVENT_RELEASE}), ElementsAre("release 7680"));
}

TEST(CPlayer, CommandsOfAnotherThreadWhileItRenders_AreObeyed) {
    const MadeShow show = MakeEvening();
    OpenPlayer player(show.Path());
    EXPECT_EQ("ok", player.Do("load 1"));
    EXPECT_EQ("ok", player.Do("play"));
    std::thread other([&] {
        for (int i = 0; i < 200; ++i) {
            EXPECT_EQ("ok", player.Do(i % 2 == 0 ? "tempo 110%" : "tempo 90%"));
            static_cast<void>(player.Status());
            tavo_event event;
            while (tavo_player_next_event(player.handle, &event) == TAVO_OK) {
            }
        }
    });
    for (int i = 0; i < 50; ++i)
        player.Render(4096, 64);
    other.join();
    // In the vamp by now, whatever the tempos were in between.
    EXPECT_EQ("ok", player.Do("exit"));
    player.Render(5 * BarFrames);
    EXPECT_EQ(TAVO_MOTION_HOLDING, static_cast<int>(player.Status().motion));
}

TEST(CPlayer, PressTwice_IsRefusedWithinTheGuardsTime_CommandIsNot) {
    test_support::TestShow made;
    made.Song("1", 8).Edits("vamp 2 2");
    const MadeShow show(made);
    OpenPlayer player(show.Path());
    EXPECT_EQ("ok", Say(tavo_player_press(player.handle, "load 1")));
    EXPECT_EQ("ok", Say(tavo_player_press(player.handle, "play")));
    player.Render(100);
    EXPECT_THAT(Say(tavo_player_press(player.handle, "play")), HasSubstr("refused: "));
    EXPECT_EQ("ok", player.Do("play"));
    player.Render(48000);
    EXPECT_EQ("ok", Say(tavo_player_press(player.handle, "play")));
}

TEST(CPlayer, WhatIsWrong_IsSaidInOneSentence_AndChangesNothing) {
    const MadeShow show = MakeEvening();
    tavo_player* none = nullptr;
    EXPECT_EQ("bad argument: path is a null pointer", Say(tavo_player_open(nullptr, nullptr, &none)));
    EXPECT_EQ("bad argument: player is a null pointer", Say(tavo_player_open(show.Path().c_str(), nullptr, nullptr)));
    EXPECT_THAT(Say(tavo_player_open("/nowhere/at/all", nullptr, &none)), HasSubstr("/nowhere/at/all"));
    tavo_player_options options{};
    options.size = 3;
    EXPECT_THAT(Say(tavo_player_open(show.Path().c_str(), &options, &none)),
                HasSubstr("bad argument: the options' size is 3"));
    options.size = sizeof options;
    options.frames_per_second = 7;
    EXPECT_EQ("bad argument: the sample rate is 7 and must be from 8000 to 96000 frames a second",
              Say(tavo_player_open(show.Path().c_str(), &options, &none)));
    options.frames_per_second = 0;
    options.flags = 1U << 31U;
    EXPECT_EQ("bad argument: the flags have bits that this library does not know",
              Say(tavo_player_open(show.Path().c_str(), &options, &none)));
    options.flags = 0;
    options.editing = 9;
    EXPECT_EQ("bad argument: the editing is none of TAVO_EDITS_...",
              Say(tavo_player_open(show.Path().c_str(), &options, &none)));
    options.editing = 0;
    options.version = "7.7";
    EXPECT_THAT(Say(tavo_player_open(show.Path().c_str(), &options, &none)), HasSubstr("not found: "));
    options.version = "seven";
    EXPECT_THAT(Say(tavo_player_open(show.Path().c_str(), &options, &none)), HasSubstr("bad argument: "));
    EXPECT_EQ(nullptr, none);

    OpenPlayer player(show.Path());
    EXPECT_EQ("busy: this process has a player already: close that one first",
              Say(tavo_player_open(show.Path().c_str(), nullptr, &none)));
    EXPECT_EQ("busy: this process has a player already: close that one first",
              Say(tavo_render(show.Path().c_str(), nullptr, nullptr)));
    EXPECT_THAT(player.Do("dance"), HasSubstr("bad argument: "));
    EXPECT_THAT(player.Do(""), HasSubstr("bad argument: "));
    EXPECT_THAT(player.Do("tempo 900%"), HasSubstr("bad argument: "));
    EXPECT_THAT(player.Do("load 77"), HasSubstr("bad argument: "));
    EXPECT_THAT(player.Do("play"), HasSubstr("refused: "));
    EXPECT_EQ("bad argument: line is a null pointer", Say(tavo_player_command(player.handle, nullptr)));
    float sound[8];
    EXPECT_EQ("bad argument: left is a null pointer", Say(tavo_player_render(player.handle, nullptr, sound, 8)));
    EXPECT_EQ("bad argument: right is a null pointer", Say(tavo_player_render(player.handle, sound, nullptr, 8)));
    EXPECT_EQ("ok", Say(tavo_player_render(player.handle, sound, sound, 0)));
    std::uint32_t pairCount = 0;
    EXPECT_EQ("ok", Say(tavo_player_pair_count(player.handle, &pairCount)));
    EXPECT_EQ(2U, pairCount);
    EXPECT_EQ("bad argument: count is a null pointer", Say(tavo_player_pair_count(player.handle, nullptr)));
    const char* name = nullptr;
    EXPECT_EQ("bad argument: name is a null pointer", Say(tavo_player_pair_name(player.handle, 0, nullptr)));
    EXPECT_EQ("not found: the player has 2 pairs, counted from 0, and none is 2",
              Say(tavo_player_pair_name(player.handle, 2, &name)));
    const tavo_pair pairs[] = {{sound, sound + 4}, {sound, nullptr}, {sound, sound}};
    EXPECT_EQ("bad argument: pairs is a null pointer", Say(tavo_player_render_pairs(player.handle, nullptr, 1, 4)));
    EXPECT_EQ("bad argument: pair 1 has a null pointer", Say(tavo_player_render_pairs(player.handle, pairs, 2, 4)));
    for (const std::uint32_t count : {0U, 3U, ~0U})
        EXPECT_EQ("bad argument: the player has 2 pairs: render 1 to 2 of them, not " + std::to_string(count),
                  Say(tavo_player_render_pairs(player.handle, pairs, count, 4)));
    EXPECT_EQ("ok", Say(tavo_player_render_pairs(player.handle, pairs, 1, 0)));
    EXPECT_EQ("bad argument: event is a null pointer", Say(tavo_player_next_event(player.handle, nullptr)));
    EXPECT_EQ("ok", Say(tavo_player_position(player.handle, nullptr, nullptr)));
}

TEST(CPlayer, HandlesThatAreNullClosedOrMadeUp_AreRefused) {
    const MadeShow show = MakeEvening();
    float sound[8];
    tavo_player* closed = nullptr;
    tavo_show* closedShow = nullptr;
    {
        OpenPlayer player(show.Path());
        closed = player.handle;
        EXPECT_EQ(TAVO_OK, tavo_player_show(player.handle, &closedShow));
        EXPECT_EQ("bad argument: the show belongs to a player and is closed with it", Say(tavo_show_close(closedShow)));
    }
    EXPECT_EQ("bad handle: the player is a null handle", Say(tavo_player_render(nullptr, sound, sound, 8)));
    std::uint32_t count = 0;
    for (tavo_player* wrong :
         {closed, reinterpret_cast<tavo_player*>(&sound), reinterpret_cast<tavo_player*>(~std::uintptr_t{0})}) {
        const std::string said = "bad handle: the player is not open: it was closed, or is no handle";
        EXPECT_EQ(said, Say(tavo_player_render(wrong, sound, sound, 8)));
        EXPECT_EQ(said, Say(tavo_player_render_pairs(wrong, nullptr, 1, 8)));
        EXPECT_EQ(said, Say(tavo_player_pair_count(wrong, &count)));
        EXPECT_EQ(said, Say(tavo_player_pair_name(wrong, 0, nullptr)));
        EXPECT_EQ(said, Say(tavo_player_command(wrong, "play")));
        EXPECT_EQ(said, Say(tavo_player_position(wrong, nullptr, nullptr)));
        EXPECT_EQ(said, Say(tavo_player_close(wrong)));
    }
    EXPECT_EQ("bad handle: the show is not open: it was closed, or is no handle",
              Say(tavo_show_song_count(closedShow, &count)));
    EXPECT_EQ("bad handle: the show is a null handle", Say(tavo_show_song_count(nullptr, &count)));
    // A new player in its place is another one.
    OpenPlayer player(show.Path());
    EXPECT_NE(closed, player.handle);
    EXPECT_EQ(TAVO_BAD_HANDLE, tavo_player_command(closed, "load 1"));
}

TEST(CPlayer, EventsThatNobodyFetches_AreCountedWhereTheyAreMissing) {
    test_support::TestShow made;
    made.Song("1", 2);
    const MadeShow show(made);
    OpenPlayer player(show.Path());
    EXPECT_EQ("ok", player.Do("load 1"));
    constexpr int Presses = 65536 + 1000;
    for (int i = 0; i < Presses; ++i)
        ASSERT_EQ(TAVO_OK, tavo_player_command(player.handle, "quit"));
    tavo_event event;
    ASSERT_EQ(TAVO_OK, tavo_player_next_event(player.handle, &event));
    EXPECT_EQ(TAVO_EVENT_LOST, static_cast<int>(event.kind));
    int fetched = 0;
    const int lost = event.number;
    int quits = 0;
    for (; tavo_player_next_event(player.handle, &event) == TAVO_OK; ++fetched)
        quits += event.kind == TAVO_EVENT_QUIT ? 1 : 0;
    EXPECT_EQ(65535, fetched);
    EXPECT_EQ(65535, quits);
    EXPECT_GT(lost, 1000);
}

}  // namespace
