// Output groups on a real JACK server: a pair of its own, a SoundFont and the reverb are, sample for sample, what
// `stage render` writes.

#include <gtest/gtest.h>
#include <sndfile.h>

#include "stage/offline/audio_file.h"
#include "tests/live/rendered_take.h"
#include "tests/stage/small_show.h"
#include "tests/support/sound_font_file.h"

namespace {

using test_support::LiveProgram;
using test_support::StereoSound;

StereoSound ReadSoundFile(const std::string& path) {
    SF_INFO info{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    StereoSound sound;
    if (file == nullptr) return sound;
    std::vector<float> samples(2 * static_cast<std::size_t>(info.frames));
    sf_readf_float(file, samples.data(), info.frames);
    sf_close(file);
    for (std::size_t i = 0; i < samples.size(); i += 2) {
        sound.left.push_back(samples[i]);
        sound.right.push_back(samples[i + 1]);
    }
    return sound;
}

class LiveGroups : public test_support::SmallShow {
protected:
    void SetUp() override {
        test_support::WriteSineFont(Show() + "/sine.sf2", {{0, 0}});
        test_support::WriteAll(Show() + "/settings.json", R"({"groups": [
            {"name": "keys", "channels": [1], "output": "own", "soundfont": "sine.sf2", "reverbDb": -3},
            {"name": "brass", "channels": [2], "soundfont": "missing.sf2"}]})");
    }
    [[nodiscard]] std::string Path(const char* name) const { return directory_ / name; }

    /// Plays some bars and records both pairs; false where a period came too late.
    bool TryToPerform() {
        LiveProgram play({Show(), "--output", "jack", "--take", Path("evening.take"), "--lead", "4096"});
        play.WaitFor("message",
                     {{"sentence",
                       "The group \"brass\" plays with the show's SoundFont: its own, \"missing.sf2\", is not "
                       "there."}});
        play.WaitFor("song", {{"song", "1"}});
        test_support::PairRecorder own(Path("own.raw"), "keys");
        test_support::PairRecorder main(Path("main.raw"));
        play.Press("tempo 300%");
        play.Press("play");
        play.WaitFor("bar", {{"bar", "2"}});
        play.Press("volume 50% keys");
        play.WaitFor("bar", {{"bar", "3"}});
        play.Press("mute keys");
        play.Press("seek 6");
        play.WaitFor("jump", {{"reason", "seek"}});
        play.Press("unmute keys");
        play.WaitFor("bar", {{"bar", "7"}});
        const nlohmann::json status = play.Status();
        play.Quit();
        const bool isOwnWhole = own.End();
        return main.End() && isOwnWhole && status["latePeriods"] == 0;
    }
    /// The recording as a file of the render's kind would hold it.
    [[nodiscard]] StereoSound ReadAsRendered(const char* recording) const {
        const StereoSound sound = test_support::ReadRecording(Path(recording));
        stage::AudioFile file(Path("recorded.wav"), 48000);
        file.Write(sound.left.data(), sound.right.data(), static_cast<std::uint32_t>(sound.left.size()));
        file.Finish();
        return ReadSoundFile(Path("recorded.wav"));
    }
};

TEST_F(LiveGroups, PairOfItsOwnAndItsReverb_AreTheFilesOfTheRender) {
    if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
    if (!test_support::EnterOwnSharedMemory())
        GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
    test_support::Perform(Path("evening.take"), [this](auto&) { return TryToPerform(); });
    if (IsSkipped() || HasFatalFailure()) return;
    const auto render = test_support::RunStage({"render", Show(), "--script", Path("evening.take"), "--out",
                                                Path("main.wav"), "--group-out", "keys=" + Path("own.wav")});
    ASSERT_EQ(0, render.exitCode) << render.err;
    for (const auto& [recording, rendering] : {std::pair("own.raw", "own.wav"), std::pair("main.raw", "main.wav")}) {
        const StereoSound recorded = ReadAsRendered(recording);
        const StereoSound rendered = ReadSoundFile(Path(rendering));
        const std::size_t comparable = test_support::CountPlayedFrames(rendered, Path("evening.take"));
        EXPECT_GT(comparable, std::size_t{2} * 48000) << rendering;
        EXPECT_LE(comparable, test_support::CountSameFrames(recorded, rendered)) << rendering;
    }
}

}  // namespace
