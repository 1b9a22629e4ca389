// Effects that sound at once, beside a loop that adds the same frames.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <array>
#include <vector>

#include "benchmarks/rows.h"
#include "stage/engine/sound_player.h"
#include "tests/support/sound_files.h"
#include "tests/support/temporary_directory.h"

namespace bench {

namespace {

constexpr std::uint32_t MixedFramesPerSecond = 48000;
constexpr std::size_t EffectsAtOnce = 32;
constexpr std::uint32_t MixedBlock = 64;
constexpr std::size_t EffectFrames = std::size_t{10} * MixedFramesPerSecond;
constexpr std::size_t BlocksOfEffect = EffectFrames / MixedBlock;

struct MixedBlockOfSound {
    std::array<float, MixedBlock> left{};
    std::array<float, MixedBlock> right{};
};

/// What the machine charges for it.
class BareMix {
public:
    explicit BareMix(const std::vector<stage::PlannedSound>& effects) : effects_(effects) {}

    void Mix(MixedBlockOfSound& block) {
        for (const stage::PlannedSound& effect : effects_) {
            const stage::SoundClip& clip = *effect.sound->GetClip();
            const float* const left = clip.left.data() + place_;
            const float* const right = clip.right.data() + place_;
            for (std::uint32_t i = 0; i < MixedBlock; ++i) {
                block.left[i] += left[i] * effect.gain;
                block.right[i] += right[i] * effect.gain;
            }
        }
        place_ = (place_ + MixedBlock) % EffectFrames;
    }

private:
    const std::vector<stage::PlannedSound>& effects_;
    std::size_t place_ = 0;
};

}  // namespace

void AddSoundRows(Table& table, const Effort& effort) {
    const test_support::TemporaryDirectory directory;
    stage::SoundLibrary library({.directory = directory.Path(), .framesPerSecond = MixedFramesPerSecond, .trims = {}});
    std::vector<stage::PlannedSound> effects(EffectsAtOnce);
    for (std::size_t i = 0; i < EffectsAtOnce; ++i) {
        const std::string name = fmt::format("effect{}.wav", i);
        test_support::WriteExactSound(directory / name, test_support::MakeStaircase(2 * EffectFrames),
                                      static_cast<int>(MixedFramesPerSecond), 2);
        effects[i].sound = library.Find(name, stage::SoundUse::Once, true);
        effects[i].gain = 0.5F;
        library.Wait(*effects[i].sound);
    }
    stage::SoundPlayer player(MixedFramesPerSecond);
    std::size_t blocks = 0;
    const auto mix = [&](std::size_t times) {
        MixedBlockOfSound block;
        for (std::size_t i = 0; i < times; ++i, ++blocks) {
            if (blocks % BlocksOfEffect == 0)
                for (const stage::PlannedSound& effect : effects)
                    player.Start(effect, 0);
            block = {};
            player.Mix(block.left.data(), block.right.data(), MixedBlock);
            benchmark::DoNotOptimize(block);
        }
    };
    BareMix bare(effects);
    const Candidate ours{"player", mix, {}, BlocksOfEffect};
    const Candidate plain{"loop",
                          [&](std::size_t times) {
                              MixedBlockOfSound block;
                              for (std::size_t i = 0; i < times; ++i) {
                                  block = {};
                                  bare.Mix(block);
                                  benchmark::DoNotOptimize(block);
                              }
                          },
                          {},
                          BlocksOfEffect};
    const std::vector<Timing> timings = MeasureInterleaved({plain, ours}, effort, Clock::ThreadCpu, 5);
    const double ratio = MedianRatio(timings[1], timings[0]);
    table.Add({"mix sound effects",
               fmt::format("{} stereo, 64 frames", EffectsAtOnce),
               "a loop that adds them",
               FormatTime(timings[0].Median()),
               FormatTime(timings[1].Median()),
               fmt::format("{:.2f}", ratio),
               "",
               "",
               {}});
}

}  // namespace bench
