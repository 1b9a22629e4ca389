// What a performance sounded like on a real JACK server is, sample for sample, what its take renders to.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "stage/control/take.h"
#include "tests/live/rendered_take.h"
#include "tests/stage/small_show.h"
#include "tests/support/corpus.h"

namespace {

using test_support::CountPlayedFrames;
using test_support::LiveProgram;
using test_support::RenderTake;
using test_support::StereoSound;

struct Format {
    unsigned int framesPerSecond;
    unsigned int periodFrames;
};

class TakeRender : public test_support::SmallShow {
protected:
    void SetUp() override {
        if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
        if (!test_support::EnterOwnSharedMemory())
            GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
        for (const char* edit :
             {"add vamp --song 1 --from 2 --to 2", "add repeat --song 1 --from 4 --to 4 --times 2",
              "add fermata --song 1 --from 6:3 --to 6:4", "add caesura --song 1 --at 8:1",
              "add cut --song 1 --from 10 --to 11", "add transposition --song 1 --from 12 --to 12 --semitones 2",
              "add tempo-scale --song 1 --from 13 --to 13 --percent 130", "attacca --song 1 attacca"}) {
            const auto result = Edit(edit);
            ASSERT_EQ(0, result.exitCode) << edit << ": " << result.err;
        }
    }

    /// Plays an evening that meets all of it, and records it beside; false where a period came too late.
    bool TryToPerform() {
        // Far ahead: a machine that is busy with something else must not change what is heard.
        LiveProgram play({Show(), "--output", "jack", "--take", Take(), "--lead", "4096"});
        play.WaitFor("ready");
        play.WaitFor("song", {{"song", "1"}});
        test_support::PairRecorder recorder(Recording());
        play.Press("tempo 200%");
        play.Press("play");
        play.WaitFor("jump", {{"reason", "loop"}});
        play.Press("exit");
        play.WaitFor("bar", {{"bar", "3"}});
        play.Press("transpose 3");
        play.Press("volume 70%");
        play.WaitFor("jump", {{"reason", "loop"}});
        play.WaitFor("hold");
        play.Press("exit");
        play.WaitFor("release");
        play.WaitFor("caesura");
        play.Press("continue");
        play.WaitFor("jump", {{"reason", "cut"}});
        play.Press("pause");
        play.WaitFor("stopped");
        play.Press("go");
        play.Press("edit add cut 16 17");
        play.WaitFor("press", {{"outcome", "taken"}, {"door", "terminal"}});
        play.WaitFor("bar", {{"bar", "14"}});
        play.Press("next-measure");
        play.WaitFor("jump", {{"reason", "seek"}});
        play.WaitFor("jump", {{"reason", "cut"}});
        play.Press("seek 19:3");
        play.WaitFor("song", {{"song", "2"}});
        play.WaitFor("bar", {{"song", "2"}, {"bar", "2"}});
        play.Press("fade 0.7");
        play.WaitFor("stopped");
        play.Press("play");
        play.WaitFor("bar", {{"song", "2"}, {"bar", "2"}});
        play.Press("panic");
        play.WaitFor("stopped");
        const nlohmann::json status = play.Status();
        play.Quit();
        return recorder.End() && status["latePeriods"] == 0;
    }

