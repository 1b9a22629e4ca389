// Sound files: the kinds that are read, what is said of broken ones, other rates, and sounds that are late.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>

#include "stage/engine/sound_player.h"
#include "stage/sounds/sound_library.h"
#include "tests/support/sound_files.h"
#include "tests/support/temporary_directory.h"

namespace {

using stage::SoundClip;
using stage::SoundUse;
using test_support::MakeNoise;
using test_support::MakeSine;
using test_support::TemporaryDirectory;
using test_support::WriteBytes;
using test_support::WriteExactSound;

constexpr std::uint32_t Rate = 48000;

std::vector<float> MakeStereo(std::size_t frames, int rate) {
    const std::vector<float> left = MakeSine(frames, 440, rate);
    const std::vector<float> right = MakeSine(frames, 660, rate);
    std::vector<float> both;
    for (std::size_t i = 0; i < frames; ++i) {
        both.push_back(left[i]);
        both.push_back(right[i]);
    }
    return both;
}

/// How alike two sounds are, 1 for the same form. The ends are left out: codecs and converters ring there.
double Correlate(const std::vector<float>& a, const std::vector<float>& b) {
    double ab = 0;
    double aa = 0;
    double bb = 0;
    for (std::size_t i = 2000; i + 2000 < std::min(a.size(), b.size()); ++i) {
        ab += double{a[i]} * b[i];
        aa += double{a[i]} * a[i];
        bb += double{b[i]} * b[i];
    }
    return ab / std::sqrt(aa * bb);
}

struct Format {
    const char* name;
    int format;
    int rate;
};

class SoundFormat : public testing::TestWithParam<Format> {};

TEST_P(SoundFormat, StereoFile_IsReadWithBothSidesAtItsPlaceAndLength) {
    const TemporaryDirectory directory;
    const std::string path = directory / GetParam().name;
    const auto frames = static_cast<std::size_t>(GetParam().rate);
    test_support::WriteSound(path, GetParam().format, GetParam().rate, 2, MakeStereo(frames, GetParam().rate));
    const stage::SoundFile file = stage::ReadSoundFile(path, Rate, SoundUse::Once);
    EXPECT_EQ("", file.remark);
    EXPECT_EQ(Rate, file.clip.left.size());
    EXPECT_EQ(Rate, file.clip.right.size());
    EXPECT_GT(Correlate(MakeSine(Rate, 440, Rate), file.clip.left), 0.999);
    EXPECT_GT(Correlate(MakeSine(Rate, 660, Rate), file.clip.right), 0.999);
}

INSTANTIATE_TEST_SUITE_P(Kinds, SoundFormat,
                         testing::Values(Format{"sound.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100},
                                         Format{"sound.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 96000},
                                         Format{"sound.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100},
                                         Format{"sound.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000},
                                         Format{"sound.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 44100}),
                         [](const auto& tested) { return std::string(tested.param.name).substr(6); });

// What is said of a file after its name.
std::string SentenceOf(const std::string& path) {
    try {
        return stage::ReadSoundFile(path, Rate, SoundUse::Once).remark;
    } catch (const std::runtime_error& problem) {
        return problem.what();
    }
}

TEST(BrokenSound, OfEachKind_IsToldInOneSentence) {
    const TemporaryDirectory directory;
    const std::string path = directory / "sound.wav";
    EXPECT_EQ("is not there", SentenceOf(path));
    WriteBytes(path, "");
    EXPECT_EQ("cannot be played: the file is empty", SentenceOf(path));
    WriteBytes(path, "A door slams, twice.\n");
    EXPECT_EQ("cannot be played: it is not a WAV, FLAC, Ogg, Opus or MP3 file, or is damaged", SentenceOf(path));
    EXPECT_EQ("cannot be played: it is not a file", SentenceOf(directory.Path()));
    ASSERT_EQ(0, mkfifo((directory / "pipe.wav").c_str(), 0600));
    EXPECT_EQ("cannot be played: it is not a file", SentenceOf(directory / "pipe.wav"));
    WriteExactSound(path, std::vector<float>(600), 48000, 6);
    EXPECT_EQ("cannot be played: it has 6 channels: make it mono or stereo", SentenceOf(path));
    WriteExactSound(path, std::vector<float>(600), 4000);
    EXPECT_EQ("cannot be played: it has 4000 frames a second: make it 8000 to 192000", SentenceOf(path));
    WriteExactSound(path, {0.5F, NAN, 0.5F});
    EXPECT_EQ("cannot be played: the file holds values that are not numbers", SentenceOf(path));
    WriteExactSound(path, {});
    EXPECT_EQ("cannot be played: there is no sound in it", SentenceOf(path));
    WriteExactSound(path, std::vector<float>(4800, 0.1F));
    EXPECT_EQ("", SentenceOf(path));
}

TEST(BrokenSound, LongerThanHalfAnHour_IsRefused) {
    const TemporaryDirectory directory;
    // Half an hour and a second at the lowest rate, of a kind that needs little room.
    const std::vector<float> samples(std::size_t{8000} * 1801);
    test_support::WriteSound(directory / "sound.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_S8, 8000, 1, samples);
    EXPECT_EQ("cannot be played: it is longer than 30 minutes", SentenceOf(directory / "sound.flac"));
}

class CutSound : public testing::TestWithParam<Format> {};

TEST_P(CutSound, IsPlayedAsFarAsItGoes_AndToldOf) {
    const TemporaryDirectory directory;
    const std::string path = directory / GetParam().name;
    // A codec would make nothing of a tone.
    test_support::WriteSound(path, GetParam().format, GetParam().rate, 1, MakeNoise(480'000));
    const std::string bytes = test_support::ReadBytes(path);
    WriteBytes(path, bytes.substr(0, bytes.size() / 2));
    const stage::SoundFile file = stage::ReadSoundFile(path, Rate, SoundUse::Once);
    EXPECT_TRUE(file.remark.starts_with("is cut short or damaged: its first ")) << file.remark;
    EXPECT_GT(file.clip.CountFrames(), 180'000U);
    EXPECT_LT(file.clip.CountFrames(), 300'000U);
}

INSTANTIATE_TEST_SUITE_P(Kinds, CutSound,
                         testing::Values(Format{"sound.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000},
                                         Format{"sound.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000},
                                         Format{"sound.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 48000},
                                         Format{"sound.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000},
                                         Format{"sound.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 48000}),
                         [](const auto& tested) { return std::string(tested.param.name).substr(6); });

/// An MP3 file of noise that does not say how long it is, as most encoders write it: without what names the length.
std::string MakeMp3WithoutLength(const std::string& path) {
    test_support::WriteSound(path, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 48000, 1, MakeNoise(96'000));
    std::string bytes = test_support::ReadBytes(path);
    const std::size_t name = bytes.find("Xing");
    EXPECT_NE(std::string::npos, name);
    return bytes.replace(name, 4, "    ");
}

TEST(CutMp3, WithoutALength_IsToldOfWhereverInAFrameItEnds) {
    const TemporaryDirectory directory;
    const std::string path = directory / "sound.mp3";
    const std::string whole = MakeMp3WithoutLength(path);
    WriteBytes(path, whole);
    EXPECT_EQ("", SentenceOf(path));
    // A tag behind the sound, and bytes of nothing, are no part of a frame.
    WriteBytes(path, whole + "TAG" + std::string(125, '\0'));
    EXPECT_EQ("", SentenceOf(path));
    WriteBytes(path, whole + std::string(700, '\0'));
    EXPECT_EQ("", SentenceOf(path));
    // Frames of this file begin with their kind, and take some hundred bytes.
    const std::string kind = whole.substr(0, 2);
    std::size_t between = 0;
    for (std::size_t bytes = whole.size() / 2; bytes < whole.size() / 2 + 500; ++bytes) {
        WriteBytes(path, whole.substr(0, bytes));
        const std::string sentence = SentenceOf(path);
        if (sentence.empty()) {
            ++between;
            EXPECT_EQ(kind, whole.substr(bytes, 2)) << bytes;
        } else {
            EXPECT_TRUE(sentence.starts_with("is cut short or damaged: its first ")) << sentence;
        }
    }
    EXPECT_LT(between, 5U);
}

// Bytes of all kinds of files, changed at random: each is read or refused with a sentence.
TEST(BrokenSound, DamagedAtRandom_IsReadOrRefused) {
    const TemporaryDirectory directory;
    const std::string path = directory / "damaged";
    std::uint32_t state = 7;
    const auto next = [&state](std::size_t below) {
        state = state * 1664525 + 1013904223;
        return (state >> 8U) % below;
    };
    for (const int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
                             SF_FORMAT_OGG | SF_FORMAT_VORBIS, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III}) {
        test_support::WriteSound(path, format, 48000, 1, MakeSine(4800, 440, 48000));
        const std::string whole = test_support::ReadBytes(path);
        for (int round = 0; round < 25; ++round) {
            std::string bytes = whole.substr(0, 1 + next(whole.size()));
            for (int i = 0; i < 4; ++i)
                bytes[next(bytes.size())] = static_cast<char>(next(256));
            WriteBytes(path, bytes);
            const std::string sentence = SentenceOf(path);
            const bool isKnown = sentence.empty() || sentence.starts_with("cannot be played: ") ||
                                 sentence.starts_with("is cut short or damaged: ");
            EXPECT_TRUE(isKnown) << sentence;
        }
    }
}

// A tone of whole periods at another rate: the same tone, through the place where it begins anew.
TEST(SoundRate, OfARound_IsTheSameToneThroughItsSeam) {
    constexpr std::size_t Frames = 44100 / 4;
    const SoundClip clip{MakeSine(Frames, 440, 44100), {}};
    const SoundClip converted = stage::ConvertRate(clip, 44100, Rate, SoundUse::Round);
    const std::size_t length = converted.CountFrames();
    ASSERT_EQ(Frames * 160 / 147, length);
    const std::vector<float> ideal = MakeSine(2 * length, 440, 48000);
    float most = 0;
    for (std::size_t i = 0; i < 2 * length; ++i)
        most = std::max(most, std::fabs(converted.left[i % length] - ideal[i]));
    EXPECT_LT(most, 1e-3F);
    EXPECT_TRUE(converted.right.empty());
}

TEST(SoundRate, OfARoundOfAnOddLength_HasAWholeNumberOfFramesAndNoSeam) {
    // 7 periods in 9973 frames, a length that does not divide.
    constexpr std::size_t Frames = 9973;
    const double hertz = 7.0 * 44100 / Frames;
    const SoundClip clip{MakeSine(Frames, hertz, 44100), {}};
    const SoundClip converted = stage::ConvertRate(clip, 44100, Rate, SoundUse::Round);
    const std::size_t length = converted.CountFrames();
    EXPECT_EQ(10855U, length);
    const std::vector<float> ideal = MakeSine(length, 7.0 * 48000 / static_cast<double>(length), 48000);
    for (std::size_t i = 0; i < length; ++i)
        ASSERT_NEAR(converted.left[i], ideal[i], 1e-3) << i;
}

TEST(SoundRate, OfASoundPlayedOnce_KeepsItsBeginningAndItsLength) {
    std::vector<float> pulse(4410);
    pulse[441] = 1;
    const SoundClip converted = stage::ConvertRate({pulse, {}}, 44100, Rate, SoundUse::Once);
    EXPECT_EQ(4800U, converted.CountFrames());
    const auto peak = std::max_element(converted.left.begin(), converted.left.end());
    EXPECT_EQ(480, peak - converted.left.begin());
}

TEST(Sounds, AFileThatIsChanged_IsReadAnew) {
    const TemporaryDirectory directory;
    stage::SoundLibrary library({.directory = directory.Path(), .framesPerSecond = Rate, .trims = {}});
    const stage::SoundPointer missing = library.Find("sound.wav", SoundUse::Once, true);
    library.Wait(*missing);
    EXPECT_EQ("is not there", missing->GetProblem());
    EXPECT_EQ(nullptr, missing->GetClip());
    WriteExactSound(directory / "sound.wav", std::vector<float>(4800, 0.5F));
    const stage::SoundPointer there = library.Find("sound.wav", SoundUse::Once, true);
    library.Wait(*there);
    ASSERT_NE(nullptr, there->GetClip());
    EXPECT_EQ(4800U, there->GetClip()->CountFrames());
    EXPECT_EQ(there, library.Find("sound.wav", SoundUse::Once, false));
}

TEST(Sounds, ThatDoNotFitIntoMemoryTogether_AreRefusedUntilOthersAreGivenUp) {
    const TemporaryDirectory directory;
    WriteExactSound(directory / "one.wav", std::vector<float>(200'000, 0.5F));
    WriteExactSound(directory / "two.wav", std::vector<float>(200'000, 0.5F));
    stage::SoundLibrary library(
        {.directory = directory.Path(), .framesPerSecond = Rate, .trims = {}, .mostBytes = 1U << 20U});
    const auto get = [&](const char* name) {
        const stage::SoundPointer sound = library.Find(name, SoundUse::Once, true);
        library.Wait(*sound);
        return sound;
    };
    stage::SoundPointer one = get("one.wav");
    EXPECT_EQ("", one->GetProblem());
    EXPECT_EQ("cannot be played: the sounds of the songs at hand take more than 1 MB", get("two.wav")->GetProblem());
    one.reset();
    library.Tidy();
    // The library's thread does one thing after the other.
    static_cast<void>(get("none.wav"));
    EXPECT_EQ("", get("two.wav")->GetProblem());
}

TEST(LateSound, BeginsWhenItIsThere_AtThePlaceWhereItWouldBe) {
    const TemporaryDirectory directory;
    // Long enough to be converted, that it cannot be there at once.
    WriteExactSound(directory / "long.wav", MakeSine(441'000, 440, 44100), 44100);
    stage::SoundLibrary library({.directory = directory.Path(), .framesPerSecond = Rate, .trims = {}});
    stage::PlannedSound planned;
    planned.sound = library.Find("long.wav", SoundUse::Once, true);
    stage::SoundPlayer player(Rate);
    player.Start(planned, 0);
    ASSERT_EQ(nullptr, planned.sound->GetClip());
    EXPECT_TRUE(planned.sound->TakeLate());
    EXPECT_FALSE(planned.sound->TakeLate());
    std::array<float, 1000> left{};
    std::array<float, 1000> right{};
    player.Mix(left.data(), right.data(), 1000);
    library.Wait(*planned.sound);
    left.fill(0);
    player.Mix(left.data(), right.data(), 1000);
    const std::vector<float>& clip = planned.sound->GetClip()->left;
    for (std::size_t i = 192; i < 1000; ++i)
        ASSERT_EQ(clip[1000 + i], left[i]) << i;
    EXPECT_LT(std::fabs(left[0]), 0.01F);
}

TEST(SoundPlayerVoices, MoreThanThereIsRoomFor_TheEffectThatBeganFirstMakesWay) {
    const TemporaryDirectory directory;
    WriteExactSound(directory / "sound.wav", std::vector<float>(48000, 0.001F));
    stage::SoundLibrary library({.directory = directory.Path(), .framesPerSecond = Rate, .trims = {}});
    stage::PlannedSound effect;
    effect.sound = library.Find("sound.wav", SoundUse::Once, true);
    stage::PlannedSound ambience;
    ambience.sound = library.Find("sound.wav", SoundUse::Round, true);
    ambience.end = 1000;
    library.Wait(*effect.sound);
    library.Wait(*ambience.sound);
    stage::SoundPlayer player(Rate);
    player.Start(ambience, 0);
    for (std::size_t i = 0; i < 5 * stage::SoundPlayer::MostSounds; ++i)
        player.Start(effect, 0);
    EXPECT_EQ(stage::SoundPlayer::MostSounds, player.CountSounds());
    std::array<float, 192> left{};
    std::array<float, 192> right{};
    player.Mix(left.data(), right.data(), 192);
    EXPECT_NEAR(0.064F, left[191], 1e-4);
    player.EndAmbiences();
    EXPECT_EQ(stage::SoundPlayer::MostSounds - 1, player.CountSounds());
}

}  // namespace
