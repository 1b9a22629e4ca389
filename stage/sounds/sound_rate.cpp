// Sounds at another rate, through libsamplerate.

#include <fmt/format.h>
#include <samplerate.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

#include "stage/sounds/sound_clip.h"

namespace stage {

namespace {

constexpr std::size_t ConvertedAtATime = 8192;

struct DeleteConverter {
    void operator()(SRC_STATE* state) const { src_delete(state); }
};

/// The input of a conversion: the clip from `first` on, round and round or once.
class Source {
public:
    Source(const std::vector<float>& sound, std::size_t first, SoundUse use) : sound_(sound), at_(first), use_(use) {}

    void Read(std::vector<float>& block) {
        for (float& value : block) {
            value = at_ < sound_.size() ? sound_[at_] : 0;
            ++at_;
            if (use_ == SoundUse::Round && at_ >= sound_.size()) at_ = 0;
        }
    }

private:
    const std::vector<float>& sound_;
    std::size_t at_;
    const SoundUse use_;
};

/// Where a sound that goes round is converted, the converter first hears `lead` frames of what comes before its
/// beginning: so many that the first frame of the result falls on the clip's own.
struct Lead {
    std::size_t in = 0;
    std::size_t out = 0;
};

Lead FindLead(double ratio) {
    // Longer than the converter's memory, also where it lowers the rate.
    const auto shortest = static_cast<std::size_t>(512 * std::max(1.0, 1 / ratio));
    Lead best;
    double bestOffset = 1;
    for (std::size_t in = shortest; in < shortest + 4096; ++in) {
        const double out = static_cast<double>(in) * ratio;
        const double offset = out - std::floor(out);
        if (offset >= bestOffset) continue;
        best = {in, static_cast<std::size_t>(out)};
        bestOffset = offset;
    }
    return best;
}

std::vector<float> ConvertChannel(const std::vector<float>& sound, double ratio, std::size_t wanted, SoundUse use) {
    int error = 0;
    const std::unique_ptr<SRC_STATE, DeleteConverter> state(src_new(SRC_SINC_BEST_QUALITY, 1, &error));
    if (state == nullptr) throw std::bad_alloc();
    const Lead lead = use == SoundUse::Round ? FindLead(ratio) : Lead();
    Source source(sound, use == SoundUse::Round ? (sound.size() - lead.in % sound.size()) % sound.size() : 0, use);
    std::vector<float> in(ConvertedAtATime);
    std::vector<float> out(static_cast<std::size_t>(std::ceil(ConvertedAtATime * ratio)) + 64);
    std::vector<float> converted;
    converted.reserve(lead.out + wanted + out.size());
    while (converted.size() < lead.out + wanted) {
        source.Read(in);
        SRC_DATA data{};
        data.data_in = in.data();
        data.input_frames = static_cast<long>(in.size());
        data.src_ratio = ratio;
        while (data.input_frames > 0) {
            data.data_out = out.data();
            data.output_frames = static_cast<long>(out.size());
            if (const int problem = src_process(state.get(), &data); problem != 0)
                throw std::runtime_error(fmt::format("cannot be played: {}", src_strerror(problem)));
            converted.insert(converted.end(), out.begin(), out.begin() + data.output_frames_gen);
            data.data_in += data.input_frames_used;
            data.input_frames -= data.input_frames_used;
        }
    }
    converted.erase(converted.begin(), converted.begin() + static_cast<std::ptrdiff_t>(lead.out));
    converted.resize(wanted);
    return converted;
}

}  // namespace

SoundClip ConvertRate(const SoundClip& clip, std::uint32_t fromRate, std::uint32_t toRate, SoundUse use) {
    double ratio = static_cast<double>(toRate) / fromRate;
    if (src_is_valid_ratio(ratio) == 0)
        throw std::runtime_error(
            fmt::format("cannot be played: {} frames a second cannot be converted to {}", fromRate, toRate));
    const std::uint64_t parts = std::uint64_t{clip.CountFrames()} * toRate;
    std::size_t frames = (parts + fromRate - 1) / fromRate;
    if (use == SoundUse::Round) {
        // Its own speed changes by less than anybody hears, so that the round has no fraction of a frame.
        frames = std::max<std::size_t>(1, (parts + fromRate / 2) / fromRate);
        ratio = static_cast<double>(frames) / static_cast<double>(clip.CountFrames());
        if (src_is_valid_ratio(ratio) == 0) throw std::runtime_error("cannot be played: it is too short to go round");
    }
    SoundClip converted;
    converted.left = ConvertChannel(clip.left, ratio, frames, use);
    if (!clip.right.empty()) converted.right = ConvertChannel(clip.right, ratio, frames, use);
    return converted;
}

}  // namespace stage