    [[nodiscard]] std::string Take() const { return directory_ / "evening.take"; }
    [[nodiscard]] std::string Recording() const { return directory_ / "recording.raw"; }
};

class TakeRenderFormats : public TakeRender, public testing::WithParamInterface<Format> {};

TEST_P(TakeRenderFormats, RecordedPerformance_IsTheTakesRender) {
    test_support::Perform(
        Take(), [this](auto&) { return TryToPerform(); },
        [] { return test_support::StartJackServer("-S", GetParam().framesPerSecond, GetParam().periodFrames); });
    if (IsSkipped() || HasFatalFailure()) return;
    const StereoSound recorded = test_support::ReadRecording(Recording());
    const StereoSound rendered = RenderTake(Show(), Take());
    const std::size_t comparable = CountPlayedFrames(
        rendered, Take(), std::max<std::size_t>(test_support::NotPlayedFrames, 3 * GetParam().periodFrames));
    EXPECT_GT(comparable, 10 * GetParam().framesPerSecond);
    EXPECT_LE(comparable, test_support::CountSameFrames(recorded, rendered));
}

INSTANTIATE_TEST_SUITE_P(Jack, TakeRenderFormats,
                         testing::Values(Format{48000, 32}, Format{48000, 1024}, Format{48000, 8192},
                                         Format{96000, 128}, Format{88200, 64}, Format{44100, 256}),
                         [](const auto& tested) {
                             return std::to_string(tested.param.framesPerSecond) + "_" +
                                    std::to_string(tested.param.periodFrames);
                         });

/// Whether the server keeps time. One that waits for its clients waits in vain for one now and then when they came back
/// while the machine was busy, in every cycle, and plays in slow motion.
bool KeepsTime(LiveProgram& play) {
    const auto findElapsed = [&play] { return play.Status()["elapsedSeconds"].get<double>(); };
    const double before = findElapsed();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    return findElapsed() - before > 0.5;
}

/// Goes on after the server was killed in a vamp, and records that; false where a period came too late.
bool TryToGoOnAfterAKill(const std::string& show, const std::string& take, const std::string& recording,
                         test_support::JackServer& server) {
    LiveProgram play({show, "--output", "jack", "--take", take, "--lead", "4096"});
    play.WaitFor("song", {{"song", "1"}});
    play.Press("play");
    play.WaitFor("jump", {{"reason", "loop"}});
    server->End(SIGKILL);
    play.WaitFor("message", {{"sentence", "The JACK server has gone; sound goes on when it returns."}});
    server = test_support::StartJackServer();
    play.WaitFor("message", {{"sentence", "JACK is back, sound goes on."}});
    test_support::PairRecorder recorder(recording);
    if (!KeepsTime(play)) {
        play.Quit();
        return false;
    }
    play.WaitFor("jump", {{"reason", "loop"}});
    play.Press("exit");
    play.WaitFor("bar", {{"bar", "4"}});
    play.WaitFor("jump", {{"reason", "loop"}});
    const nlohmann::json status = play.Status();
    play.Quit();
    return recorder.End() && status["latePeriods"] == 0;
}

TEST_F(TakeRender, ServerKilledInAVamp_WhatIsHeardAfterwardsIsTheTakesRender) {
    test_support::Perform(Take(),
                          [this](auto& server) { return TryToGoOnAfterAKill(Show(), Take(), Recording(), server); });
    if (IsSkipped() || HasFatalFailure()) return;
    const StereoSound recorded = test_support::ReadRecording(Recording());
    const StereoSound rendered = RenderTake(Show(), Take());
    // Somewhere in the last bar, which was heard for certain: there the two are laid beside each other.
    const auto anchor = static_cast<std::size_t>(stage::ReadTake(Take()).lines.back().frame) - 40'000;
    ASSERT_GT(rendered.left.size(), anchor + 1000);
    // The last such place: bars are alike.
    const std::span<const float> sought = std::span(rendered.left).subspan(anchor, 1000);
    const auto found = std::find_end(recorded.left.begin(), recorded.left.end(), sought.begin(), sought.end());
    ASSERT_NE(recorded.left.end(), found);
    std::size_t before = 0;
    for (auto at = static_cast<std::size_t>(found - recorded.left.begin());
         before < std::min(at, anchor) && recorded.left[at - before] == rendered.left[anchor - before] &&
         recorded.right[at - before] == rendered.right[anchor - before];)
        ++before;
    // From the vamp's last pass on: that one and two bars.
    EXPECT_GT(before, std::size_t{5} * 48'000);
}

/// A work of the corpus, and two of its songs that are played one after the other.
struct Work {
    const char* name;
    const char* first;
    const char* second;
};

/// Plays and records two songs; false where a period came too late.
bool TryToPerformWork(const Work& work, const std::string& show, const std::string& take,
                      const std::string& recording) {
    LiveProgram play({show, "--output", "jack", "--take", take, "--lead", "4096", "--song", work.first});
    play.WaitFor("song", {{"song", work.first}});
    test_support::PairRecorder recorder(recording);
    play.Press("play");
    for (int bar = 0; bar < 2; ++bar)
        play.WaitFor("bar");
    play.Press("next-measure");
    play.WaitFor("jump", {{"reason", "seek"}});
    play.Press("tempo 120%");
    play.Press("transpose -1");
    play.WaitFor("bar");
    play.WaitFor("bar");
    play.Press("fade 0.5");
    play.WaitFor("stopped");
    play.Press(std::string("load ") + work.second);
    play.Press("play");
    for (int bar = 0; bar < 3; ++bar)
        play.WaitFor("bar", {{"song", work.second}});
    const nlohmann::json status = play.Status();
    play.Quit();
    return recorder.End() && status["latePeriods"] == 0;
}

class TakeRenderWorks : public testing::TestWithParam<Work> {};

TEST_P(TakeRenderWorks, RecordedSongs_AreTheTakesRender) {
    SKIP_WITHOUT_CORPUS();
    if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
    if (!test_support::EnterOwnSharedMemory())
        GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
    const test_support::TemporaryDirectory directory;
    const std::string show = directory / "show";
    const std::string take = directory / "work.take";
    const std::string recording = directory / "work.raw";
    const auto imported =
        test_support::RunStage({"import", (test_support::CorpusPath() / GetParam().name).string(), "-o", show});
    ASSERT_EQ(0, imported.exitCode) << imported.err;
    test_support::Perform(take, [&](auto&) { return TryToPerformWork(GetParam(), show, take, recording); });
    if (IsSkipped() || HasFatalFailure()) return;
    const StereoSound recorded = test_support::ReadRecording(recording);
    const StereoSound rendered = RenderTake(show, take);
    const std::size_t comparable = CountPlayedFrames(rendered, take);
    EXPECT_GT(comparable, 48000U);
    EXPECT_LE(comparable, test_support::CountSameFrames(recorded, rendered));
}

INSTANTIATE_TEST_SUITE_P(Corpus, TakeRenderWorks,
                         testing::Values(Work{"show_schubert_muellerin", "2", "5"},
                                         Work{"show_holmes_melodies", "11", "3"}, Work{"show_harrer_abel", "22", "4"}),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
