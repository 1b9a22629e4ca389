#include "stage/live/rate_converter.h"

#include <fmt/format.h>
#include <samplerate.h>

#include <cmath>
#include <stdexcept>

namespace stage {

struct RateConverter::State {
    explicit State(SRC_STATE* made) : src(made) {}
    ~State() { src_delete(src); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    SRC_STATE* src;
};

RateConverter::RateConverter(std::uint32_t fromRate, std::uint32_t toRate, std::uint32_t longestBlock)
    : ratio_(static_cast<double>(toRate) / fromRate) {
    int error = 0;
    SRC_STATE* const src = src_new(SRC_SINC_MEDIUM_QUALITY, 2, &error);
    if (src == nullptr || src_is_valid_ratio(ratio_) == 0) {
        if (src != nullptr) src_delete(src);
        throw std::runtime_error(
            fmt::format("sound at {} frames a second cannot be converted to {}", fromRate, toRate));
    }
    state_ = std::make_unique<State>(src);
    const auto longest = static_cast<std::size_t>(std::ceil(longestBlock * ratio_)) + 64;
    in_.resize(std::size_t{2} * longestBlock);
    out_.resize(2 * longest);
    left_.resize(longest);
    right_.resize(longest);
}

RateConverter::~RateConverter() = default;

std::uint32_t RateConverter::Convert(const float* left, const float* right, std::uint32_t frames) {
    for (std::size_t i = 0; i < frames; ++i) {
        in_[2 * i] = left[i];
        in_[2 * i + 1] = right[i];
    }
    SRC_DATA data{};
    data.data_in = in_.data();
    data.input_frames = static_cast<long>(frames);
    data.data_out = out_.data();
    data.output_frames = static_cast<long>(left_.size());
    data.src_ratio = ratio_;
    if (src_process(state_->src, &data) != 0) return 0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(data.output_frames_gen); ++i) {
        left_[i] = out_[2 * i];
        right_[i] = out_[2 * i + 1];
    }
    return static_cast<std::uint32_t>(data.output_frames_gen);
}

}  // namespace stage
