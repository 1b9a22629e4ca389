// Effects and ambiences on a real JACK server: what was recorded is what the take renders to, and what is wrong with a
// sound is told.

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/live/rendered_take.h"
#include "tests/stage/small_show.h"
#include "tests/support/sound_files.h"

namespace {

using test_support::LiveProgram;
using test_support::StereoSound;

class LiveSounds : public test_support::SmallShow {
protected:
    void SetUp() override {
        std::filesystem::create_directory(Show() + "/sounds");
        // One at another rate, so that it has to be converted.
        test_support::WriteExactSound(Show() + "/sounds/door.wav", test_support::MakeSine(96'000, 330, 48000, 0.2));
        test_support::WriteExactSound(Show() + "/sounds/rain.wav", test_support::MakeSine(12'345, 500, 44100, 0.1),
                                      44100);
        test_support::WriteBytes(Show() + "/sounds/letter.wav", "Dear producer");
        for (const char* edit :
             {"add vamp --song 1 --from 2 --to 2", "add sfx --song 1 --at 2:3 --sound sounds/door.wav --gain -3",
              "add ambient --song 1 --from 1:3 --to 6 --sound sounds/rain.wav",
              "add sfx --song 1 --at 7 --to 8 --sound sounds/door.wav", "add caesura --song 1 --at 5",
              "add ambient --song 1 --from 9 --to 15 --sound sounds/rain.wav --gain -6",
              "add sfx --song 1 --at 19 --sound sounds/letter.wav"}) {
            const auto result = Edit(edit);
            ASSERT_EQ(0, result.exitCode) << edit << ": " << result.err;
        }
    }
    [[nodiscard]] std::string Take() const { return directory_ / "evening.take"; }
    [[nodiscard]] std::string Recording() const { return directory_ / "recording.raw"; }

    /// Plays through all of it and records it beside; false where a period or a sound came too late.
    bool TryToPerform() {
        LiveProgram play({Show(), "--output", "jack", "--take", Take(), "--lead", "4096"});
        // By then the song's sounds have been read, the rain before.
        play.WaitFor("message", {{"sentence", Broken}});
        test_support::PairRecorder recorder(Recording());
        play.Press("tempo 200%");
        play.Press("play");
        play.WaitFor("jump", {{"reason", "loop"}});
        play.Press("volume 50% effects");
        play.WaitFor("jump", {{"reason", "loop"}});
        play.Press("exit");
        play.WaitFor("bar", {{"bar", "3"}});
        play.Press("volume 70% ambience");
        play.WaitFor("bar", {{"bar", "4"}});
        // What is counted in before the music goes on belongs to the take.
        play.Press("count-in 3");
        play.Press("pause");
        play.WaitFor("stopped");
        play.Press("go");
        play.WaitFor("caesura");
        play.Press("continue");
        play.WaitFor("bar", {{"bar", "8"}});
        play.Press("seek 12:2");
        play.WaitFor("jump", {{"reason", "seek"}});
        play.Press("edit add sfx --at 14 --sound sounds/door.wav");
        play.WaitFor("bar", {{"bar", "16"}});
        play.Press("stop");
        play.WaitFor("stopped");
        const nlohmann::json status = play.Status();
        play.Quit();
        return recorder.End() && status["latePeriods"] == 0;
    }

    static constexpr const char* Broken =
        "Song 1: the sound \"sounds/letter.wav\" at 19 cannot be played: it is not a WAV, FLAC, Ogg, Opus or MP3 file, "
        "or is damaged.";
};

TEST_F(LiveSounds, RecordedPerformanceWithEffectsAndAnAmbience_IsTheTakesRender) {
    if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
    if (!test_support::EnterOwnSharedMemory())
        GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
    test_support::Perform(Take(), [this](auto&) { return TryToPerform(); });
    if (IsSkipped() || HasFatalFailure()) return;
    const StereoSound recorded = test_support::ReadRecording(Recording());
    const StereoSound rendered = test_support::RenderTake(Show(), Take());
    const std::size_t comparable = test_support::CountPlayedFrames(rendered, Take());
    EXPECT_GT(comparable, std::size_t{10} * 48000);
    EXPECT_LE(comparable, test_support::CountSameFrames(recorded, rendered));
    // The sounds are there: without them the take is another.
    std::filesystem::remove(Show() + "/sounds/rain.wav");
    const StereoSound without = test_support::RenderTake(Show(), Take());
    EXPECT_GT(comparable, test_support::CountSameFrames(recorded, without));
}

}  // namespace
