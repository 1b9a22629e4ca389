// Sound effects and ambiences in a performance: where they begin, end, wait and go on, measured in what is rendered. A
// bar of the silent song lasts 1920 ticks, two seconds, 96000 frames: 50 frames a tick.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "tests/support/note_song.h"
#include "tests/support/show_builder.h"
#include "tests/support/sound_files.h"

using test_support::MakeStaircase;
using test_support::TemporaryDirectory;
using test_support::TestShow;

namespace {

constexpr std::size_t BarFrames = 96000;
constexpr std::size_t TickFrames = 50;
/// 4 ms, in which what is cut off or taken up fades.
constexpr std::size_t CutFrames = 192;

const std::vector<float>& Door() {
    static const std::vector<float> door = MakeStaircase(30'000);
    return door;
}
const std::vector<float>& Rain() {
    static const std::vector<float> rain = MakeStaircase(7'777);
    return rain;
}

struct Played {
    std::vector<float> left;
    std::vector<float> right;
    stage::OfflineResult result;
};

/// A show of silent songs with the sounds door.wav, of 30000 frames, and rain.wav, of 7777.
class SoundShow : public testing::Test {
protected:
    SoundShow() { Song("1", 8); }

    void Song(const char* number, unsigned int bars) { show_.Song(test_support::MakeNoteSong(number, bars, "", {0})); }
    CL::SongLog& Log(const char* song = "1") { return show_.GetLog().GetSongLog(song); }
    void Effect(std::uint32_t tick, std::uint32_t end = 0, float gain = 0) {
        Log().GetSfxs().Add(CL::Sfx(tick, std::max(tick, end), "door.wav", gain));
    }
    void Ambience(std::uint32_t from, std::uint32_t to, float gain = 0) {
        Log().GetSfxAmbients().Add(CL::SfxAmbient(from, to, "rain.wav", gain));
    }

    Played Play(const char* script = "", const std::string& last = "1") {
        const TemporaryDirectory directory;
        show_.WriteTo(directory);
        test_support::WriteExactSound(directory / "door.wav", Door());
        test_support::WriteExactSound(directory / "rain.wav", Rain());
        if (prepare) prepare(directory);
        stage::ShowSession::Options options = stage::MakeOfflineSessionOptions();
        options.editing = stage::ShowSession::Options::Editing::InMemory;
        stage::ShowSession session(directory.Path(), directory.Path(), options);
        Played played;
        stage::OfflineShow offline(session, show_.MakeOptions(script, "1", last),
                                   [&](const float* left, const float* right, std::uint32_t frames) {
                                       played.left.insert(played.left.end(), left, left + frames);
                                       played.right.insert(played.right.end(), right, right + frames);
                                   },
                                   {});
        played.result = offline.Run();
        return played;
    }

    TestShow show_;
    std::function<void(const TemporaryDirectory&)> prepare;
};

/// The frames from `at` on are those of the sound from `place` on, round and round, to the sample.
void ExpectRound(const Played& played, std::size_t at, std::size_t place, std::size_t frames,
                 const std::vector<float>& sound = Rain()) {
    ASSERT_LE(at + frames, played.left.size());
    for (std::size_t i = 0; i < frames; ++i)
        ASSERT_EQ(sound[(place + i) % sound.size()], played.left[at + i]) << "frame " << at + i;
}

void ExpectSilence(const Played& played, std::size_t from, std::size_t to) {
    ASSERT_LE(to, played.left.size());
    for (std::size_t i = from; i < to; ++i)
        ASSERT_EQ(0.0F, played.left[i]) << "frame " << i;
}

/// Where the sound is cut at `at`, it fades: no step is larger than a fade of 4 ms makes.
void ExpectCut(const Played& played, std::size_t at) {
    for (std::size_t i = at; i < at + CutFrames; ++i)
        ASSERT_LT(std::fabs(played.left[i] - played.left[i - 1]), 0.01F) << "frame " << i;
    ExpectSilence(played, at + CutFrames, std::min(at + 1000, played.left.size()));
}

TEST_F(SoundShow, Effect_BeginsOnItsFrameAndPlaysOut) {
    Effect(1927);
    const Played played = Play();
    const std::size_t at = 1927 * TickFrames;
    ExpectSilence(played, 0, at);
    ExpectRound(played, at, 0, Door().size(), Door());
    ExpectSilence(played, at + Door().size(), at + Door().size() + 1000);
    EXPECT_EQ(played.left, played.right);
    EXPECT_TRUE(played.result.soundProblems.empty());
}

TEST_F(SoundShow, EffectAtAnotherTempo_BeginsOnTheFrameOfItsTick) {
    Effect(2 * 1920 + 77);
    Log().GetTempoScales().Add(CL::TempoScale(0, 1920, 0.7F));
    const Played played = Play();
    const auto at = static_cast<std::size_t>(std::llround(BarFrames / 0.7 + BarFrames + 77 * TickFrames));
    ExpectSilence(played, 0, at);
    ExpectRound(played, at, 0, Door().size(), Door());
}

TEST_F(SoundShow, StereoEffect_HasItsTwoSides) {
    Effect(1920);
    prepare = [](const TemporaryDirectory& directory) {
        std::vector<float> both;
        for (int i = 0; i < 1000; ++i) {
            both.push_back(0.5F);
            both.push_back(-0.25F);
        }
        test_support::WriteExactSound(directory / "door.wav", both, 48000, 2);
    };
    const Played played = Play();
    EXPECT_EQ(0.5F, played.left[BarFrames + 500]);
    EXPECT_EQ(-0.25F, played.right[BarFrames + 500]);
}

TEST_F(SoundShow, ThirtyTwoEffectsAtOnce_AreAllHeardFromTheirFrames) {
    for (std::uint32_t i = 0; i < 32; ++i)
        Effect(1920 + 3 * i, 0, -30);
    const Played played = Play();
    const auto gain = static_cast<float>(std::pow(10.0, -1.5));
    for (std::size_t frame = BarFrames; frame < BarFrames + 36'000; frame += 97) {
        float sum = 0;
        for (std::size_t i = 0; i < 32; ++i) {
            const std::size_t from = BarFrames + 3 * i * TickFrames;
            if (frame >= from && frame < from + Door().size()) sum += gain * Door()[frame - from];
        }
        ASSERT_NEAR(sum, played.left[frame], 1e-5) << frame;
    }
}

TEST_F(SoundShow, EffectWithAnEnd_IsCutOffThere) {
    Effect(1920, 1920 + 240);
    const Played played = Play();
    ExpectRound(played, BarFrames, 0, 240 * TickFrames, Door());
    ExpectCut(played, BarFrames + 240 * TickFrames);
}

TEST_F(SoundShow, Ambience_GoesRoundWithoutASeamToItsEnd) {
    Ambience(960, 3 * 1920);
    const Played played = Play();
    const std::size_t from = 960 * TickFrames;
    ExpectSilence(played, 0, from);
    ExpectRound(played, from, 0, 3 * BarFrames - from);
    ExpectCut(played, 3 * BarFrames);
}

// At 44.1 kHz: a tone that fills its file goes on through every seam.
TEST_F(SoundShow, AmbienceOfAnotherRate_IsOneToneThroughItsSeams) {
    Ambience(0, 4 * 1920);
    prepare = [](const TemporaryDirectory& directory) {
        test_support::WriteExactSound(directory / "rain.wav", test_support::MakeSine(44100 / 2, 440, 44100), 44100);
    };
    const Played played = Play();
    const std::vector<float> ideal = test_support::MakeSine(4 * BarFrames, 440, 48000);
    double ab = 0;
    double aa = 0;
    double bb = 0;
    for (std::size_t i = 0; i < 4 * BarFrames; ++i) {
        ASSERT_NEAR(ideal[i], played.left[i], 1e-3) << i;
        // Around the seams only.
        if ((i + 100) % 24000 >= 200) continue;
        ab += double{ideal[i]} * played.left[i];
        aa += double{ideal[i]} * ideal[i];
        bb += double{played.left[i]} * played.left[i];
    }
    EXPECT_GT(ab / std::sqrt(aa * bb), 0.999999);
}

TEST_F(SoundShow, Stop_IsSilenceWithinFiveMilliseconds) {
    Effect(1920);
    Ambience(0, 8 * 1920, -6);
    const Played played = Play("at frame 100000 stop\n+1s quit");
    EXPECT_GT(played.left[100'000 - 1], 0.3F);
    ExpectCut(played, 100'000);
    ExpectSilence(played, 100'000 + 240, played.left.size());
}

TEST_F(SoundShow, Panic_IsSilenceWithinFiveMilliseconds) {
    Effect(1920);
    Ambience(0, 8 * 1920, -6);
    const Played played = Play("at frame 100000 panic\n+1s quit");
    ExpectCut(played, 100'000);
    ExpectSilence(played, 100'000 + 240, played.left.size());
}

TEST_F(SoundShow, PauseAndContinue_TakesUpAtTheSameSample) {
    Ambience(1920, 8 * 1920);
    const Played played = Play("at frame 110000 pause\n+1.5s continue\n+2s quit");
    ExpectRound(played, BarFrames, 0, 14'000);
    ExpectCut(played, 110'000);
    ExpectSilence(played, 110'000 + CutFrames, 182'000);
    ExpectRound(played, 182'000 + CutFrames, 14'000 + CutFrames, 50'000);
}

TEST_F(SoundShow, PausedEffect_TakesUpAtTheSameSampleAndOnce) {
    Effect(1920);
    const Played played = Play("at frame 110000 pause\n+1.5s continue\n+2s quit");
    ExpectCut(played, 110'000);
    ExpectRound(played, 182'000 + CutFrames, 14'000 + CutFrames, 16'000 - CutFrames, Door());
    ExpectSilence(played, 182'000 + 16'000, 182'000 + 40'000);
}

TEST_F(SoundShow, SeekWhilePaused_DropsWhatWaited) {
    Effect(1920);
    const Played played = Play("at frame 110000 pause\n+1s seek 4\n+0.5s continue\n+2s quit");
    ExpectSilence(played, 110'000 + CutFrames, played.left.size());
}

TEST_F(SoundShow, SeekIntoAnAmbience_TakesItUpWhereItWouldBe) {
    Ambience(1920, 8 * 1920);
    const Played played = Play("at frame 24000 seek 4:2\n+2s quit");
    ExpectSilence(played, 0, 24'000);
    ExpectRound(played, 24'000 + CutFrames, 2 * BarFrames + 24'000 + CutFrames, 50'000);
}

TEST_F(SoundShow, SeekInsideAnAmbience_TakesItUpWhereItWouldBe) {
    Ambience(1920, 8 * 1920);
    Log().GetTempoScales().Add(CL::TempoScale(2 * 1920, 3 * 1920, 0.5F));
    const Played played = Play("at frame 110000 seek 4\n+2s quit");
    ExpectRound(played, 110'000 + CutFrames, 3 * BarFrames + CutFrames, 50'000);
}

TEST_F(SoundShow, SeekPastAnEffectsBeginning_DoesNotStartItLate) {
    Effect(1920);
    Effect(4 * 1920);
    const Played played = Play("at frame 24000 seek 2:2\nat 5:4 quit");
    const std::size_t second = 24'000 + 2 * BarFrames + 3 * 24'000;
    ExpectSilence(played, 0, second);
    ExpectRound(played, second, 0, 20'000, Door());
}

TEST_F(SoundShow, SeekWhileAnEffectSounds_EndsIt) {
    Effect(1920);
    const Played played = Play("at frame 100000 seek 5\n+1s quit");
    ExpectCut(played, 100'000);
}

TEST_F(SoundShow, SeekToAnEffectsBeginning_StartsIt) {
    Effect(4 * 1920);
    const Played played = Play("at frame 24000 seek 5\n+2s quit");
    ExpectRound(played, 24'000, 0, Door().size(), Door());
}

TEST_F(SoundShow, EffectInAVamp_PlaysOutThroughTheJumpAndBeginsAnewInEachPass) {
    Effect(2 * 1920 - 240);
    Log().GetVamps().Add(CL::Vamp(1920, 2 * 1920, 0));
    const Played played = Play("at 2@2 exit");
    const std::size_t first = 2 * BarFrames - 12'000;
    ExpectRound(played, first, 0, Door().size(), Door());
    ExpectSilence(played, first + Door().size(), first + BarFrames);
    ExpectRound(played, first + BarFrames, 0, Door().size(), Door());
}

TEST_F(SoundShow, AmbienceOverAVamp_GoesOnWithoutASeam) {
    Ambience(960, 4 * 1920);
    Log().GetVamps().Add(CL::Vamp(1920, 2 * 1920, 0));
    const Played played = Play("at 2@3 exit");
    ExpectRound(played, 48'000, 0, 6 * BarFrames - 48'000);
    ExpectCut(played, 6 * BarFrames);
}

TEST_F(SoundShow, AmbienceOfTheVampItself_GoesOnWithoutASeam) {
    Ambience(1920, 2 * 1920);
    Log().GetVamps().Add(CL::Vamp(1920, 2 * 1920, 0));
    const Played played = Play("at 2@3 exit");
    ExpectRound(played, BarFrames, 0, 3 * BarFrames);
    ExpectCut(played, 4 * BarFrames);
}

TEST_F(SoundShow, AmbienceThatALoopLeaves_EndsAndBeginsAnew) {
    Ambience(2 * 1920, 8 * 1920);
    Log().GetRepeats().Add(CL::Repeat(1920, 3 * 1920, 2));
    const Played played = Play();
    ExpectRound(played, 2 * BarFrames, 0, BarFrames);
    ExpectCut(played, 3 * BarFrames);
    ExpectRound(played, 4 * BarFrames, 0, 3 * BarFrames);
}

TEST_F(SoundShow, AmbienceAtAFermataAndACaesura_GoesOnWhileTheMusicWaits) {
    Ambience(0, 8 * 1920);
    Log().GetFermatas().Add(CL::Fermata(1920, 2 * 1920));
    Log().GetCaesuras().Add(CL::Caesura(3 * 1920, "", 0));
    const Played played = Play("at 2:4 tempo 100%\n+3s exit\nat 3:4 tempo 100%\n+4s continue\nat 6 quit");
    ExpectRound(played, 0, 0, 8 * BarFrames);
}

TEST_F(SoundShow, Cut_LeavesOutTheEffectsInItAndEndsThoseWhoseEndIsInIt) {
    Effect(1920, 3 * 1920);
    Effect(2 * 1920 + 480);
    prepare = [](const TemporaryDirectory& directory) {
        test_support::WriteExactSound(directory / "door.wav", MakeStaircase(200'000));
    };
    Log().GetCuts().Add(CL::Cut(2 * 1920, 4 * 1920));
    const Played played = Play();
    ExpectRound(played, BarFrames, 0, BarFrames, MakeStaircase(200'000));
    ExpectCut(played, 2 * BarFrames);
    ExpectSilence(played, 2 * BarFrames + CutFrames, 5 * BarFrames);
}

TEST_F(SoundShow, CutIntoAnAmbience_TakesItUpWhereItWouldBe) {
    Ambience(3 * 1920, 8 * 1920);
    Log().GetCuts().Add(CL::Cut(1920, 4 * 1920));
    const Played played = Play();
    ExpectRound(played, BarFrames + CutFrames, BarFrames + CutFrames, BarFrames);
}

TEST_F(SoundShow, Attacca_EffectsRingOnIntoTheNextSongAndAmbiencesEnd) {
    Song("2", 2);
    Log().SetAttacca(CL::AttaccaNext);
    Effect(8 * 1920 - 240);
    const Played played = Play("", "2");
    ExpectRound(played, 8 * BarFrames - 12'000, 0, Door().size(), Door());
}

TEST_F(SoundShow, AmbienceToTheSongsEnd_EndsThereAlsoAtAnAttacca) {
    Song("2", 2);
    Log().SetAttacca(CL::AttaccaNext);
    Ambience(7 * 1920, 8 * 1920);
    const Played played = Play("", "2");
    ExpectRound(played, 7 * BarFrames, 0, BarFrames);
    ExpectCut(played, 8 * BarFrames);
}

TEST_F(SoundShow, EffectAtTheEndOfASong_RingsOutAndIsRenderedWhole) {
    Song("2", 2);
    Effect(8 * 1920 - 100);
    prepare = [](const TemporaryDirectory& directory) {
        test_support::WriteExactSound(directory / "door.wav", MakeStaircase(400'000));
    };
    const Played played = Play();
    ExpectRound(played, 8 * BarFrames - 5000, 0, 400'000, MakeStaircase(400'000));
}

TEST_F(SoundShow, LoadingAnotherSong_EndsWhatSounds) {
    Song("2", 2);
    Effect(1920);
    Ambience(0, 8 * 1920, -6);
    const Played played = Play("at frame 100000 load 2\n+1s quit");
    ExpectCut(played, 100'000);
}

TEST_F(SoundShow, Volumes_ApplyToTheirKindAndTheMastersToAll) {
    Effect(1920);
    Ambience(4 * 1920, 5 * 1920);
    for (const auto& [settings, effect, ambience] :
         {std::tuple(R"({"volumes": {"effects": 0.5}})", 0.5F, 1.0F),
          std::tuple(R"({"volumes": {"ambience": 0.25}})", 1.0F, 0.25F),
          std::tuple(R"({"volumes": {"synth": 0, "master": 0.5}})", 0.5F, 0.5F),
          std::tuple(R"({"sounds": [{"name": "door.wav", "trim": -6.0206}]})", 0.5F, 1.0F)}) {
        show_.settings = settings;
        const Played played = Play();
        EXPECT_NEAR(effect * Door()[1000], played.left[BarFrames + 1000], 1e-5) << settings;
        EXPECT_NEAR(ambience * Rain()[1000], played.left[4 * BarFrames + 1000], 1e-5) << settings;
    }
}

TEST_F(SoundShow, EditsGain_IsAFactorInDecibels) {
    Effect(1920, 0, -20);
    EXPECT_NEAR(0.1F * Door()[1000], Play().left[BarFrames + 1000], 1e-5);
}

TEST_F(SoundShow, VolumeVerbs_RampWithinTenMilliseconds) {
    Ambience(0, 8 * 1920);
    const Played played = Play("at frame 100000 volume 0% ambience\n+1s volume 50% ambience\n+2s quit");
    EXPECT_NE(0.0F, played.left[100'000 + 100]);
    ExpectSilence(played, 100'480, 148'000);
    EXPECT_NEAR(0.5F * Rain()[149'000 % Rain().size()], played.left[149'000], 1e-5);
}

TEST_F(SoundShow, Fade_TakesTheSoundsDownWithTheMusic) {
    Ambience(0, 8 * 1920);
    const Played played = Play("at frame 96000 fade 1\n+2s quit");
    EXPECT_NEAR(0.5F * Rain()[120'000 % Rain().size()], played.left[120'000], 1e-3);
    ExpectSilence(played, 144'000, played.left.size());
}

TEST_F(SoundShow, EditWhileItSounds_IsFollowed) {
    Ambience(0, 8 * 1920);
    const Played played = Play(
        "at 2 edit remove 1\nat 3 edit add ambient 2 7 --sound rain.wav\n"
        "at 4 quit");
    ExpectRound(played, 0, 0, BarFrames);
    ExpectCut(played, BarFrames);
    ExpectRound(played, 2 * BarFrames + CutFrames, BarFrames + CutFrames, BarFrames - CutFrames);
}

TEST_F(SoundShow, MissingAndBrokenSounds_AreNamedAndDoNotStopTheShow) {
    Effect(1920);
    Ambience(4 * 1920, 5 * 1920);
    Log().GetSfxs().Add(CL::Sfx(2 * 1920, 2 * 1920, "letter.wav", 0));
    prepare = [](const TemporaryDirectory& directory) {
        std::filesystem::remove(directory / "door.wav");
        test_support::WriteBytes(directory / "letter.wav", "Dear producer");
    };
    const Played played = Play();
    EXPECT_EQ(R"(song 1: the sound "door.wav" at 2 is not there)", played.result.soundProblems.at(0));
    EXPECT_EQ(R"(song 1: the sound "letter.wav" at 3 cannot be played: it is not a WAV, FLAC, Ogg, Opus or MP3 file, )"
              "or is damaged",
              played.result.soundProblems.at(1));
    EXPECT_EQ(2U, played.result.soundProblems.size());
    ExpectRound(played, 4 * BarFrames, 0, BarFrames);
    ExpectSilence(played, 0, 4 * BarFrames);
}

}  // namespace
