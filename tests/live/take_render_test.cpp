// What a performance sounded like on a real JACK server is, sample for sample, what its take renders to.

#include <gtest/gtest.h>

#include <sstream>

#include "kit/file.h"
#include "stage/control/script.h"
#include "stage/control/take.h"
#include "stage/offline/offline_show.h"
#include "tests/live/live_program.h"
#include "tests/stage/small_show.h"
#include "tests/support/corpus.h"

namespace {

using test_support::LiveProgram;
using test_support::StereoSound;

/// Rendered ahead and not played yet when the show is ended.
constexpr std::size_t NotPlayedFrames = 8192;

struct Format {
    unsigned int framesPerSecond;
    unsigned int periodFrames;
};

StereoSound RenderTake(const std::string& showPath, const std::string& takePath) {
    const std::string text = kit::ReadFile(takePath, 1U << 26U);
    stage::OfflineOptions options;
    options.take = stage::ReadTakeSettings(text.substr(0, text.find('\n')));
    stage::ShowSession session(showPath, showPath, stage::MakeTakeSessionOptions(*options.take));
    options.script = stage::ParseShowScript(text, takePath, session.GetShow(), "1");
    StereoSound sound;
    stage::OfflineShow show(session, options,
                            [&sound](const float* left, const float* right, std::uint32_t frames) {
                                sound.left.insert(sound.left.end(), left, left + frames);
                                sound.right.insert(sound.right.end(), right, right + frames);
                            },
                            {});
    const stage::OfflineResult result = show.Run();
    EXPECT_TRUE(result.remarks.empty()) << result.remarks.front();
    return sound;
}

/// From the first sound on, what was played for certain before "quit" was pressed.
std::size_t CountPlayedFrames(const StereoSound& rendered, const std::string& takePath) {
    const auto quit = static_cast<std::size_t>(stage::ReadTake(takePath).lines.back().frame);
    return quit - rendered.FindFirstSound() - NotPlayedFrames;
}

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

    /// Plays an evening that meets all of it, and records it beside.
    void Perform(const Format& format) {
        const auto server = test_support::StartJackServer("-S", format.framesPerSecond, format.periodFrames);
        if (server == nullptr) GTEST_SKIP() << "No JACK server with the dummy driver can be started here.";
        // Far ahead: a machine that is busy with something else must not change what is heard.
        LiveProgram play({Show(), "--output", "jack", "--take", Take(), "--lead", "4096"});
        play.WaitFor("ready");
        play.WaitFor("song", {{"song", "1"}});
        test_support::Child recorder(
            {SOUND_PEER, "recorder", Recording(), "tavo-sound:main_left", "tavo-sound:main_right"});
        ASSERT_EQ("recording", recorder.ReadLine());
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
        play.WaitFor("bar", {{"bar", "14"}});
        play.Press("next-measure");
        play.WaitFor("jump", {{"reason", "seek"}});
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
        EXPECT_EQ(0, status["latePeriods"]) << status << TakeWithoutStates();
        EXPECT_EQ(0, recorder.End(SIGTERM)) << "the recorder lost frames";
    }

    [[nodiscard]] std::string Take() const { return directory_ / "evening.take"; }
    [[nodiscard]] std::string TakeWithoutStates() const {
        std::istringstream text(test_support::ReadAll(Take()));
        std::string told;
        for (std::string line; std::getline(text, line);)
            if (line.find(" state ") == std::string::npos) told += "\n" + line;
        return told;
    }
    [[nodiscard]] std::string Recording() const { return directory_ / "recording.raw"; }
};

class TakeRenderFormats : public TakeRender, public testing::WithParamInterface<Format> {};

TEST_P(TakeRenderFormats, RecordedPerformance_IsTheTakesRender) {
    Perform(GetParam());
    if (IsSkipped()) return;
    const StereoSound recorded = test_support::ReadRecording(Recording());
    const StereoSound rendered = RenderTake(Show(), Take());
    const std::size_t comparable = CountPlayedFrames(rendered, Take());
    EXPECT_GT(comparable, 10 * GetParam().framesPerSecond);
    EXPECT_LE(comparable, test_support::CountSameFrames(recorded, rendered));
}

INSTANTIATE_TEST_SUITE_P(Jack, TakeRenderFormats,
                         testing::Values(Format{48000, 32}, Format{48000, 1024}, Format{44100, 256}),
                         [](const auto& tested) {
                             return std::to_string(tested.param.framesPerSecond) + "_" +
                                    std::to_string(tested.param.periodFrames);
                         });

/// A work of the corpus, and two of its songs that are played one after the other.
struct Work {
    const char* name;
    const char* first;
    const char* second;
};

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
    const auto server = test_support::StartJackServer();
    if (server == nullptr) GTEST_SKIP() << "No JACK server with the dummy driver can be started here.";
    LiveProgram play({show, "--output", "jack", "--take", take, "--lead", "4096", "--song", GetParam().first});
    play.WaitFor("song", {{"song", GetParam().first}});
    test_support::Child recorder({SOUND_PEER, "recorder", recording, "tavo-sound:main_left", "tavo-sound:main_right"});
    ASSERT_EQ("recording", recorder.ReadLine());
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
    play.Press(std::string("load ") + GetParam().second);
    play.Press("play");
    for (int bar = 0; bar < 3; ++bar)
        play.WaitFor("bar", {{"song", GetParam().second}});
    const nlohmann::json status = play.Status();
    play.Quit();
    EXPECT_EQ(0, status["latePeriods"]) << status;
    EXPECT_EQ(0, recorder.End(SIGTERM)) << "the recorder lost frames";
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
